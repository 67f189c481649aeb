// Feeds arbitrary bytes to the flow reader: it must load them or refuse them
// with a message, never crash, hang or leak.
#include "host/Flow.h"
#include "host/FusionDoc.h"
#include "host/PluginLoader.h"

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const auto plugin = PluginModule::Load(LUMIVANE_PLUGIN_FILE);
    static const std::string path = "/tmp/lumivane_fuzz_flow_" + std::to_string(::getpid()) + ".flow";
    if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    FusionDoc doc;
    try {
        LoadFlow(doc, path);
    } catch (const std::runtime_error&) {
    }
    return 0;
}
