// Feeds arbitrary "--set" arguments, one per line, to the settings parser and
// applies them to a tool: each is applied or refused with a message.
#include "app/ExitCodes.h"
#include "app/Settings.h"
#include "tool/Lumivane2.h"

#include <cstdint>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Lumivane2 tool(nullptr, ScriptVal{}, TagList{});
    tool.ReportInitialValues();
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    std::string line;
    while (std::getline(lines, line)) {
        try {
            ApplySettings(tool, {ParseSetArgument(line)}, 0.0);
        } catch (const ProgramError&) {
        }
    }
    return 0;
}
