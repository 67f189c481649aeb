#pragma once
// The options that set controls: --set, --key and the friendly ones (--size,
// --style, ...), each standing for one or two settings.
#include "app/session/Settings.h"

#include <vector>

namespace CLI {
class App;
}

// Adds --set, --key and the friendly options to a command.
void AddSettingOptions(CLI::App& command);
// After parsing: the settings those options stand for, in command-line order.
std::vector<Setting> SettingsInCommandLineOrder(const CLI::App& command);
