#pragma once
// Host images: float32 storage of red, green, blue and alpha plus any number of
// extra named channels (a depth channel, say), a data depth that says how the
// image is to be saved, and the pixel aspect as two scale values.
//
// Storage is interleaved; each pixel is a record of blue, green, red, alpha
// followed by the extra channels in the order of ExtraChannels().
#include "host/Parameter.h"
#include "host/PixelBuffers.h"
#include "host/TagList.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// Where red, green, blue and alpha (0 .. 3) lie in a pixel record.
constexpr int kRecordPosition[4] = {2, 1, 0, 3};

// Data depths a host image can be saved at.
enum ImageDepth : int {
    IMDP_Int8 = 5,
    IMDP_Int16 = 6,
    IMDP_Float32 = 7,  // four 32-bit floats per pixel
    IMDP_Float16 = 8,
};

// ResizeOfImage's filter 7: each axis is resampled on its own. Shrinking
// averages the source pixels under the footprint of each target pixel, weighted
// by how much of each source pixel it covers (an exact box filter); enlarging
// interpolates linearly between the centres of source pixels. Either way the
// result is exact when the size does not change.
constexpr int RSZ_FILTER_AREA = 7;

// Whether an image holds pixels. A host plans a frame (the tool's
// PreCalcProcess) with images that say only what the frame will be, their
// size, channels and aspect, before any pixel of it exists.
enum class ImagePixels { Allocated, None };

class Image : public Parameter {
public:
    Image(int width, int height, int depth = IMDP_Float32, std::vector<std::string> extraChannels = {},
          ImagePixels pixels = ImagePixels::Allocated);
    ~Image() override;

    // Images alive in the process: lets tests and long runs see that none leak.
    static long LiveCount();

    const FuID& DataType() const override { return CLSID_DataType_Image; }

    const int Width;
    const int Height;
    int Depth;
    double XScale = 1.0;  // horizontal component of the pixel aspect
    double YScale = 1.0;  // vertical component of the pixel aspect
    // The width of the frame the image belongs to (a compositor's display
    // window), which sizes relative to the image refer to. The raster may be
    // wider (overscan) or cover more than a bounding box would; by default the
    // frame is the raster.
    int FrameWidth;

    const std::vector<std::string>& ExtraChannels() const { return m_extra; }
    int PixelStride() const { return 4 + static_cast<int>(m_extra.size()); }  // floats per pixel
    bool HasPixels() const { return m_data != nullptr; }
    float* Pixel(int x, int y) { return m_data.get() + (static_cast<std::size_t>(y) * Width + x) * PixelStride(); }
    const float* Pixel(int x, int y) const { return const_cast<Image*>(this)->Pixel(x, y); }

    // New images holding one reference each, owned by the caller; a copy of an
    // image without pixels has none either.
    Image* CopyOfImage(bool copyMetadataOnly = false) const;
    Image* ResizeOfImage(const TagList& tags) const;  // RSZ_Width, RSZ_Height, RSZ_Filter

private:
    std::vector<std::string> m_extra;
    std::unique_ptr<float[], PixelBufferRelease> m_data;
};

// A new image holding one reference. Tags: IMG_Like (an image whose size,
// depth, aspect and extra channels to take), IMG_Width, IMG_Height, IMG_Depth.
// Pixels start at 0. Throws std::invalid_argument for a size below 0 or
// without a like-image and a size, std::bad_alloc when memory runs out.
Image* NewImage(const TagList& tags);

// One pixel as the float accessor moves it: blue, green, red, alpha, and the
// extra channels of the pixel last read, which a write carries along.
struct FltPixel {
    float B = 0.0f, G = 0.0f, R = 0.0f, A = 0.0f;
    const float* Extra = nullptr;
    int ExtraCount = 0;
};

// The float pixel reader and writer: positioned at a pixel, it moves along the
// row one pixel per call.
class PixPtr {
public:
    explicit PixPtr(Image* img) : m_img(img) {}
    void GotoXY(int x, int y) { m_p = m_img->Pixel(x, y); }
    void GetNextPixel(FltPixel& p) {
        p.B = m_p[0]; p.G = m_p[1]; p.R = m_p[2]; p.A = m_p[3];
        p.Extra = m_p + 4;
        p.ExtraCount = m_img->PixelStride() - 4;
        m_p += m_img->PixelStride();
    }
    void PutNextPixel(const FltPixel& p) {
        m_p[0] = p.B; m_p[1] = p.G; m_p[2] = p.R; m_p[3] = p.A;
        const int n = m_img->PixelStride() - 4;
        if (p.Extra && p.Extra != m_p + 4)
            for (int i = 0; i < n && i < p.ExtraCount; ++i) m_p[4 + i] = p.Extra[i];
        m_p += m_img->PixelStride();
    }

private:
    Image* m_img;
    float* m_p = nullptr;
};
