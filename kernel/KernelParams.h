#pragma once
// What a synthesised kernel looks like: the render-time kernel parameters that
// the generators read. The tool fills them from its controls at the start of
// every render.
#include <cstdint>

class Image;

struct KernelParams {
    Image* modelImage = nullptr;  // new kernel images are made like this image
    std::int32_t kernelStyle = 0;  // 0 Disk, 1 Polygon, 2 Gaussian, 3 Airy Disk, 4 Laplacian
    std::int32_t sideCount = 6;
    double angle = 0.0;  // radians
    double badBokeh = 0.0;
    bool shrinkDisk = false;  // scales the disk radius by 0.6; the tool never sets it
};
