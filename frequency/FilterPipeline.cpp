// One chunk of a render: one plane filtered with one colour's kernel in the
// frequency domain.
#include "frequency/EdgeExtension.h"
#include "frequency/FrequencyArray.h"
#include "frequency/SpectrumOps.h"
#include "host/MemoryBudget.h"
#include "host/Tags.h"
#include "host/WorkerPool.h"
#include "kernel/KernelShapes.h"
#include "kernel/KernelSize.h"
#include "kernel/PlaceKernel.h"
#include "tool/Lumivane2.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

constexpr std::int32_t kLargestTransformSide = 1 << 30;
constexpr std::int32_t kChunks = 6;
constexpr const char* kColourNames[3] = {"red", "green", "blue"};
constexpr int kRecordPosition[3] = {2, 1, 0};  // red, green, blue in the host's B, G, R, A record

// LUMIVANE_TRANSFORM_SIZES=smooth picks the smooth sides below instead of powers
// of two; any other value, or none, keeps powers of two.
constexpr const char* kTransformSizesVariable = "LUMIVANE_TRANSFORM_SIZES";
constexpr const char* kSmoothSizes = "smooth";

bool SmoothSizes()
{
    const char* mode = std::getenv(kTransformSizesVariable);
    return mode && std::strcmp(mode, kSmoothSizes) == 0;
}

// Whether n has no prime factor above 7: FFTW transforms such lengths nearly as
// fast, per sample, as powers of two.
bool IsSevenSmooth(std::int64_t n)
{
    for (const std::int64_t p : {2, 3, 5, 7})
        while (n % p == 0) n /= p;
    return n == 1;
}

// The side of the periodic array for image plus kernel `n`: the smallest power of
// two strictly greater than `n`, or in smooth mode the smallest even 7-smooth
// number strictly greater than `n` (never larger than the power of two). Strictly,
// so that the image and the kernel's reach on both sides never meet in the
// periodic array; the cropped result does not depend on how much larger the side
// is. Even, because the in-place half spectrum of an odd width has a different
// row layout.
std::int32_t TransformSide(std::int64_t n, const char* axis)
{
    if (n >= kLargestTransformSide)
        throw std::runtime_error(std::string("the transform ") + axis + " for image plus kernel of " +
                                 std::to_string(n) + " pixels would pass the largest side of " +
                                 std::to_string(kLargestTransformSide));
    std::int32_t side = 1;
    while (side <= n) side *= 2;
    if (SmoothSizes())
        for (std::int64_t even = (n + 2) / 2 * 2; even < side; even += 2)
            if (IsSevenSmooth(even)) return static_cast<std::int32_t>(even);
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

Lumivane2::TransformSize Lumivane2::TransformSizeFor(std::int32_t colour) const
{
    const double sx = blurSizeX[colour], sy = blurSizeY[colour];
    if (!(sx > 0.0 && sy > 0.0))
        throw std::runtime_error(std::string("the ") + kColourNames[colour] + " blur size " + std::to_string(sx) +
                                 " x " + std::to_string(sy) +
                                 " is not above 0 pixels, so there is no kernel to filter with");
    for (double s : {sx, sy})
        if (s >= kLargestTransformSide)
            throw std::runtime_error(std::string("the ") + kColourNames[colour] + " blur size of " +
                                     std::to_string(s) + " pixels passes the largest kernel of " +
                                     std::to_string(kLargestTransformSide) + " pixels");
    TransformSize t;
    t.kernelWidth = OddKernelSize(sx);
    t.kernelHeight = OddKernelSize(sy);
    t.width = TransformSide(std::int64_t{sourceImage->Width} + t.kernelWidth, "width");
    t.height = TransformSide(std::int64_t{sourceImage->Height} + t.kernelHeight, "height");
    return t;
}

void Lumivane2::CheckFrameMemory() const
{
    const auto mib = [](std::uint64_t b) { return FormatMemorySize(b); };
    const std::uint64_t w = static_cast<std::uint64_t>(sourceImage->Width);
    const std::uint64_t h = static_cast<std::uint64_t>(sourceImage->Height);
    const std::uint64_t planes = kChunks * ((w + 3) / 4 * 4) * h * sizeof(float);
    const std::uint64_t output = w * h * static_cast<std::uint64_t>(sourceImage->PixelStride()) * sizeof(float);

    // Each distinct kernel spectrum lives for the whole render; each worker
    // holds one image array while it filters.
    std::uint64_t spectra = 0, largest = 0;
    int distinct = 0;
    for (int c = 0; c < 3; ++c) {
        TransformSize t;
        try {
            t = TransformSizeFor(c);
        } catch (const std::runtime_error&) {
            continue;  // that colour's chunks report it themselves
        }
        const std::uint64_t bytes = (static_cast<std::uint64_t>(t.width) + 2) * t.height * sizeof(double);
        if (bytes > largest) largest = bytes;
        if (kernelSpectra.Owner(c) == c) spectra += bytes, ++distinct;
    }
    const int filtering = kernelSpectra.AlphaShared() ? 4 : kChunks;
    const int inFlight = std::min<int>(filtering, static_cast<int>(WorkerPool::Shared().ThreadCount()));
    const std::uint64_t arrays = spectra + static_cast<std::uint64_t>(inFlight) * largest;
    const std::uint64_t total = planes + output + arrays;
    const std::uint64_t limit = MemoryLimit();
    if (total > limit)
        throw std::runtime_error("the frame needs about " + mib(total) + " (" + std::to_string(kChunks) +
                                 " planes " + mib(planes) + ", " + std::to_string(distinct + inFlight) +
                                 " transform arrays " + mib(arrays) + ", the output image " + mib(output) +
                                 ") but " + MemoryLimitSource() + " is " + mib(limit));
}

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
        const TransformSize size = TransformSizeFor(c);
        FrequencyArray image;
        // The plane fills the top-left corner; only the rest needs zeroing.
        image.CreateForPlane(size.width, size.height, static_cast<std::uint32_t>(channelStore.width),
                             static_cast<std::uint32_t>(channelStore.height));
        ReadStorageChannel(image, chunk);
        ExtendEdges(image, size.kernelWidth, size.kernelHeight);
        // Edge extension writes at most half the kernel plus one row below the
        // image and as many at the far end of the array; every other row is still
        // zero, and only the image's own rows of the result are read back.
        const std::int32_t reach = (size.kernelHeight + 1) / 2 + 1;
        const std::int32_t imageHeight = channelStore.height;
        if (!image.ForwardRows(imageHeight + reach, reach))
            throw std::runtime_error("the forward transform of the image failed");

        const FrequencyArray& k = kernelSpectra.Get(c, [&](FrequencyArray& spectrum) {
            Ref<Image> kernel(ObtainKernel(c));
            spectrum.Create(size.width, size.height);
            PlaceKernel(spectrum, kernel.get(), c);
            // A kernel that other colours share is waited for by their chunks, whose
            // workers would sit idle: its transform is spread over as many threads.
            const unsigned sharers = static_cast<unsigned>(kernelSpectra.Sharers(c));
            spectrum.SetTransformThreads(static_cast<int>(std::min(WorkerPool::Shared().ThreadCount(), sharers)));
            // The kernel sits centred on the origin: its rows are the first and the
            // last few of the array.
            const std::int32_t kernelReach = kernel->Height / 2 + 1;
            if (!spectrum.ForwardRows(kernelReach, kernelReach))
                throw std::runtime_error("the forward transform of the kernel failed");
        });

        if (convolve) MultiplySpectra(image, k);
        else WienerDivideSpectra(image, k, wienerParam);
        if (!image.BackwardRows(imageHeight)) throw std::runtime_error("the inverse transform of the image failed");
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
