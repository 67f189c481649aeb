#include "frequency/FilterChunk.h"

#include "fft/EdgeExtension.h"
#include "fft/FrequencyArray.h"
#include "fft/SpectrumOps.h"
#include "frequency/KernelSpectra.h"
#include "frequency/TransformSize.h"
#include "host/Image.h"
#include "host/Tags.h"
#include "image/ChannelStore.h"
#include "image/ImageTransfer.h"
#include "kernel/KernelShapes.h"
#include "kernel/KernelSize.h"
#include "kernel/PlaceKernel.h"
#include "util/Text.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace {

bool SameComponents(const Image& img, int a, int b)
{
    for (int y = 0; y < img.Height; ++y)
        for (int x = 0; x < img.Width; ++x) {
            const float* p = img.Pixel(x, y);
            if (p[kRecordPosition[a]] != p[kRecordPosition[b]]) return false;
        }
    return true;
}

// A transform that returned false: abandoned with its render, or short of memory.
std::runtime_error TransformFailure(const ChunkPlan& plan, const char* what)
{
    if (plan.cancel && plan.cancel->load(std::memory_order_relaxed))
        return std::runtime_error("the render was cancelled");
    return std::runtime_error(std::string("the ") + what + " failed");
}

TransformSize SizeFor(const ChunkPlan& plan, std::int32_t colour)
{
    return TransformSizeFor(plan.imageWidth, plan.imageHeight, plan.sizeX[colour], plan.sizeY[colour], colour,
                            plan.rule);
}

}  // namespace

FrameMemory EstimateFrameMemory(const ChunkPlan& plan, int pixelStride, std::uint64_t host)
{
    FrameMemory m;
    const std::uint64_t w = static_cast<std::uint64_t>(plan.imageWidth);
    const std::uint64_t h = static_cast<std::uint64_t>(plan.imageHeight);
    m.planes = kChunks * ((w + 3) / 4 * 4) * h * sizeof(float);
    m.output = w * h * static_cast<std::uint64_t>(pixelStride) * sizeof(float);
    m.images = m.output;  // the input, as large as the output
    if (plan.kernelImage)
        m.images += static_cast<std::uint64_t>(plan.kernelImage->Width) * static_cast<std::uint64_t>(plan.kernelImage->Height) *
                    static_cast<std::uint64_t>(plan.kernelImage->PixelStride()) * sizeof(float);
    m.host = host;

    // Each distinct kernel spectrum lives for the whole render; each worker
    // holds one image array while it filters.
    std::uint64_t spectra = 0, largest = 0;
    int distinct = 0;
    for (int c = 0; c < 3; ++c) {
        TransformSize t;
        try {
            t = SizeFor(plan, c);
        } catch (const std::runtime_error&) {
            continue;  // that colour's chunks report it themselves
        }
        const std::uint64_t bytes = (static_cast<std::uint64_t>(t.width) + 2) * t.height * sizeof(double);
        if (bytes > largest) largest = bytes;
        if (plan.spectra->Owner(c) == c) spectra += bytes, ++distinct;
    }
    const int filtering = plan.spectra->AlphaShared() ? 4 : kChunks;
    const int inFlight = std::min<int>(filtering, static_cast<int>(plan.threads));
    m.arrayCount = distinct + inFlight;
    m.arrays = spectra + static_cast<std::uint64_t>(inFlight) * largest;
    return m;
}

FrameMemory EstimateCopyMemory(std::int32_t width, std::int32_t height, int pixelStride, std::uint64_t host)
{
    FrameMemory m;
    m.output = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) *
               static_cast<std::uint64_t>(pixelStride) * sizeof(float);
    m.images = m.output;
    m.host = host;
    return m;
}

void CheckMemory(const FrameMemory& m, std::uint64_t limit, const std::string& limitSource)
{
    const auto mib = [](std::uint64_t b) { return FormatMemorySize(b); };
    if (m.Total() <= limit) return;
    // A copied frame has no planes or transform arrays to name.
    std::string filtering;
    if (m.arrayCount > 0)
        filtering = ", " + std::to_string(kChunks) + " planes " + mib(m.planes) + ", " + std::to_string(m.arrayCount) +
                    " transform arrays " + mib(m.arrays);
    throw std::runtime_error("the frame needs about " + mib(m.Total()) + " (the input images " + mib(m.images) +
                             filtering + ", the output image " + mib(m.output) +
                             (m.host ? ", the host's buffers " + mib(m.host) : std::string()) + ") but " +
                             limitSource + " is " + mib(limit));
}

void CheckFrameMemory(const ChunkPlan& plan, int pixelStride, std::uint64_t host, std::uint64_t limit,
                      const std::string& limitSource)
{
    CheckMemory(EstimateFrameMemory(plan, pixelStride, host), limit, limitSource);
}

void ShareKernels(KernelSpectra& spectra, const double blurSizeX[3], const double blurSizeY[3], const Image* kernelImage)
{
    int owner[3] = {0, 1, 2};
    for (int c = 1; c < 3; ++c)
        for (int o = 0; o < c; ++o)
            if (owner[o] == o && blurSizeX[c] == blurSizeX[o] && blurSizeY[c] == blurSizeY[o] &&
                (!kernelImage || SameComponents(*kernelImage, c, o))) {
                owner[c] = o;
                break;
            }
    spectra.Reset(owner);
}

Image* ObtainKernel(const ChunkPlan& plan, std::int32_t colour)
{
    const double sx = plan.sizeX[colour], sy = plan.sizeY[colour];
    if (!plan.kernelImage) return MakeChannelKernel(*plan.shape, sx, sy);
    return plan.kernelImage->ResizeOfImage(
        {{RSZ_Width, OddKernelSize(sx)}, {RSZ_Height, OddKernelSize(sy)}, {RSZ_Filter, RSZ_FILTER_AREA}, {TAG_DONE}});
}

void FilterChunk(const ChunkPlan& plan, std::int32_t chunk)
{
    KernelSpectra& kernelSpectra = *plan.spectra;
    ChannelStore& channelStore = *plan.store;
    // The first alpha chunk's result stands for all three (ExportImage reads it alone).
    if (chunk > 3 && kernelSpectra.AlphaShared()) return;
    const std::int32_t c = chunk % 3;
    const TransformSize size = SizeFor(plan, c);

    // The kernel first: its array's buffer is handed back once its spectrum is
    // made, and this chunk's image array takes it.
    const FrequencyArray& k = kernelSpectra.Get(c, [&](FrequencyArray& spectrum) {
        Ref<Image> kernel(ObtainKernel(plan, c));
        // The kernel sits centred on the origin: its rows are the first and the
        // last few of the array, the only ones its transform reads.
        const std::int32_t kernelReach = kernel->Height / 2 + 1;
        spectrum.CreateForRows(size.width, size.height, 0, 0, kernelReach, kernelReach);
        PlaceKernel(spectrum, kernel.get(), c);
        // A kernel that other colours share is waited for by their chunks, whose
        // workers would sit idle: its transform is spread over as many threads.
        const unsigned sharers = static_cast<unsigned>(kernelSpectra.Sharers(c));
        spectrum.SetTransformThreads(static_cast<int>(std::min(plan.threads, sharers)));
        spectrum.SetStop(plan.cancel);
        if (!spectrum.ForwardRowsForFilter(kernelReach, kernelReach))
            throw TransformFailure(plan, "forward transform of the kernel");
    });

    // Edge extension writes at most half the kernel plus one row below the
    // image and as many at the far end of the array; the filter reads only those
    // rows and the image's, and only the image's own rows of the result are read
    // back. The plane fills the top-left corner of the array.
    const std::int32_t reach = (size.kernelHeight + 1) / 2 + 1;
    const std::int32_t imageHeight = channelStore.height;
    FrequencyArray image;
    image.CreateForRows(size.width, size.height, static_cast<std::uint32_t>(channelStore.width),
                        static_cast<std::uint32_t>(imageHeight), imageHeight + reach, reach);
    ReadPlane(image, channelStore, chunk);
    ExtendEdges(image, plan.imageWidth, plan.imageHeight, size.kernelWidth, size.kernelHeight, plan.edgeType);
    image.SetStop(plan.cancel);
    const bool filtered = plan.convolve
                              ? image.Filter(k, MultiplyBins, 0.0, imageHeight + reach, reach, imageHeight)
                              : image.Filter(k, WienerDivideBins, plan.wiener, imageHeight + reach, reach, imageHeight);
    if (!filtered) throw TransformFailure(plan, "transform of the image");
    WritePlane(image, channelStore, chunk);
}
