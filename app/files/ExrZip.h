#pragma once
// OpenEXR's ZIP chunk coding, done with libdeflate. A chunk's lines, as the
// file lays them out uncompressed, are split into their even bytes followed by
// their odd ones (the low and high bytes of little-endian values then lie in
// runs of their own), each byte after the first is replaced by its difference
// from the byte before plus 128, and the result is a zlib stream. ZIP chunks
// hold 16 lines, ZIPS chunks one; the coding is the same.
#include <cstddef>
#include <vector>

struct libdeflate_compressor;
struct libdeflate_decompressor;

// The level when none is asked for. libdeflate's level 2 writes files within
// 0.2 % of OpenEXR's own ZIP at its default zlib level (4), smaller on smooth
// pictures, at under half of zlib's time. Level 1 is a third faster, but on
// grain blurred by a wide kernel its files grow 2 % past OpenEXR's
// (bench/README.md, "ZIP levels").
constexpr int kDefaultZipLevel = 2;

// What one thread codes chunks with: libdeflate's state at one level and the
// predictor's bytes. Made for a file's chunks and let go with them, so nothing
// of a file's size outlives its reading or writing.
class ZipCoder {
public:
    // `level`: 1 to 12, on zlib's scale.
    explicit ZipCoder(int level);
    ~ZipCoder();
    ZipCoder(const ZipCoder&) = delete;
    ZipCoder& operator=(const ZipCoder&) = delete;

    // Codes the `size` bytes at `raw` into `packed`. Returns false, leaving
    // `packed` undefined, when the coded chunk would not be smaller than the raw
    // one: the file then stores the raw bytes, and a reader tells the two apart
    // by the chunk's size alone.
    bool Pack(const unsigned char* raw, std::size_t size, std::vector<unsigned char>& packed);

    // Decodes the coded chunk at `packed` into exactly `size` bytes at `raw`.
    // Throws std::runtime_error saying what is wrong with a chunk that does not
    // decode to that size.
    void Unpack(const unsigned char* packed, std::size_t packedSize, unsigned char* raw, std::size_t size);

private:
    unsigned char* Scratch(std::size_t size);
    int m_level;
    libdeflate_compressor* m_compressor = nullptr;
    libdeflate_decompressor* m_decompressor = nullptr;
    std::vector<unsigned char> m_scratch;
};
