// One chunk of a render: one plane filtered with one colour's kernel in the
// frequency domain.
#include "frequency/EdgeExtension.h"
#include "frequency/FrequencyArray.h"
#include "frequency/SpectrumOps.h"
#include "host/Tags.h"
#include "kernel/KernelShapes.h"
#include "kernel/KernelSize.h"
#include "kernel/PlaceKernel.h"
#include "tool/Lumivane2.h"

#include <stdexcept>
#include <string>

namespace {

constexpr std::int32_t kLargestTransformSide = 1 << 30;
constexpr const char* kColourNames[3] = {"red", "green", "blue"};
constexpr int kRecordPosition[3] = {2, 1, 0};  // red, green, blue in the host's B, G, R, A record

// The smallest power of two strictly greater than `n`. Strictly, so that the
// image and the kernel's reach on both sides never meet in the periodic array.
std::int32_t TransformSide(std::int64_t n, const char* axis)
{
    if (n >= kLargestTransformSide)
        throw std::runtime_error(std::string("the transform ") + axis + " for image plus kernel of " +
                                 std::to_string(n) + " pixels would pass the largest side of " +
                                 std::to_string(kLargestTransformSide));
    std::int32_t side = 1;
    while (side <= n) side *= 2;
    return side;
}

bool SameComponents(const Image& img, int a, int b)
{
    for (int y = 0; y < img.Height; ++y)
        for (int x = 0; x < img.Width; ++x) {
            const float* p = img.Pixel(x, y);
            if (p[kRecordPosition[a]] != p[kRecordPosition[b]]) return false;
        }
    return true;
}

}  // namespace

void Lumivane2::ExtendEdges(FrequencyArray& array, std::int32_t kernelWidth, std::int32_t kernelHeight)
{
    ::ExtendEdges(array, sourceImage->Width, sourceImage->Height, kernelWidth, kernelHeight, edgeType);
}

void Lumivane2::ShareKernels()
{
    int owner[3] = {0, 1, 2};
    for (int c = 1; c < 3; ++c)
        for (int o = 0; o < c; ++o)
            if (owner[o] == o && blurSizeX[c] == blurSizeX[o] && blurSizeY[c] == blurSizeY[o] &&
                (!kernelImage || SameComponents(*kernelImage, c, o))) {
                owner[c] = o;
                break;
            }
    kernelSpectra.Reset(owner);
}

Image* Lumivane2::ObtainKernel(std::int32_t colour) const
{
    const double sx = blurSizeX[colour], sy = blurSizeY[colour];
    if (!kernelImage) return MakeChannelKernel(*this, sx, sy);
    return kernelImage->ResizeOfImage(
        {{RSZ_Width, OddKernelSize(sx)}, {RSZ_Height, OddKernelSize(sy)}, {RSZ_Filter, RSZ_FILTER_AREA}, {TAG_DONE}});
}

void Lumivane2::ProcessChunk(Request* /*req*/, std::int32_t chunk)
{
    bool filtered = false;
    try {
        if (chunk > 3 && kernelSpectra.AlphaShared()) {
            // The first alpha chunk has reported its own failure, if it failed.
            if (kernelSpectra.WaitForAlpha()) CopyStorageChannel(3, chunk);
            return;
        }
        const std::int32_t c = chunk % 3;
        const double sx = blurSizeX[c], sy = blurSizeY[c];
        if (!(sx > 0.0 && sy > 0.0))
            throw std::runtime_error(std::string("the ") + kColourNames[c] +
                                     " blur size is not above 0 pixels, so there is no kernel to filter with");
        const std::int32_t kw = OddKernelSize(sx), kh = OddKernelSize(sy);
        const std::int32_t wt = TransformSide(std::int64_t{sourceImage->Width} + kw, "width");
        const std::int32_t ht = TransformSide(std::int64_t{sourceImage->Height} + kh, "height");

        FrequencyArray image;
        image.Create(wt, ht);
        ReadStorageChannel(image, chunk);
        ExtendEdges(image, kw, kh);
        if (!image.Forward()) throw std::runtime_error("the forward transform of the image failed");

        const FrequencyArray& k = kernelSpectra.Get(c, [&](FrequencyArray& spectrum) {
            Ref<Image> kernel(ObtainKernel(c));
            spectrum.Create(wt, ht);
            PlaceKernel(spectrum, kernel.get(), c);
            if (!spectrum.Forward()) throw std::runtime_error("the forward transform of the kernel failed");
        });

        if (convolve) MultiplySpectra(image, k);
        else WienerDivideSpectra(image, k, wienerParam);
        if (!image.Backward()) throw std::runtime_error("the inverse transform of the image failed");
        WriteStorageChannel(image, chunk);
        filtered = true;
    } catch (const std::exception& e) {
        ReportChunkError(e.what());
    }
    if (chunk == 3) kernelSpectra.AlphaFinished(filtered);
}

void Lumivane2::ReportChunkError(const std::string& message)
{
    boost::mutex::scoped_lock lock(*errorMutex);
    errorFlag = true;
    errorMessage = message;
}
