#include "kernel/PlaceKernel.h"

#include "fft/FrequencyArray.h"
#include "host/Image.h"

#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace {

constexpr const char* kChannelNames[] = {"red", "green", "blue", "alpha"};

void CheckChannel(std::int32_t channel)
{
    if (channel < 0 || channel > 3)
        throw std::runtime_error("Kernel channel " + std::to_string(channel) +
                                 " is not one of 0 red, 1 green, 2 blue, 3 alpha");
}

std::string BlackMessage(std::int32_t channel)
{
    return std::string("The kernel is black in the ") + kChannelNames[channel] + " channel: it has no weight to normalise";
}

std::string NonFiniteMessage(float v, std::int32_t channel, std::int32_t x, std::int32_t y)
{
    return std::string("The kernel image has ") + (std::isnan(v) ? "NaN" : v > 0 ? "+infinity" : "-infinity") +
           " in the " + kChannelNames[channel] + " channel at pixel " + std::to_string(x) + ", " + std::to_string(y) +
           ": every output pixel of that channel would be lost; clean the kernel image first";
}

std::string SizeText(std::int32_t width, std::int32_t height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

float KernelComponent(const FltPixel& pixel, std::int32_t channel)
{
    switch (channel) {
    case 0: return pixel.R;
    case 1: return pixel.G;
    case 2: return pixel.B;
    case 3: return pixel.A;
    default: CheckChannel(channel); return 0.0f;
    }
}

void PlaceKernel(FrequencyArray& destination, Image* kernel, std::int32_t channel)
{
    if (!kernel) throw std::runtime_error("There is no kernel image to place");
    CheckChannel(channel);
    const std::int32_t width = destination.width;
    const std::int32_t height = destination.height;
    const std::int32_t kernelWidth = kernel->Width;
    const std::int32_t kernelHeight = kernel->Height;
    if (kernelWidth < 1 || kernelHeight < 1)
        throw std::runtime_error("The kernel image is " + SizeText(kernelWidth, kernelHeight) +
                                 " pixels: it has no weight to normalise");
    if (kernelWidth > width || kernelHeight > height)
        throw std::runtime_error("The " + SizeText(kernelWidth, kernelHeight) + " kernel does not fit the " +
                                 SizeText(width, height) + " frequency array");

    const std::int32_t offsetX = width - kernelWidth / 2;
    const std::int32_t offsetY = height - kernelHeight / 2;
    const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(width) + 2;
    double positive = 0.0;
    double negative = 0.0;
    PixPtr in(kernel);
    FltPixel pixel;
    for (std::int32_t y = 0; y < kernelHeight; ++y) {
        in.GotoXY(0, y);
        double* row = destination.data + ((y + offsetY) % height) * stride;
        for (std::int32_t x = 0; x < kernelWidth; ++x) {
            in.GetNextPixel(pixel);
            const float v = KernelComponent(pixel, channel);
            if (!std::isfinite(v)) throw std::runtime_error(NonFiniteMessage(v, channel, x, y));
            if (v >= 0.0f) positive += static_cast<double>(v);
            else negative += -static_cast<double>(v);
            row[(x + offsetX) % width] = static_cast<double>(v);
        }
    }

    // Not the plain sum: a Laplacian's lobes nearly cancel, so its positive lobe
    // is what sums to 1.
    const double normaliser = positive > negative ? positive : negative;
    if (normaliser == 0.0)
        throw std::runtime_error(BlackMessage(channel));
    // Only the rows the kernel landed on: everywhere else the array is zero, and
    // stays so scaled.
    const double scale = 1.0 / normaliser;
    const std::int32_t rows = kernelHeight < height ? kernelHeight : height;
    for (std::int32_t y = 0; y < rows; ++y) {
        double* row = destination.data + ((y + offsetY) % height) * stride;
        for (std::ptrdiff_t x = 0; x < stride; ++x) row[x] *= scale;
    }
}

void CheckKernelImage(Image* kernel)
{
    constexpr std::int32_t kColours = 3;
    bool weighted[kColours] = {};
    PixPtr in(kernel);
    FltPixel pixel;
    for (std::int32_t y = 0; y < kernel->Height; ++y) {
        in.GotoXY(0, y);
        for (std::int32_t x = 0; x < kernel->Width; ++x) {
            in.GetNextPixel(pixel);
            for (std::int32_t c = 0; c < kColours; ++c) {
                const float v = KernelComponent(pixel, c);
                if (!std::isfinite(v)) throw std::runtime_error(NonFiniteMessage(v, c, x, y));
                weighted[c] = weighted[c] || v != 0.0f;
            }
        }
    }
    for (std::int32_t c = 0; c < kColours; ++c)
        if (!weighted[c]) throw std::runtime_error(BlackMessage(c));
}
