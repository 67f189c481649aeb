#pragma once
// `lumivane kernel`: the kernels the settings would filter red, green and blue
// with, side by side in the colour channels of one image (DrawKernels.h).
#include "app/session/Settings.h"

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

namespace CLI {
class App;
}

CLI::App* AddKernelCommand(CLI::App& app, KernelOptions& options);
int RunKernel(const KernelOptions& options);
