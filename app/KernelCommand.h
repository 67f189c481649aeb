#pragma once
// `lumivane kernel`: draws the kernels the settings would filter red, green and
// blue with, side by side in the colour channels of one image. The loaded tool
// draws them: it renders one bright pixel on a black frame (Edges set to Black),
// whose response is each colour's kernel, and the program keeps the kernels'
// extent, each channel scaled to a peak magnitude of 1.
#include "app/Settings.h"

#include <string>
#include <vector>

struct KernelOptions {
    std::string output;
    std::string plugins;
    std::vector<Setting> settings;  // in command-line order
    int width = 1920;   // of the image the sizes are relative to
    int height = 1080;
    int frame = 0;      // the time the settings are read at
    std::string depth;  // empty: float
};

int RunKernel(const KernelOptions& options);
