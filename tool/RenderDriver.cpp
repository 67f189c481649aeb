// Answering the host's render requests.
#include "controls/ControlValue.h"
#include "fft/FftBuffers.h"
#include "host/FusionDoc.h"
#include "host/Tags.h"
#include "image/ImageTransfer.h"
#include "kernel/PlaceKernel.h"
#include "tool/HostServices.h"
#include "tool/Lumivane2.h"
#include "util/Text.h"

#include <stdexcept>

namespace {

constexpr double kDegreesToRadians = 0.017453292519943295;
constexpr const char* kCopyLine = "Lumivane 2: blur size in pixels 1 x 1; no transform, the image is copied\n";

// Once the chunks are done (or, before a render, once it is measured), the
// kernels' spectra go. The output image is made beside the source and the
// planes after the chunks: the transform buffers kept for them would only add
// to that peak (134 MiB of them at 3840x2160 with a 10 % kernel), so they go
// too. The next frame maps them again, on huge pages: about 15 ms at
// 1920x1080, which a host that re-renders at once (the live page) saves by
// keeping them.
void ReleaseBeforeOutput(KernelSpectra& spectra)
{
    spectra.Release();
    if (!HostKeepsBuffers()) ReleaseKeptFftBuffers();
}

}  // namespace

void Lumivane2::ReadRenderState(Request* req)
{
    sourceImage = static_cast<Image*>(imageInput->GetValue(req, 0));
    kernelImage = static_cast<Image*>(kernelInput->GetValue(req, 0));
    edgeType = WholeValueOf(edgesInput, req);
    convolve = ValueOf(operationInput, req) < 0.5;
    wienerParam = ValueOf(wienerInput, req);
    if (!sourceImage) throw std::runtime_error("nothing is connected to the \"input\" input");
    ReadBlurSizes(req, sourceImage);
    modelImage = sourceImage;
    kernelStyle = WholeValueOf(blurStyleInput, req);
    sideCount = WholeValueOf(sideCountInput, req);
    angle = ValueOf(kernelAngleInput, req) * kDegreesToRadians;
    badBokeh = ValueOf(badBokehInput, req);
}

void Lumivane2::Process(Request* req)
{
    FusionDoc* doc = Document();
    auto print = [doc](int subId, const char* line) {
        if (doc) doc->PrintF(subId, "%s", line);
    };
    outputImage = nullptr;
    errorFlag = false;
    try {
        print(CONSOLE_Progress, "Lumivane 2: Starting\n");
        ReadRenderState(req);

        if (OnePixelKernels()) {
            // Nothing to filter, kernel image or not.
            CheckCopyMemory();
            outputImage = sourceImage->CopyOfImage(false);
        } else {
            if (kernelImage) CheckKernelImage(kernelImage);
            PlanFrame();
            chunkPlan.cancel = req->CancelFlag();
            CheckFrameMemory();
            ApplyHostFftSettings();
            channelStore.Allocate(sourceImage->Width, sourceImage->Height);
            ImportSourceImage();
            print(CONSOLE_Progress, "Lumivane 2: Setup Complete\n");
            DoMultiProcess(req, kChunks);
            ReleaseBeforeOutput(kernelSpectra);
            // Chunks skipped by the host left their planes as they were.
            if (req->IsCancelled()) throw std::runtime_error("the render was cancelled");
            print(CONSOLE_Progress, "Lumivane 2: Threads completed\n");
            if (errorFlag) throw std::runtime_error(errorMessage);
            outputImage = NewImage({{IMG_Like, static_cast<const void*>(sourceImage)}, {TAG_DONE}});
            ExportOutputImage();
        }
        print(CONSOLE_Progress, "Lumivane 2: Output setting complete\n");
        Image* done = outputImage;
        outputImage = nullptr;  // the output owns it from here
        m_outImageput->Set(req, done, nullptr);
        print(CONSOLE_Progress, "Lumivane 2: Done\n");
    } catch (const std::exception& e) {
        if (outputImage) outputImage->Recycle();
        outputImage = nullptr;
        if (doc) doc->PrintF(CONSOLE_Error, "Lumivane 2: %s\n", e.what());
    }
}

bool Lumivane2::OnePixelKernels() const
{
    double largestX = 0.0, largestY = 0.0;
    for (int c = 0; c < (channelsLocked ? 1 : 3); ++c) {
        if (blurSizeX[c] > largestX) largestX = blurSizeX[c];
        if (blurSizeY[c] > largestY) largestY = blurSizeY[c];
    }
    return largestX <= 1.0 && largestY <= 1.0;
}

void Lumivane2::PlanFrame()
{
    ShareKernels();
    chunkPlan = Plan();
}

void Lumivane2::PrintFrameFigures() const
{
    FusionDoc* doc = Document();
    if (!doc) return;
    std::string sizes, transforms;
    for (int c = 0; c < 3; ++c) {
        const std::string colour = std::string(c ? ", " : "") + "RGB"[c] + " ";
        sizes += colour + FormatNumber(blurSizeX[c]) + " x " + FormatNumber(blurSizeY[c]);
        try {
            const TransformSize t = TransformSizeFor(c);
            transforms += colour + std::to_string(t.width) + " x " + std::to_string(t.height);
        } catch (const std::runtime_error&) {
            transforms += colour + "none (too large)";
        }
    }
    doc->PrintF(CONSOLE_Info, "Lumivane 2: blur size in pixels %s; transform size %s; memory about %s\n", sizes.c_str(),
                transforms.c_str(), FormatMemorySize(EstimateFrameMemory(chunkPlan, sourceImage->PixelStride(), HostHeldMemory()).Total()).c_str());
}

void Lumivane2::PreCalcProcess(Request* req)
{
    FusionDoc* doc = Document();
    try {
        ReadRenderState(req);
        if (OnePixelKernels()) {
            if (doc) doc->PrintF(CONSOLE_Info, "%s", kCopyLine);
            CheckCopyMemory();
        } else {
            PlanFrame();
            PrintFrameFigures();
            ReleaseBeforeOutput(kernelSpectra);
            CheckFrameMemory();
        }
    } catch (const std::exception& e) {
        if (doc) doc->PrintF(CONSOLE_Error, "Lumivane 2: %s\n", e.what());
    }
}
