#include "app/ExrZip.h"

#include <libdeflate.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>

namespace {

struct FreeCompressor {
    void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
};
struct FreeDecompressor {
    void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
};

// A compressor per thread and level, a decompressor and the predictor's bytes
// per thread: the chunks of a file are coded on the worker pool, many per thread.
libdeflate_compressor* Compressor(int level)
{
    thread_local std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor;
    thread_local int compressorLevel = 0;
    if (!compressor || compressorLevel != level) {
        compressor.reset(libdeflate_alloc_compressor(level));
        if (!compressor) throw std::bad_alloc();
        compressorLevel = level;
    }
    return compressor.get();
}

libdeflate_decompressor* Decompressor()
{
    thread_local std::unique_ptr<libdeflate_decompressor, FreeDecompressor> decompressor(libdeflate_alloc_decompressor());
    if (!decompressor) throw std::bad_alloc();
    return decompressor.get();
}

unsigned char* Scratch(std::size_t size)
{
    thread_local std::vector<unsigned char> scratch;
    if (scratch.size() < size) scratch.resize(size);
    return scratch.data();
}

}  // namespace

bool PackZipChunk(const unsigned char* raw, std::size_t size, int level, std::vector<unsigned char>& packed)
{
    if (size == 0) return false;
    unsigned char* split = Scratch(2 * size);
    unsigned char* coded = split + size;
    const std::size_t half = (size + 1) / 2;
    for (std::size_t i = 0; i < size / 2; ++i) {
        split[i] = raw[2 * i];
        split[half + i] = raw[2 * i + 1];
    }
    if (size % 2) split[half - 1] = raw[size - 1];
    coded[0] = split[0];
    for (std::size_t i = 1; i < size; ++i) coded[i] = static_cast<unsigned char>(split[i] - split[i - 1] + 128);
    // Room for one byte less than the raw chunk: a stream that does not fit is
    // not smaller, and the raw bytes are stored instead.
    packed.resize(size - 1);
    const std::size_t n = size > 1 ? libdeflate_zlib_compress(Compressor(level), coded, size, packed.data(), size - 1) : 0;
    packed.resize(n);
    return n > 0;
}

void UnpackZipChunk(const unsigned char* packed, std::size_t packedSize, unsigned char* raw, std::size_t size)
{
    unsigned char* coded = Scratch(size);
    std::size_t got = 0;
    const libdeflate_result result = libdeflate_zlib_decompress(Decompressor(), packed, packedSize, coded, size, &got);
    const std::string lines = std::to_string(size) + " bytes its lines hold";
    if (result == LIBDEFLATE_INSUFFICIENT_SPACE) throw std::runtime_error("a ZIP chunk decompresses to more than the " + lines);
    if (result != LIBDEFLATE_SUCCESS) throw std::runtime_error("a ZIP chunk is not a valid zlib stream");
    if (got != size)
        throw std::runtime_error("a ZIP chunk decompresses to " + std::to_string(got) + " bytes, not the " + lines);
    for (std::size_t i = 1; i < size; ++i) coded[i] = static_cast<unsigned char>(coded[i - 1] + coded[i] - 128);
    const std::size_t half = (size + 1) / 2;
    for (std::size_t i = 0; i < size / 2; ++i) {
        raw[2 * i] = coded[i];
        raw[2 * i + 1] = coded[half + i];
    }
    if (size % 2) raw[size - 1] = coded[half - 1];
}
