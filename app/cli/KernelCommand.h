#pragma once
// `lumivane kernel`: draws the kernels the settings would filter red, green and
// blue with, side by side in the colour channels of one image. The loaded tool
// draws them: it renders one bright pixel on a black frame (Edges set to Black),
// whose response is each colour's kernel, and the program keeps the kernels'
// extent, each channel scaled to a peak magnitude of 1.
#include "app/session/Settings.h"
#include "app/session/ToolConsole.h"
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

// The drawing itself, from `tool` in `doc` at `frame`, for a width x height
// frame: the tool's Edges control is set to Black on the way. `console` must be
// listening to `doc`. Returns null when the render was interrupted; throws a
// render ProgramError with the tool's console line when it set no output, and
// one naming the limit, before allocating, when the frame's point image and
// response alone would pass the memory limit.
Ref<Image> DrawKernels(FusionDoc& doc, Operator& tool, const FrameConsole& console, int width, int height,
                       TimeStamp frame);
