#pragma once
// A header can declare any number of pixels: a hundred bytes of PNG may claim
// 20000 x 20000. Reading them would allocate gigabytes before the decoder found
// the data missing, so a file too short to hold what its header declares, even
// at the highest compression its format can reach, is refused from its length
// alone, before any pixel buffer exists. The bounds, per format:
//   stored without compression (TIFF, DPX, PNM and PFM, OpenEXR "none"): every
//     sample's bits;
//   deflate (PNG, TIFF "zip", OpenEXR ZIP and ZIPS): 1032 bytes out per byte in
//     at most, a 258-byte match coded in two bits being the most it can say;
//     PNG's rows count with their filter byte, at the file's own bit depth;
//   LZW (TIFF): under 4096:1 (12-bit codes, each for at most one byte more
//     than the code before it, the table cleared after 4094 of them);
//   PackBits (TIFF): a run of 128 bytes in 2;
//   JPEG with Huffman coding (baseline, extended, progressive, lossless): at
//     least one bit for every 8x8 block of every component (its DC code);
//   OpenEXR: every chunk (a block of lines, or a tile of the full-resolution
//     level) has an 8-byte entry in the offset table and an 8-byte header.
// What has no such bound (arithmetic-coded JPEG, Radiance HDR, TIFF with JPEG
// or fax coding, OpenEXR's PIZ, PXR24, B44 and DWA data) is left to the memory limit.
#include <cstdint>
#include <string>

// The samples a file declares, and how they are stored.
struct DeclaredPixels {
    std::uint64_t width = 0, height = 0, channels = 0;
    double bitsPerSample = 0;
    std::uint64_t Bytes() const;  // uncompressed, without padding
};

// The fewest bytes `raw` bytes take once deflated.
std::uint64_t LeastDeflateBytes(std::uint64_t raw);
// The fewest bytes of a TIFF file of `pixels` with `compression` (OpenImageIO's name).
std::uint64_t LeastTiffBytes(const DeclaredPixels& pixels, const std::string& compression);
// The fewest bytes of the PNG or JPEG file at `path`, from its own header; 0
// when it has none this can read, or a coding with no bound.
std::uint64_t LeastPngBytes(const std::string& path);
std::uint64_t LeastJpegBytes(const std::string& path);
// The fewest bytes of an OpenEXR part of `pixels` (`bitsPerSample` the
// average over its channels) with `compression` (none, rle, zips, zip, piz,
// pxr24, b44, b44a, dwaa, dwab), in tiles of `tileWidth` x `tileHeight`
// when these are above 0, else in blocks of lines.
std::uint64_t LeastExrBytes(const DeclaredPixels& pixels, const std::string& compression, int tileWidth,
                            int tileHeight);

// What needs LeastExrBytes, for CheckFileHolds' message.
std::string ExrNeeds(const DeclaredPixels& pixels, const std::string& compression);

// Throws a file ProgramError naming `path` when the file has fewer than
// `least` bytes: "the file is cut short: it has N bytes, but `what` need at least M".
void CheckFileHolds(const std::string& path, std::uint64_t least, const std::string& what);
