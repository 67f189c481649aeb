// Answering the host's render requests.
#include "controls/ControlValue.h"
#include "host/FusionDoc.h"
#include "host/Tags.h"
#include "image/ImageTransfer.h"
#include "tool/HostServices.h"
#include "tool/Lumivane2.h"

#include <stdexcept>

namespace {

constexpr double kDegreesToRadians = 0.017453292519943295;

}  // namespace

void Lumivane2::ReadRenderState(Request* req)
{
    sourceImage = static_cast<Image*>(imageInput->GetValue(req, 0));
    kernelImage = static_cast<Image*>(kernelInput->GetValue(req, 0));
    edgeType = static_cast<std::int32_t>(ValueOf(edgesInput, req));
    convolve = ValueOf(operationInput, req) < 0.5;
    wienerParam = ValueOf(wienerInput, req);
    if (!sourceImage) throw std::runtime_error("nothing is connected to the \"input\" input");
    ReadBlurSizes(req, sourceImage);
    modelImage = sourceImage;
    kernelStyle = static_cast<std::int32_t>(ValueOf(blurStyleInput, req));
    sideCount = static_cast<std::int32_t>(ValueOf(sideCountInput, req));
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

        double largestX = 0.0, largestY = 0.0;
        for (int c = 0; c < (channelsLocked ? 1 : 3); ++c) {
            if (blurSizeX[c] > largestX) largestX = blurSizeX[c];
            if (blurSizeY[c] > largestY) largestY = blurSizeY[c];
        }
        if (largestX <= 1.0 && largestY <= 1.0) {
            // Every counted kernel is one pixel: nothing to filter, kernel image or not.
            outputImage = sourceImage->CopyOfImage(false);
        } else {
            ShareKernels();
            chunkPlan = Plan();
            CheckFrameMemory();
            ApplyHostFftSettings();
            channelStore.Allocate(sourceImage->Width, sourceImage->Height);
            ImportSourceImage();
            print(CONSOLE_Progress, "Lumivane 2: Setup Complete\n");
            DoMultiProcess(req, kChunks);
            kernelSpectra.Release();
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
