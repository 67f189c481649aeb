#pragma once
// Telling a damaged or cut-short image file from a whole one after its pixels
// were read. Some readers fill what a short file lacks and report success:
// JPEG and TIFF note the damage as an error they do not return; DPX fails
// with no reason at all.
//
// What is caught: any error the reader noted during the read, and, before it,
// a file shorter than its declared pixels need at its format's highest
// compression (DeclaredPixels.h), which is named as cut short with both sizes.
// What is not: a compressed file cut where its decoder finds nothing amiss,
// and a file whose damage keeps its length (bytes overwritten, not removed).
#include <OpenImageIO/imageio.h>

#include <string>

// Throws a file ProgramError naming `path` when the file opened as `in` is too
// short for the pixels its header declares; called before they are allocated.
void CheckFileLength(const std::string& path, const OIIO::ImageInput& in);

// Throws a file ProgramError naming `path` when the read of `in` (which
// returned `read`) failed or left the reader with an error.
void CheckWholeRead(const std::string& path, OIIO::ImageInput& in, bool read);
