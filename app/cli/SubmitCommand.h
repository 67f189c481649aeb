#pragma once
// The `submit` command's options; the farm runs it (farm/Submit.h).
#include "app/farm/Submit.h"

namespace CLI {
class App;
}

CLI::App* AddSubmitCommand(CLI::App& app, SubmitOptions& options);
