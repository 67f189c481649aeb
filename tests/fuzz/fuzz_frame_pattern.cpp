// Feeds arbitrary frame lists and file-name patterns to the sequence expander,
// and checks that every name it makes reads back as its frame.
#include "app/files/FramePattern.h"

#include <cstdint>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t split = text.find('\n');
    try {
        const FrameList frames = FrameList::Parse(text.substr(0, split));
        const FramePattern pattern(split == std::string::npos ? std::string() : text.substr(split + 1));
        for (const int frame : {frames.Frames().front(), frames.Frames().back()}) {
            const std::string name = pattern.At(frame);
            if (pattern.HasFrameField() && pattern.FrameOf(name) != frame) __builtin_trap();
        }
    } catch (const std::invalid_argument&) {
    }
    return 0;
}
