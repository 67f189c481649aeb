// Feeds arbitrary file-name patterns and frame ranges to the sequence expander.
#include "app/FramePattern.h"

#include <cstdint>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t split = text.find('\n');
    try {
        const FrameRange range = FrameRange::Parse(text.substr(0, split));
        const FramePattern pattern(split == std::string::npos ? std::string() : text.substr(split + 1));
        pattern.At(range.first);
        pattern.At(range.last);
    } catch (const std::invalid_argument&) {
    }
    return 0;
}
