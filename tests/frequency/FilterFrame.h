#pragma once
// A whole image filtered the way a render does it, with the chunk functions
// alone: the planes imported, the kernels shared, the six chunks filtered in
// turn, the planes exported.
#include "frequency/FilterChunk.h"
#include "frequency/KernelSpectra.h"
#include "image/ChannelStore.h"
#include "image/ImageTransfer.h"
#include "kernel/KernelParams.h"
#include "support/DocHarness.h"

#include <algorithm>

struct FrameSettings {
    KernelParams shape;  // angle in radians
    double sizeX[3] = {1, 1, 1}, sizeY[3] = {1, 1, 1};  // pixels, red, green, blue
    int edge = 0;
    bool convolve = true;
    double wiener = 0.0;
    Image* kernelImage = nullptr;
    TransformSizes rule = TransformSizes::PowersOfTwo;

    void Size(double x, double y) { std::fill_n(sizeX, 3, x), std::fill_n(sizeY, 3, y); }
};

inline Ref<Image> FilterFrame(Image& src, FrameSettings s)
{
    const RowBands oneBand = [](int height, const std::function<void(int, int)>& rows) { rows(0, height); };
    ChannelStore store;
    store.Allocate(src.Width, src.Height);
    KernelSpectra spectra;
    ShareKernels(spectra, s.sizeX, s.sizeY, s.kernelImage);
    ImportImage(src, store, oneBand, spectra.AlphaShared());
    s.shape.modelImage = &src;
    const ChunkPlan plan{&store,  &spectra, &s.shape,   s.kernelImage, src.Width, src.Height, s.sizeX,
                         s.sizeY, s.rule,   s.edge,     s.convolve,    s.wiener,  1};
    for (int chunk = 0; chunk < kChunks; ++chunk) FilterChunk(plan, chunk);
    Ref<Image> out(NewImage({{IMG_Like, static_cast<const void*>(&src)}, {TAG_DONE}}));
    ExportImage(src, *out, store, oneBand, spectra.AlphaShared());
    return out;
}

// Values outside 0..1, alpha that varies, and a depth channel.
inline Image* TestPlate(int w, int h)
{
    const auto f = [](int x, int y, int c) {
        if (c == 3) return 0.25f + 0.5f * std::sin(0.4f * x + 0.1f * y) * std::sin(0.4f * x + 0.1f * y);
        if (c == 4) return 100.0f + x - y;
        return static_cast<float>(((x * 7 + y * 13 + c * 5) % 11) - 3) * 0.7f + (x == 5 && y == 4 ? 20.f : 0.f);
    };
    return MakeImage(w, h, f, {"Z"});
}
