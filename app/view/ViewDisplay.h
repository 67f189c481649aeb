#pragma once
// The pictures the page shows: 8-bit sRGB PNGs or JPEGs of linear images.
#include "app/files/ImageCodec.h"
#include "host/Image.h"

#include <string>

enum class DisplayFormat { Png, Jpeg };

// What of an image the page shows, and how, besides the exposure.
struct DisplayLook {
    // 'r', 'g', 'b', 'a', or 'y' for the luminance (Rec. 709 weights of the
    // linear red, green and blue), shown as grey; 0 for the colour.
    char channel = 0;
    double gamma = 1.0;   // on the display's values, each raised to 1/gamma
    std::string layer;    // a layer chosen with --layers; empty for the frame's RGBA
    std::string display;  // a display of the colour configuration, with `view`; empty for sRGB
    std::string view;
};

// An 8-bit sRGB picture of the image's colour, scaled by 2^exposure; with
// `magnitude`, absolute values, so a kernel's negative lobes show too. Values
// are clipped to 0..1 before the sRGB curve; NaN shows as 0. The image's
// values are not touched. A PNG holds those codes exactly; a JPEG (quality
// 95, no chroma subsampling) is several times quicker to make and to move,
// and is for the eye only. With `toDisplay` (a display and view), the scaled
// values go through it in place of the sRGB curve, then are clipped. The
// look's channel and gamma apply either way.
std::string DisplayPicture(const Image& image, double exposure, bool magnitude, DisplayFormat format,
                           const DisplayLook& look = {}, const ColourProcessor* toDisplay = nullptr);
