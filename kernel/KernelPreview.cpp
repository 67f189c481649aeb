#include "kernel/KernelPreview.h"

#include "host/Image.h"
#include "host/Object.h"
#include "host/Tags.h"
#include "kernel/KernelShapes.h"
#include "kernel/PlaceKernel.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr int kColours = 3;  // red, green, blue: the kernel channel indices 0..2

// One colour's kernel, read out and scaled to a peak magnitude of 1.
struct ScaledKernel {
    int width = 0;
    int height = 0;
    std::vector<float> values;  // row-major
};

ScaledKernel ReadScaled(Image* kernel, int channel)
{
    ScaledKernel out;
    out.width = kernel->Width;
    out.height = kernel->Height;
    out.values.reserve(static_cast<std::size_t>(out.width) * out.height);
    PixPtr in(kernel);
    FltPixel pixel;
    double peak = 0.0;
    for (int y = 0; y < out.height; ++y) {
        in.GotoXY(0, y);
        for (int x = 0; x < out.width; ++x) {
            in.GetNextPixel(pixel);
            const float v = KernelComponent(pixel, channel);
            peak = std::max(peak, std::fabs(static_cast<double>(v)));
            out.values.push_back(v);
        }
    }
    if (peak > 0.0)
        for (float& v : out.values) v = static_cast<float>(v / peak);
    return out;
}

}  // namespace

Image* MakeKernelPreview(const filter_interface& params, const double sizeX[3], const double sizeY[3])
{
    ScaledKernel kernels[kColours];
    int width = 0;
    int height = 0;
    for (int c = 0; c < kColours; ++c) {
        const Ref<Image> kernel(MakeChannelKernel(params, sizeX[c], sizeY[c]));
        kernels[c] = ReadScaled(kernel.get(), c);
        width = std::max(width, kernels[c].width);
        height = std::max(height, kernels[c].height);
    }

    Image* preview = NewImage({{IMG_Width, width}, {IMG_Height, height}, {IMG_Depth, IMDP_Float32}, {TAG_DONE}});
    PixPtr out(preview);
    FltPixel pixel;
    pixel.A = 1.0f;
    for (int y = 0; y < height; ++y) {
        out.GotoXY(0, y);
        for (int x = 0; x < width; ++x) {
            float colour[kColours] = {0.0f, 0.0f, 0.0f};
            for (int c = 0; c < kColours; ++c) {
                const ScaledKernel& k = kernels[c];
                // Kernel sides are odd, so the margins are whole and the centres meet.
                const int kx = x - (width - k.width) / 2;
                const int ky = y - (height - k.height) / 2;
                if (kx >= 0 && kx < k.width && ky >= 0 && ky < k.height)
                    colour[c] = k.values[static_cast<std::size_t>(ky) * k.width + kx];
            }
            pixel.R = colour[0];
            pixel.G = colour[1];
            pixel.B = colour[2];
            out.PutNextPixel(pixel);
        }
    }
    return preview;
}
