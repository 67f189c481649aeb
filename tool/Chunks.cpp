// The tool's chunk work: each member hands its part to the layer that does it.
#include "tool/HostServices.h"
#include "tool/Lumivane2.h"

void Lumivane2::ImportSourceImage()
{
    ImportImage(*sourceImage, channelStore, HostRowBands(), kernelSpectra.AlphaShared());
}

void Lumivane2::ExportOutputImage()
{
    ExportImage(*sourceImage, *outputImage, channelStore, HostRowBands(), kernelSpectra.AlphaShared());
}

Lumivane2::TransformSize Lumivane2::TransformSizeFor(std::int32_t colour) const
{
    return ::TransformSizeFor(sourceImage->Width, sourceImage->Height, blurSizeX[colour], blurSizeY[colour], colour,
                              HostTransformSizes());
}

Image* Lumivane2::ObtainKernel(std::int32_t colour) const
{
    ChunkPlan plan;
    plan.shape = this;
    plan.kernelImage = kernelImage;
    plan.sizeX = blurSizeX;
    plan.sizeY = blurSizeY;
    return ::ObtainKernel(plan, colour);
}

ChunkPlan Lumivane2::Plan()
{
    ChunkPlan plan;
    plan.store = &channelStore;
    plan.spectra = &kernelSpectra;
    plan.shape = this;
    plan.kernelImage = kernelImage;
    plan.imageWidth = sourceImage->Width;
    plan.imageHeight = sourceImage->Height;
    plan.sizeX = blurSizeX;
    plan.sizeY = blurSizeY;
    plan.rule = HostTransformSizes();
    plan.edgeType = edgeType;
    plan.convolve = convolve;
    plan.wiener = wienerParam;
    plan.threads = HostThreadCount();
    return plan;
}

void Lumivane2::ShareKernels() { ::ShareKernels(kernelSpectra, blurSizeX, blurSizeY, kernelImage); }

void Lumivane2::CheckFrameMemory() const
{
    ::CheckFrameMemory(chunkPlan, sourceImage->PixelStride(), HostHeldMemory(), HostMemoryLimit(), HostMemoryLimitSource());
}

void Lumivane2::CheckCopyMemory() const
{
    const FrameMemory copy =
        EstimateCopyMemory(sourceImage->Width, sourceImage->Height, sourceImage->PixelStride(), HostHeldMemory());
    ::CheckMemory(copy, HostMemoryLimit(), HostMemoryLimitSource());
}

void Lumivane2::ProcessChunk(Request* /*req*/, std::int32_t chunk)
{
    try {
        FilterChunk(chunkPlan, chunk);
    } catch (const std::exception& e) {
        ReportChunkError(e.what());
    }
}

void Lumivane2::ReportChunkError(const std::string& message)
{
    boost::mutex::scoped_lock lock(*errorMutex);
    errorFlag = true;
    errorMessage = message;
}
