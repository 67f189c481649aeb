#include "app/files/ExrZip.h"

#include <libdeflate.h>

#include <new>
#include <stdexcept>
#include <string>

ZipCoder::ZipCoder(int level) : m_level(level) {}

ZipCoder::~ZipCoder()
{
    libdeflate_free_compressor(m_compressor);
    libdeflate_free_decompressor(m_decompressor);
}

unsigned char* ZipCoder::Scratch(std::size_t size)
{
    if (m_scratch.size() < size) m_scratch.resize(size);
    return m_scratch.data();
}

bool ZipCoder::Pack(const unsigned char* raw, std::size_t size, std::vector<unsigned char>& packed)
{
    if (size < 2) return false;
    if (!m_compressor && !(m_compressor = libdeflate_alloc_compressor(m_level))) throw std::bad_alloc();
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
    const std::size_t n = libdeflate_zlib_compress(m_compressor, coded, size, packed.data(), size - 1);
    packed.resize(n);
    return n > 0;
}

void ZipCoder::Unpack(const unsigned char* packed, std::size_t packedSize, unsigned char* raw, std::size_t size)
{
    if (!m_decompressor && !(m_decompressor = libdeflate_alloc_decompressor())) throw std::bad_alloc();
    unsigned char* coded = Scratch(size);
    std::size_t got = 0;
    const libdeflate_result result = libdeflate_zlib_decompress(m_decompressor, packed, packedSize, coded, size, &got);
    const std::string lines = std::to_string(size) + " bytes its lines hold";
    if (result == LIBDEFLATE_INSUFFICIENT_SPACE)
        throw std::runtime_error("a ZIP chunk decompresses to more than the " + lines);
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
