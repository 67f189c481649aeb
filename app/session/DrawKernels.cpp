#include "app/session/DrawKernels.h"

#include "app/files/ExitCodes.h"
#include "app/files/Interrupt.h"
#include "app/session/Settings.h"
#include "app/session/ToolNames.h"
#include "host/EngineSettings.h"
#include "host/Image.h"
#include "util/Text.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kColours = 3;
// Samples below this fraction of their channel's peak are the transforms'
// rounding, not the kernel: they are drawn black and do not count to its extent.
constexpr double kNoise = 1e-6;

// The response to a point at the frame's centre, cropped to the largest
// kernel's extent (odd sides, centred on the point), each channel divided by its
// peak magnitude; alpha is 1.
Ref<Image> Drawing(const Image& response, int cx, int cy)
{
    double peak[kColours] = {};
    for (int y = 0; y < response.Height; ++y)
        for (int x = 0; x < response.Width; ++x)
            for (int c = 0; c < kColours; ++c)
                peak[c] = std::max(peak[c], std::fabs(double{response.Pixel(x, y)[kRecordPosition[c]]}));
    auto kept = [&](int x, int y, int c) {
        const double v = response.Pixel(x, y)[kRecordPosition[c]];
        return peak[c] > 0.0 && std::fabs(v) >= kNoise * peak[c];
    };
    int reachX = 0, reachY = 0;
    for (int y = 0; y < response.Height; ++y)
        for (int x = 0; x < response.Width; ++x)
            for (int c = 0; c < kColours; ++c)
                if (kept(x, y, c)) {
                    reachX = std::max(reachX, std::abs(x - cx));
                    reachY = std::max(reachY, std::abs(y - cy));
                }
    Ref<Image> drawing(new Image(2 * reachX + 1, 2 * reachY + 1));
    for (int y = 0; y < drawing->Height; ++y)
        for (int x = 0; x < drawing->Width; ++x) {
            const int sx = cx - reachX + x, sy = cy - reachY + y;
            const bool inside = sx >= 0 && sx < response.Width && sy >= 0 && sy < response.Height;
            float* out = drawing->Pixel(x, y);
            for (int c = 0; c < kColours; ++c)
                out[kRecordPosition[c]] =
                    inside && kept(sx, sy, c)
                        ? static_cast<float>(response.Pixel(sx, sy)[kRecordPosition[c]] / peak[c])
                        : 0.0f;
            out[kRecordPosition[3]] = 1.0f;
        }
    return drawing;
}

}  // namespace

Ref<Image> DrawKernels(FusionDoc& doc, Operator& tool, const FrameConsole& console, int width, int height,
                       TimeStamp frame, const std::atomic<bool>* cancel)
{
    // With black edges the point's response is the kernel alone.
    ApplySettings(tool, {{"Edges", "Black", "drawing the kernels"}}, frame);
    // The point image and the response the tool makes of it, each a float RGBA
    // frame, are the command's own part of the memory; the tool checks the rest
    // of the frame before it allocates it.
    const double frameBytes = static_cast<double>(width) * height * 4 * sizeof(float);
    if (2 * frameBytes > static_cast<double>(MemoryLimit()))
        throw RenderError("cannot draw the kernels of a " + std::to_string(width) + "x" + std::to_string(height) +
                          " frame: its point image and response need about " +
                          FormatMemorySize(static_cast<std::uint64_t>(std::min(2 * frameBytes, 1.8e19))) + ", but " +
                          MemoryLimitSource() + " is " + FormatMemorySize(MemoryLimit()));
    Ref<Image> point(new Image(width, height));
    const int cx = width / 2, cy = height / 2;
    for (int c = 0; c < kColours; ++c) point->Pixel(cx, cy)[kRecordPosition[c]] = 1.0f;
    Input* source = tool.FindInput(kSourceInput);
    if (!source) throw FileError(std::string("the tool has no \"") + kSourceInput + "\" input");
    source->SetSource(point.get(), frame);
    Ref<Parameter> result;
    {
        const InterruptsWait looked;  // right below
        result = doc.Render(&tool, frame, cancel);
    }
    source->SetSource(nullptr, frame);
    if (InterruptRequested() || (cancel && cancel->load(std::memory_order_relaxed))) return {};
    const auto* response = dynamic_cast<const Image*>(result.get());
    if (!response) throw RenderError("cannot make the kernels: " + console.Why());
    return Drawing(*response, cx, cy);
}
