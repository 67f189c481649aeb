#include "app/DeclaredPixels.h"

#include "app/ExitCodes.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <vector>

namespace {

constexpr std::uint64_t kDeflateRatio = 1032;
constexpr std::uint64_t kLzwRatio = 4096;
constexpr std::uint64_t kPackBitsRatio = 64;
// An OpenEXR chunk's offset-table entry and its header (line or tile coordinates and size).
constexpr std::uint64_t kExrChunkBytes = 16;

std::uint64_t Above(std::uint64_t n, std::uint64_t d) { return (n + d - 1) / d; }

std::vector<unsigned char> Head(const std::string& path, std::size_t bytes)
{
    std::vector<unsigned char> head(bytes);
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(head.data()), static_cast<std::streamsize>(bytes));
    head.resize(static_cast<std::size_t>(file.gcount()));
    return head;
}

std::uint64_t BigEndian(const unsigned char* p, int bytes)
{
    std::uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) v = v << 8 | p[i];
    return v;
}

}  // namespace

std::uint64_t DeclaredPixels::Bytes() const
{
    const double bytes = static_cast<double>(width) * static_cast<double>(height) * static_cast<double>(channels) *
                         bitsPerSample / 8.0;
    return static_cast<std::uint64_t>(std::min(bytes, 1.8e19));
}

std::uint64_t LeastDeflateBytes(std::uint64_t raw) { return raw / kDeflateRatio; }

std::uint64_t LeastTiffBytes(const DeclaredPixels& pixels, const std::string& compression)
{
    if (compression == "none") return pixels.Bytes();
    if (compression == "zip") return LeastDeflateBytes(pixels.Bytes());
    if (compression == "lzw") return pixels.Bytes() / kLzwRatio;
    if (compression == "packbits") return pixels.Bytes() / kPackBitsRatio;
    return 0;
}

std::uint64_t LeastPngBytes(const std::string& path)
{
    // The signature, then the IHDR chunk: length, type, width, height, bit depth, colour type.
    static const unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    const std::vector<unsigned char> h = Head(path, 26);
    if (h.size() < 26 || !std::equal(kSignature, kSignature + 8, h.begin()) ||
        !std::equal(h.begin() + 12, h.begin() + 16, "IHDR"))
        return 0;
    static const std::map<int, int> kSamples = {{0, 1}, {2, 3}, {3, 1}, {4, 2}, {6, 4}};
    const auto samples = kSamples.find(h[25]);
    if (samples == kSamples.end()) return 0;
    const std::uint64_t width = BigEndian(&h[16], 4), height = BigEndian(&h[20], 4);
    // Each row starts with its filter type; interlacing only adds rows.
    const std::uint64_t row = 1 + Above(width * static_cast<std::uint64_t>(samples->second) * h[24], 8);
    return LeastDeflateBytes(height * row);
}

std::uint64_t LeastJpegBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    const auto byte = [&file]() { return file.get(); };
    if (byte() != 0xFF || byte() != 0xD8) return 0;
    // Marker segments up to the frame header; entropy-coded data comes only after it.
    for (;;) {
        int marker = byte();
        if (marker != 0xFF) return 0;
        while (marker == 0xFF) marker = byte();
        if (marker < 0 || marker == 0xD9 || marker == 0xDA) return 0;
        unsigned char length[2];
        if (!file.read(reinterpret_cast<char*>(length), 2)) return 0;
        const std::uint64_t segment = BigEndian(length, 2);
        const bool frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (!frame) {
            file.seekg(static_cast<std::streamoff>(segment) - 2, std::ios::cur);
            continue;
        }
        // Huffman-coded, not hierarchical: baseline, extended, progressive, lossless.
        if (marker > 0xC3 || segment < 8) return 0;
        unsigned char f[6];
        if (!file.read(reinterpret_cast<char*>(f), 6)) return 0;
        const std::uint64_t height = BigEndian(&f[1], 2), width = BigEndian(&f[3], 2);
        const int components = f[5];
        std::vector<std::pair<int, int>> sampling;
        int most[2] = {1, 1};
        for (int c = 0; c < components; ++c) {
            unsigned char p[3];
            if (!file.read(reinterpret_cast<char*>(p), 3)) return 0;
            sampling.emplace_back(std::max(1, p[1] >> 4), std::max(1, p[1] & 15));
            most[0] = std::max(most[0], sampling.back().first);
            most[1] = std::max(most[1], sampling.back().second);
        }
        std::uint64_t blocks = 0;
        for (const auto& [h, v] : sampling)
            blocks += Above(Above(width * h, most[0]), 8) * Above(Above(height * v, most[1]), 8);
        return blocks / 8;
    }
}

std::uint64_t LeastExrBytes(const DeclaredPixels& pixels, const std::string& compression, int tileWidth,
                            int tileHeight)
{
    static const std::map<std::string, std::uint64_t> kLinesPerChunk = {
        {"none", 1}, {"rle", 1},  {"zips", 1},  {"zip", 16},  {"pxr24", 16},
        {"piz", 32}, {"b44", 32}, {"b44a", 32}, {"dwaa", 32}, {"dwab", 256}};
    const auto lines = kLinesPerChunk.find(compression);
    std::uint64_t chunks = 0;
    if (tileWidth > 0 && tileHeight > 0)
        chunks = Above(pixels.width, static_cast<std::uint64_t>(tileWidth)) *
                 Above(pixels.height, static_cast<std::uint64_t>(tileHeight));
    else
        chunks = Above(pixels.height, lines == kLinesPerChunk.end() ? 256 : lines->second);
    std::uint64_t data = 0;
    if (compression == "none") data = pixels.Bytes();
    else if (compression == "zip" || compression == "zips") data = LeastDeflateBytes(pixels.Bytes());
    return chunks * kExrChunkBytes + data;
}

std::string ExrNeeds(const DeclaredPixels& pixels, const std::string& compression)
{
    return "its " + std::to_string(pixels.width) + "x" + std::to_string(pixels.height) + " pixels" +
           (compression == "none" ? ", uncompressed," : " in " + compression + " chunks");
}

void CheckFileHolds(const std::string& path, std::uint64_t least, const std::string& what)
{
    std::error_code ec;
    const std::uint64_t size = std::filesystem::file_size(path, ec);
    if (!ec && size < least)
        throw FileError("cannot read " + path + ": the file is cut short: it has " + std::to_string(size) +
                        " bytes, but " + what + " need at least " + std::to_string(least));
}
