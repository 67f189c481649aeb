#pragma once
// One chunk of a render: one plane filtered with one colour's kernel in the
// frequency domain, and what the chunks of a render share.
#include "host/EngineSettings.h"

#include <atomic>
#include <cstdint>
#include <string>

class ChannelStore;
class Image;
class KernelSpectra;
struct KernelParams;

// What every chunk of one render reads; the planes and the spectra are written
// by the chunks, each its own.
struct ChunkPlan {
    ChannelStore* store = nullptr;
    KernelSpectra* spectra = nullptr;
    const KernelParams* shape = nullptr;  // the synthesised kernels' parameters
    Image* kernelImage = nullptr;         // the image to filter with instead, or null
    std::int32_t imageWidth = 0, imageHeight = 0;
    const double* sizeX = nullptr;  // blur sizes in pixels, red, green, blue
    const double* sizeY = nullptr;
    TransformSizes rule = TransformSizes::PowersOfTwo;
    std::int32_t edgeType = 0;
    bool convolve = true;  // else Wiener deconvolution with `wiener`
    double wiener = 0.0;
    unsigned threads = 1;  // the host's workers
    const std::atomic<bool>* cancel = nullptr;  // raised when the render is abandoned
};

// Finds the colours whose kernels are identical (same sizes, and for a kernel
// image the same components), before the chunks run.
void ShareKernels(KernelSpectra& spectra, const double sizeX[3], const double sizeY[3], const Image* kernelImage);

// The kernel image colour c is filtered with: the kernel image resized to the
// colour's blur size with the host's area filter, or the shape the parameters
// name. The caller owns it.
Image* ObtainKernel(const ChunkPlan& plan, std::int32_t colour);

// What one frame needs at its peak, in bytes: the input image (and kernel
// image), the image planes, the transform arrays in flight (distinct kernel
// spectra plus one image array per busy worker, kept for the next frame once
// done), the output image, and what the host holds beside them (`host`).
struct FrameMemory {
    std::uint64_t images = 0, planes = 0, arrays = 0, output = 0, host = 0;
    int arrayCount = 0;
    std::uint64_t Total() const { return images + planes + arrays + output + host; }
};
FrameMemory EstimateFrameMemory(const ChunkPlan& plan, int pixelStride, std::uint64_t host);

// What a frame that is copied rather than filtered needs: its input and
// output images of `width` x `height` records of `pixelStride` floats, and `host`.
FrameMemory EstimateCopyMemory(std::int32_t width, std::int32_t height, int pixelStride, std::uint64_t host);

// Throws, naming the parts of `memory`, when it is more than `limit` (whose
// origin `limitSource` names).
void CheckMemory(const FrameMemory& memory, std::uint64_t limit, const std::string& limitSource);

// Throws, naming the sizes, when the frame would need more memory than `limit`
// (whose origin `limitSource` names), before anything large is allocated.
void CheckFrameMemory(const ChunkPlan& plan, int pixelStride, std::uint64_t host, std::uint64_t limit,
                      const std::string& limitSource);

// Filters chunk 0 .. 5 (ImageTransfer.h) of the store in place. Throws
// std::runtime_error with the reason when it fails.
void FilterChunk(const ChunkPlan& plan, std::int32_t chunk);
