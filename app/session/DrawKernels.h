#pragma once
// The kernels the settings would filter red, green and blue with, side by side
// in the colour channels of one image. The loaded tool draws them: it renders
// one bright pixel on a black frame (Edges set to Black), whose response is
// each colour's kernel, and the drawing keeps the kernels' extent, each
// channel scaled to a peak magnitude of 1.
#include "app/session/ToolConsole.h"
#include "host/FusionDoc.h"
#include "host/Image.h"

// The drawing itself, from `tool` in `doc` at `frame`, for a width x height
// frame: the tool's Edges control is set to Black on the way. `console` must be
// listening to `doc`. Returns null when the render was interrupted or `cancel`
// raised (host/RenderCancel.h); throws a
// render ProgramError with the tool's console line when it set no output, and
// one naming the limit, before allocating, when the frame's point image and
// response alone would pass the memory limit.
Ref<Image> DrawKernels(FusionDoc& doc, Operator& tool, const FrameConsole& console, int width, int height,
                       TimeStamp frame, const std::atomic<bool>* cancel = nullptr);
