#pragma once
// The pictures the page shows: 8-bit sRGB PNGs or JPEGs of linear images.
#include "host/Image.h"

#include <string>

enum class DisplayFormat { Png, Jpeg };

// An 8-bit sRGB picture of the image's colour, scaled by 2^exposure; with
// `magnitude`, absolute values, so a kernel's negative lobes show too. Values
// are clipped to 0..1 before the sRGB curve; NaN shows as 0. The image's
// values are not touched. A PNG holds those codes exactly; a JPEG (quality
// 95, no chroma subsampling) is several times quicker to make and to move,
// and is for the eye only.
std::string DisplayPicture(const Image& image, double exposure, bool magnitude, DisplayFormat format);
