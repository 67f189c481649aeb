#include "app/WholeRead.h"

#include "app/DeclaredPixels.h"
#include "app/ExitCodes.h"

#include <algorithm>
#include <cstdint>
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

// The fewest bytes the file opened as `in` holds its declared pixels in, and
// what needs them, for the message; 0 when its format or coding has no bound.
std::pair<std::uint64_t, std::string> LeastBytes(const std::string& path, const OIIO::ImageInput& in)
{
    const OIIO::ImageSpec& layout = in.spec();
    const std::string format = in.format_name();
    const std::string compression = layout.get_string_attribute("compression", "none");
    DeclaredPixels pixels{static_cast<std::uint64_t>(std::max(layout.width, 0)),
                          static_cast<std::uint64_t>(std::max(layout.height, 0)),
                          static_cast<std::uint64_t>(std::max(layout.nchannels, 0)),
                          static_cast<double>(layout.get_int_attribute(
                              "oiio:BitsPerSample", static_cast<int>(layout.format.size() * 8)))};
    const std::string declared =
        "its " + std::to_string(layout.width) + "x" + std::to_string(layout.height) + " pixels";
    const std::string raw = "its uncompressed pixels (and header)";
    if (format == "dpx") return {DpxImageOffset(path) + pixels.Bytes(), raw};
    if (format == "pnm") return {pixels.Bytes(), raw};
    if (format == "png") return {LeastPngBytes(path), declared + ", deflated (at most 1032:1),"};
    if (format == "jpeg") return {LeastJpegBytes(path), declared + ", at one bit per 8x8 block,"};
    if (format == "openexr") {
        pixels.bitsPerSample = 8.0 * static_cast<double>(layout.pixel_bytes(true)) / std::max(layout.nchannels, 1);
        return {LeastExrBytes(pixels, compression, layout.tile_width, layout.tile_height),
                ExrNeeds(pixels, compression)};
    }
    if (format == "tiff") {
        // A palette image stores one index per pixel, whatever colours it gives.
        if (layout.get_int_attribute("tiff:PhotometricInterpretation", -1) == 3) pixels.channels = 1;
        return {LeastTiffBytes(pixels, compression),
                compression == "none" ? raw : declared + ", " + compression + "-compressed,"};
    }
    return {0, {}};
}

}  // namespace

void CheckFileLength(const std::string& path, const OIIO::ImageInput& in)
{
    const auto [least, what] = LeastBytes(path, in);
    CheckFileHolds(path, least, what);
}

void CheckWholeRead(const std::string& path, OIIO::ImageInput& in, bool read)
{
    if (read && !in.has_error()) return;
    std::string why = in.geterror();
    if (why.empty()) why = "the reader stopped without saying why; the file may be cut short or damaged";
    throw FileError("cannot read " + path + ": " + why);
}
