#pragma once
// `lumivane kernel`: writes the kernels the settings would synthesise for red,
// green and blue, side by side in the colour channels of one image. Uses the
// tool's code built into the program rather than a plug-in module.
#include "app/Settings.h"

#include <string>
#include <vector>

struct KernelOptions {
    std::string output;
    std::vector<Setting> settings;  // in command-line order
    int width = 1920;   // of the image the sizes are relative to
    int height = 1080;
    int frame = 0;      // the time the settings are read at
    std::string depth;  // empty: float
};

int RunKernel(const KernelOptions& options);
