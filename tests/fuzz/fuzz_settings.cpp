// Feeds arbitrary "--set" arguments (or "--key" ones, after '@'), one per line,
// to the settings parser and applies them to a tool: each is applied or
// refused with a message.
#include "app/files/ExitCodes.h"
#include "app/session/Settings.h"
#include "host/FusionDoc.h"
#include "host/PluginLoader.h"

#include <cstdint>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const auto plugin = PluginModule::Load(LUMIVANE_PLUGIN_FILE);
    FusionDoc doc;
    Operator& tool = *doc.AddTool(FuID("tevrinworks.Lumivane2"));
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    std::string line;
    while (std::getline(lines, line)) {
        try {
            const bool key = !line.empty() && line[0] == '@';
            ApplySettings(tool, {key ? ParseKeyArgument(line.substr(1)) : ParseSetArgument(line)}, 0.0);
        } catch (const ProgramError&) {
        }
    }
    return 0;
}
