#pragma once
// Control settings from the command line: "--set ControlID=VALUE" and the
// friendly options (--size, --style, ...), which stand for one or two such
// settings. They are applied in the order they were given, each through
// Input::SetSource, so a control created with the notify tag tells its tool
// just as a user's edit would (releasing a lock copies sizes, for one).
#include "host/Operator.h"
#include "host/Request.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

struct Setting {
    std::string id;
    std::string value;   // as typed: a number, an entry name, on/off
    std::string origin;  // how the user wrote it, for messages ("--style airy")
};

// "ID=VALUE". Throws a usage ProgramError when there is no '=' or no ID.
Setting ParseSetArgument(const std::string& arg);

// What the controls accept, in words: "one of 0 \"Disk\", 1 \"Polygon\" (number or name)".
std::string AcceptedValues(const InputDeclaration& decl);

// The number `text` stands for on a number control, by the host's rule for a
// value from any path (InputDeclaration::RefuseTyped, which flows follow too).
// Throws a usage ProgramError naming `origin`, the control and what it accepts.
double ResolveNumber(const InputDeclaration& decl, const std::string& text, const std::string& origin);

// Applies the settings in order at `time`. A control with keys loses them and
// takes the value as its constant. Throws a usage ProgramError for an unknown
// control (listing the tool's controls), an image input, a read-only control
// or a value the control does not accept; settings before it stay applied.
void ApplySettings(Operator& tool, const std::vector<Setting>& settings, TimeStamp time);

// Adds --set and the friendly options to a command.
void AddSettingOptions(CLI::App& command);
// After parsing: the settings those options stand for, in command-line order.
std::vector<Setting> SettingsInCommandLineOrder(const CLI::App& command);
