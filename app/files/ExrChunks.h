#pragma once
// Single-part scanline OpenEXR files stored uncompressed, ZIP or ZIPS, read and
// written a chunk at a time through OpenEXR's core library, straight between
// the file's lines and a host image's pixel records. The chunks are coded here
// (ExrZip.h) on the host's worker pool; OpenEXR's scanline decoder, which
// assembles every float from its bytes, is not in the way. A line of a chunk
// holds each channel in turn, in the file's (alphabetical) channel order, as
// little-endian halfs or floats; halfs are widened exactly and rounded to
// nearest even on writing, as OpenEXR rounds.
#include "host/Image.h"

#include <ImfHeader.h>

#include <functional>
#include <memory>
#include <string>

// Where the file's channel `name` lies in a pixel record, or -1 when the image
// has none (such a channel is written as zeros, and skipped on reading).
using RecordOfChannel = std::function<int(const char* name)>;

class ExrChunkReader {
public:
    // Null when the file is not read here (tiles, several parts, other
    // compressions: OpenEXR's own decoders read those). Throws
    // std::runtime_error with OpenEXR's words when its header cannot be read.
    static std::unique_ptr<ExrChunkReader> Open(const std::string& path);
    ~ExrChunkReader();
    ExrChunkReader(const ExrChunkReader&) = delete;
    ExrChunkReader& operator=(const ExrChunkReader&) = delete;

    // The header as OpenEXR's C++ library reads it (ExrHeader.h).
    Imf::Header Header() const;
    // Decodes every line into `image`, which is as large as the data window;
    // alpha is 1 where the file has none. Throws std::runtime_error naming the
    // file and what is wrong with a chunk that cannot be read.
    void Decode(Image& image, const RecordOfChannel& recordOf) const;

private:
    struct File;
    explicit ExrChunkReader(std::unique_ptr<File> file);
    std::unique_ptr<File> m_file;
};

// Whether a file with `header` is written here: one of those codecs, lines in
// increasing order. The core library takes chunks top down only, and OpenEXR's
// C++ reader finds the chunks of a decreasing file only when they lie bottom up;
// OpenEXR's own writer writes those.
bool WritesChunks(const Imf::Header& header);

// Writes `image` to `temp` with `header` (all of its attributes; the data
// window is the image), ZIP and ZIPS chunks compressed at `zipLevel`. Returns
// why the file could not be written, or an empty string.
std::string WriteExrChunks(const std::string& temp, const Imf::Header& header, const Image& image,
                           const RecordOfChannel& recordOf, int zipLevel);
