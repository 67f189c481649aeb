#pragma once
// Image files <-> host images. Plain OpenEXR frames (ExrFiles.h) are read and
// written through OpenEXR itself; every other file, and OpenEXR that uses
// what that path does not take, goes through OpenImageIO (ImageCodec.h).
// Both follow these rules:
//
// Channels. Red, green and blue are the channels named R, G and B; failing
// those, a channel named Y (or the only channel that is not alpha) is grey and
// fills red, green and blue alike; failing that, the first three channels that
// are not alpha are red, green and blue. Alpha is the file's alpha channel (or
// one named A); without one, alpha is 1. Every other channel (a depth channel
// Z, say) becomes an extra channel of the host image, which the tool passes
// through. Writing an image "like" a file's description puts the channels back
// in that file's layout: grey is written from red, and a file without alpha
// gets none.
//
// Depth. The host image's depth follows the file's format: 8-bit integers
// IMDP_Int8, other integers IMDP_Int16, half IMDP_Float16, anything else
// IMDP_Float32. Writing uses the image's depth (each channel's own format when
// that is still the file's), unless a depth is asked for.
//
// Pixel aspect. "PixelAspectRatio" becomes XScale (YScale 1), and is written
// back from XScale / YScale.
#include "app/ImageCodec.h"

#include <optional>
#include <string>
#include <vector>

// Reads the first subimage. Throws a file ProgramError naming the file, with
// the reader's own reason.
ImageFile ReadImageFile(const std::string& path);

// What the file's header says, before any pixel is read. Throws what
// ReadImageFile throws for a file it cannot open, or one too short for the
// pixels its header declares (DeclaredPixels.h).
FileHeader ReadImageHeader(const std::string& path);

// The file's windows and channel count from its header alone; nullopt when it
// cannot be opened.
std::optional<std::pair<FileLayout, int>> PeekImageFile(const std::string& path);

// Throws the file ProgramError ReadImageFile would when `path` is not there,
// is a folder, or has no header that can be read; reads no pixels.
void CheckImageHeader(const std::string& path);

// Writes `image` laid out like `like` (a default layout: R, G, B, A and the
// extra channels at the image's depth), with its metadata, to a temporary file
// beside `path` that is renamed to `path` once complete. `depth` (an
// ImageDepth) overrides the image's own. The format follows the extension.
// Returns warnings naming `path` and what its format could not hold: channels
// left out, or a data type other than `depth`. Throws a file ProgramError
// naming the file, with the writer's reason; no file is left behind then.
// `compression`, when not empty, replaces the compression `like` names.
std::vector<std::string> WriteImageFile(const std::string& path, const Image& image, const FileLayout& like = {},
                                        std::optional<int> depth = std::nullopt, const std::string& compression = {});

// Whether the format `path` names stores `depth` (an ImageDepth) as floating
// point: OpenEXR, Radiance HDR and PFM always do, TIFF and DPX when asked.
bool HoldsFloat(const std::string& path, int depth);

// Throws a file ProgramError when the folder `path` would be written into does
// not exist or cannot be written, so a frame fails before it is rendered.
void CheckOutputFolder(const std::string& path);

// An OpenEXR compression for `output`: none, rle, zips, zip, piz, pxr24, b44,
// b44a, dwaa or dwab, the zlib ones with an optional ":LEVEL" from 1 to 9 and
// the DWA ones with an optional ":QUALITY" above 0. Returns it lower-cased as
// the writer takes it; throws a usage ProgramError naming the value, or the
// output when it is not an OpenEXR file.
std::string ParseCompression(const std::string& text, const std::string& output);

// "8", "16", "half" or "float" as an ImageDepth; throws a usage ProgramError.
int ParseDepth(const std::string& text);
inline const char* DepthName(int depth)
{
    switch (depth) {
    case IMDP_Int8: return "8";
    case IMDP_Int16: return "16";
    case IMDP_Float16: return "half";
    default: return "float";
    }
}
