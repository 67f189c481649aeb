#pragma once
// Plain OpenEXR frames through OpenEXR itself, without OpenImageIO: a render of
// OpenEXR frames then never loads it (ImageCodec.h), and the pixels go straight
// between the file and the host image's pixel records, with no buffer between.
//
// Taken here: a single-part scanline file of half or float channels named R,
// G and B, or Y, with A and Z or without. The layout, pixels and names are the
// ones OpenImageIO gives the same file (ImageFiles.h); the whole header is kept
// and written back, attributes OpenImageIO does not know included. Anything
// else (tiles, several parts, deep data, layers and other channels, integer
// channels) is left to OpenImageIO.
#include "app/ImageCodec.h"

#include <optional>
#include <string>
#include <utility>

// Nullopt when `path` is not a file taken here. Throws a file ProgramError
// naming the file, with OpenEXR's reason, when it is one but cannot be read.
std::optional<ImageFile> ReadExrFile(const std::string& path);

// The header of a file taken here; nullopt for other files. Throws as
// ReadExrFile does, and for a file too short for the pixels it declares.
std::optional<FileHeader> ReadExrHeader(const std::string& path);

// Whether an OpenEXR output like `like` at `depth` (an ImageDepth) is written here.
bool WritesExr(const FileLayout& like, int depth);

// Writes `temp` as ImageFiles.h says of writing; returns OpenEXR's reason when
// it fails, else an empty string.
std::string WriteExrFile(const std::string& temp, const Image& image, const FileLayout& like, std::optional<int> depth,
                         const std::string& compression);
