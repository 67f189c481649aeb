#pragma once
// `lumivane kernel`: draws the kernels the settings would filter red, green and
// blue with, side by side in the colour channels of one image. The loaded tool
// draws them: it renders one bright pixel on a black frame (Edges set to Black),
// whose response is each colour's kernel, and the program keeps the kernels'
// extent, each channel scaled to a peak magnitude of 1.
#include "app/Settings.h"
#include "app/ToolConsole.h"
#include "host/FusionDoc.h"
#include "host/Image.h"

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

// The drawing of `tool`'s kernels for a `width` x `height` frame at `time`. It
// sets the tool's Edges to Black and its source to the point image, so pass a
// tool of its own; the tool's failure line from `console` when it sets no output.
// Null when interrupted.
Ref<Image> DrawKernels(FusionDoc& doc, Operator& tool, int width, int height, TimeStamp time,
                       const FrameConsole& console);
