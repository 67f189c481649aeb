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

const char* const kColourNames[3] = {"red", "green", "blue"};

}  // namespace

void Lumivane2::ExtendEdges(FrequencyArray& array, Image* kernel)
{
    ::ExtendEdges(array, sourceImage->Width, sourceImage->Height, kernel->Width, kernel->Height, edgeType);
}

void Lumivane2::ProcessChunk(Request* /*req*/, std::int32_t chunk)
{
    Image* kernel = nullptr;
    try {
        const std::int32_t c = chunk % 3;
        const double sx = blurSizeX[c], sy = blurSizeY[c];
        if (kernelImage) {
            if (!(sx > 0.0 && sy > 0.0))
                throw std::runtime_error(std::string("the ") + kColourNames[c] + " blur size is not above 0");
            kernel = kernelImage->ResizeOfImage({{RSZ_Width, OddKernelSize(sx)},
                                                 {RSZ_Height, OddKernelSize(sy)},
                                                 {RSZ_Filter, RSZ_FILTER_AREA},
                                                 {TAG_DONE}});
        } else {
            kernel = MakeChannelKernel(*this, sx, sy);
        }

        const std::int32_t wt = TransformSide(std::int64_t{sourceImage->Width} + kernel->Width, "width");
        const std::int32_t ht = TransformSide(std::int64_t{sourceImage->Height} + kernel->Height, "height");

        FrequencyArray k, image;
        k.Create(wt, ht);
        PlaceKernel(k, kernel, c);
        if (!k.Forward()) throw std::runtime_error("the forward transform of the kernel failed");
        image.Create(wt, ht);
        ReadStorageChannel(image, chunk);
        ExtendEdges(image, kernel);
        if (!image.Forward()) throw std::runtime_error("the forward transform of the image failed");
        kernel->Recycle();
        kernel = nullptr;

        if (convolve) MultiplySpectra(image, k);
        else WienerDivideSpectra(image, k, wienerParam);
        if (!image.Backward()) throw std::runtime_error("the inverse transform of the image failed");
        WriteStorageChannel(image, chunk);
    } catch (const std::exception& e) {
        if (kernel) kernel->Recycle();
        ReportChunkError(e.what());
    }
}

void Lumivane2::ReportChunkError(const std::string& message)
{
    boost::mutex::scoped_lock lock(*errorMutex);
    errorFlag = true;
    errorMessage = message;
}
