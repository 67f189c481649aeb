#include "host/Image.h"

#include "host/Tags.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

// One target sample of a one-dimensional resample: weights over a run of source
// samples starting at `first`.
struct Taps {
    int first = 0;
    std::vector<double> weights;
};

std::vector<Taps> AxisTaps(int from, int to)
{
    std::vector<Taps> taps(to);
    const double scale = static_cast<double>(from) / to;
    for (int j = 0; j < to; ++j) {
        Taps& t = taps[j];
        if (from == to) {
            t.first = j;
            t.weights = {1.0};
        } else if (to < from) {
            const double lo = j * scale, hi = (j + 1) * scale;
            t.first = static_cast<int>(std::floor(lo));
            const int last = std::min(from - 1, static_cast<int>(std::ceil(hi)) - 1);
            for (int i = t.first; i <= last; ++i) {
                const double cover = std::min(hi, i + 1.0) - std::max(lo, static_cast<double>(i));
                t.weights.push_back(std::max(0.0, cover) / scale);
            }
        } else {
            const double u = std::clamp((j + 0.5) * scale - 0.5, 0.0, from - 1.0);
            t.first = static_cast<int>(std::floor(u));
            const double f = u - t.first;
            t.weights = {1.0 - f};
            if (t.first + 1 < from) t.weights.push_back(f);
        }
    }
    return taps;
}

std::atomic<long> g_liveImages{0};

void CheckSize(int w, int h)
{
    if (w < 0 || h < 0)
        throw std::invalid_argument("image size " + std::to_string(w) + "x" + std::to_string(h) +
                                    " is negative");
}

}  // namespace

Image::Image(int width, int height, int depth, std::vector<std::string> extraChannels, ImagePixels pixels)
    : Width((CheckSize(width, height), width)), Height(height), Depth(depth), FrameWidth(width),
      m_extra(std::move(extraChannels))
{
    if (pixels == ImagePixels::Allocated) {
        const std::size_t n = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * PixelStride();
        m_data = std::unique_ptr<float[], PixelBufferRelease>(TakePixelBuffer(n), PixelBufferRelease{n});
    }
    g_liveImages.fetch_add(1, std::memory_order_relaxed);
}

Image::~Image() { g_liveImages.fetch_sub(1, std::memory_order_relaxed); }

long Image::LiveCount() { return g_liveImages.load(std::memory_order_relaxed); }

Image* Image::CopyOfImage(bool /*copyMetadataOnly*/) const
{
    auto* copy = new Image(Width, Height, Depth, m_extra, HasPixels() ? ImagePixels::Allocated : ImagePixels::None);
    copy->XScale = XScale;
    copy->YScale = YScale;
    copy->FrameWidth = FrameWidth;
    if (HasPixels())
        std::memcpy(copy->m_data.get(), m_data.get(),
                sizeof(float) * static_cast<std::size_t>(Width) * Height * PixelStride());
    return copy;
}

Image* Image::ResizeOfImage(const TagList& tags) const
{
    const int w = static_cast<int>(tags.GetLong(RSZ_Width, Width));
    const int h = static_cast<int>(tags.GetLong(RSZ_Height, Height));
    const int filter = static_cast<int>(tags.GetLong(RSZ_Filter, RSZ_FILTER_AREA));
    if (filter != RSZ_FILTER_AREA)
        throw std::invalid_argument("resize filter " + std::to_string(filter) + " is not known; the host has filter " +
                                    std::to_string(RSZ_FILTER_AREA));
    CheckSize(w, h);
    if (w == Width && h == Height) return CopyOfImage(false);
    if ((w > 0 && Width == 0) || (h > 0 && Height == 0))
        throw std::invalid_argument("an empty image cannot be resized to " + std::to_string(w) + "x" +
                                    std::to_string(h));

    const int stride = PixelStride();
    const std::vector<Taps> xt = AxisTaps(Width, w), yt = AxisTaps(Height, h);

    // Horizontal pass into a buffer of the new width and old height, then vertical.
    std::vector<double> mid(static_cast<std::size_t>(w) * Height * stride, 0.0);
    for (int y = 0; y < Height; ++y)
        for (int x = 0; x < w; ++x) {
            double* dst = &mid[(static_cast<std::size_t>(y) * w + x) * stride];
            for (std::size_t k = 0; k < xt[x].weights.size(); ++k) {
                const float* src = Pixel(xt[x].first + static_cast<int>(k), y);
                for (int c = 0; c < stride; ++c) dst[c] += xt[x].weights[k] * src[c];
            }
        }

    auto* out = new Image(w, h, Depth, m_extra);
    out->XScale = XScale;
    out->YScale = YScale;
    // The frame scales with the raster.
    out->FrameWidth = Width > 0 ? static_cast<int>(std::lround(static_cast<double>(FrameWidth) * w / Width)) : w;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float* dst = out->Pixel(x, y);
            for (int c = 0; c < stride; ++c) {
                double sum = 0.0;
                for (std::size_t k = 0; k < yt[y].weights.size(); ++k)
                    sum += yt[y].weights[k] * mid[(static_cast<std::size_t>(yt[y].first + k) * w + x) * stride + c];
                dst[c] = static_cast<float>(sum);
            }
        }
    return out;
}

Image* NewImage(const TagList& tags)
{
    const auto* like = static_cast<const Image*>(tags.GetPtr(IMG_Like));
    if (!like && !(tags.Has(IMG_Width) && tags.Has(IMG_Height)))
        throw std::invalid_argument("NewImage needs a like-image or both a width and a height");
    const int w = static_cast<int>(tags.GetLong(IMG_Width, like ? like->Width : 0));
    const int h = static_cast<int>(tags.GetLong(IMG_Height, like ? like->Height : 0));
    const int depth = static_cast<int>(tags.GetLong(IMG_Depth, like ? like->Depth : IMDP_Float32));
    auto* img = new Image(w, h, depth, like ? like->ExtraChannels() : std::vector<std::string>{});
    if (like) {
        img->XScale = like->XScale;
        img->YScale = like->YScale;
        if (w == like->Width) img->FrameWidth = like->FrameWidth;
    }
    return img;
}
