#pragma once
// The tool: blurs an image by convolving each colour channel with a kernel in
// the frequency domain, or sharpens it by Wiener deconvolution. The kernel is
// the image on the "kernel" input or a shape made per channel.
#include "controls/BlurSizeInterface.h"
#include "controls/FilterInterface.h"
#include "frequency/FilterChunk.h"
#include "frequency/KernelSpectra.h"
#include "frequency/TransformSize.h"
#include "host/Image.h"
#include "host/ThreadedOperator.h"
#include "image/ChannelStore.h"
#include "tool/InfoPage.h"

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <cstdint>
#include <string>

class FrequencyArray;

class Lumivane2 : public ThreadedOperator, public filter_interface, public blur_size_interface, public info_interface {
public:
    Lumivane2(Registry* reg, const ScriptVal& table, const TagList& tags);
    ~Lumivane2() override;

    void Process(Request* req) override;
    // Reads the controls and images as a render would and prints the blur
    // sizes, transform sizes and memory estimate, without transforming.
    void PreCalcProcess(Request* req) override;
    void NotifyChanged(Input* in, Parameter* param, TimeStamp time, const TagList* tags) override;
    void ProcessChunk(Request* req, std::int32_t chunk) override;

    // Reads the controls and both images for the request into the per-render
    // state, with the blur sizes in pixels. Throws when no image is connected.
    void ReadRenderState(Request* req);

    // Moving the image between the host and the planes of channelStore
    // (image/ImageTransfer.h).
    void ImportSourceImage();
    void ExportOutputImage();
    // The kernel image colour c is filtered with: the "kernel" input resized to
    // the colour's blur size, or the shape BlurStyle names. The caller owns it.
    Image* ObtainKernel(std::int32_t colour) const;

    Input* imageInput = nullptr;
    Input* kernelInput = nullptr;
    Input* edgesInput = nullptr;
    Input* operationInput = nullptr;
    Input* wienerInput = nullptr;
    Output* m_outImageput = nullptr;

    // Per-render state, written by Process before the chunks run.
    Image* sourceImage = nullptr;
    Image* kernelImage = nullptr;
    Image* outputImage = nullptr;
    std::int32_t edgeType = 0;
    bool convolve = true;
    double wienerParam = 0.0;
    ChunkPlan chunkPlan;  // made from the state above once the kernels are shared

    // Declared so that destruction releases the mutex, then the message, then
    // the planes.
    ChannelStore channelStore;
    // Kernel spectra and alpha results the chunks of one render share.
    KernelSpectra kernelSpectra;
    bool errorFlag = false;
    std::string errorMessage;
    boost::shared_ptr<boost::mutex> errorMutex;

    // A colour's kernel edge and padded transform size (frequency/TransformSize.h)
    // under the host's transform size rule.
    using TransformSize = ::TransformSize;
    TransformSize TransformSizeFor(std::int32_t colour) const;

private:
    void CreateControls();
    ChunkPlan Plan();
    // Every counted kernel is one pixel, so the render is a copy.
    bool OnePixelKernels() const;
    // Shares the kernels between the colours and makes the chunk plan.
    void PlanFrame();
    // What the planned frame takes, as an info line: blur sizes in pixels,
    // transform sizes, memory. Printed only when the host asks (PreCalcProcess),
    // so a render's console is its progress alone.
    void PrintFrameFigures() const;
    // Throws, naming the sizes, when the frame would need more memory than the
    // host allows, before anything large is allocated.
    void CheckFrameMemory() const;
    // The same for a frame that is copied (one-pixel kernels): its input and
    // output images beside what the host holds.
    void CheckCopyMemory() const;
    // Finds the colours whose kernels are identical, before the chunks run.
    void ShareKernels();
    void ReportChunkError(const std::string& message);
};

Object* CreateLumivane2(Registry* reg, const ScriptVal& table, const TagList& tags);
