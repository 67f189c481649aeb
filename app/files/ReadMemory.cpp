#include "app/files/ReadMemory.h"

#include "app/files/ExitCodes.h"
#include "host/EngineSettings.h"
#include "util/Text.h"

#include <algorithm>
#include <cstdint>

void CheckReadMemory(const std::string& path, int width, int height, int channels, double floatsPerPixel)
{
    const double need = static_cast<double>(width) * static_cast<double>(height) * floatsPerPixel * sizeof(float);
    const std::uint64_t limit = MemoryLimit();
    if (need > static_cast<double>(limit))
        throw RenderError("cannot read " + path + ": its " + std::to_string(width) + "x" + std::to_string(height) +
                          " pixels of " + std::to_string(channels) + " channels need about " +
                          FormatMemorySize(static_cast<std::uint64_t>(std::min(need, 1.8e19))) + " to read, but " +
                          MemoryLimitSource() + " is " + FormatMemorySize(limit));
}
