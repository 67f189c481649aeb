#include "app/WholeRead.h"

#include "app/ExitCodes.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>

namespace {

// Where a DPX file says its pixels start (the header's image offset, in the
// byte order its magic number gives), or 0.
std::uint64_t DpxImageOffset(const std::string& path)
{
    unsigned char head[8] = {};
    std::ifstream file(path, std::ios::binary);
    if (!file.read(reinterpret_cast<char*>(head), sizeof head)) return 0;
    const bool bigEndian = head[0] == 'S' && head[1] == 'D' && head[2] == 'P' && head[3] == 'X';
    const bool littleEndian = head[0] == 'X' && head[1] == 'P' && head[2] == 'D' && head[3] == 'S';
    if (!bigEndian && !littleEndian) return 0;
    std::uint64_t offset = 0;
    for (int i = 0; i < 4; ++i) offset |= static_cast<std::uint64_t>(head[bigEndian ? 7 - i : 4 + i]) << (8 * i);
    return offset;
}

// The fewest bytes a file of `in`'s format needs for its pixels when they are
// stored uncompressed, or 0 when they are not (or the format is not known here).
std::uint64_t UncompressedBytes(const std::string& path, const OIIO::ImageInput& in)
{
    const OIIO::ImageSpec& layout = in.spec();
    const std::string format = in.format_name();
    std::uint64_t start = 0;
    if (format == "dpx")
        start = DpxImageOffset(path);
    else if (format != "tiff" || layout.get_string_attribute("compression", "none") != "none")
        return 0;
    const int bits = layout.get_int_attribute("oiio:BitsPerSample", static_cast<int>(layout.format.size() * 8));
    const double bytes = static_cast<double>(layout.width) * layout.height * layout.nchannels * bits / 8.0;
    return start + static_cast<std::uint64_t>(std::min(bytes, 1.8e19));
}

}  // namespace

void CheckWholeRead(const std::string& path, OIIO::ImageInput& in, bool read)
{
    std::error_code ec;
    const std::uint64_t size = std::filesystem::file_size(path, ec);
    const std::uint64_t needed = UncompressedBytes(path, in);
    if (!ec && size < needed)
        throw FileError("cannot read " + path + ": the file is cut short: it has " + std::to_string(size) +
                        " bytes, but its uncompressed pixels (and header) need at least " + std::to_string(needed));
    if (read && !in.has_error()) return;
    std::string why = in.geterror();
    if (why.empty()) why = "the reader stopped without saying why; the file may be cut short or damaged";
    throw FileError("cannot read " + path + ": " + why);
}
