#pragma once
// Portable float maps (.pfm), written here because the OpenImageIO of Debian 12
// reads them but has no writer. One channel ("Pf") or three ("PF"), 32-bit
// floats, little-endian, rows stored bottom to top.
#include <string>

bool IsPfmPath(const std::string& path);

// `pixels` holds `channels` floats per pixel, rows top to bottom. Returns an
// empty string, or the system's reason for failing.
std::string WritePfm(const std::string& path, int width, int height, int channels, const float* pixels);
