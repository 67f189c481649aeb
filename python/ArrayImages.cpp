#include "python/ArrayImages.h"

#include "host/WorkerPool.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace py = pybind11;

namespace {

constexpr int kColourChannels = 4;
// Rows per band: enough that a band's start-up cost is small, few enough that
// the pool's threads share the work evenly.
constexpr int kBandsPerThread = 4;

// What a numpy data type is to the conversions.
enum class Sample { Float32, Float64, UInt8, UInt16, Other };

Sample SampleOf(const py::dtype& type)
{
    const char kind = type.kind();
    const auto size = type.itemsize();
    // Half floats and foreign byte orders go through numpy's own cast to float32.
    const char order = type.byteorder();
    constexpr char kNativeOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? '<' : '>';
    if (order != '=' && order != '|' && order != kNativeOrder) return Sample::Other;
    if (kind == 'f') return size == 4 ? Sample::Float32 : size == 8 ? Sample::Float64 : Sample::Other;
    if (kind == 'u') return size == 1 ? Sample::UInt8 : size == 2 ? Sample::UInt16 : Sample::Other;
    return Sample::Other;
}

int DepthOf(const py::dtype& type)
{
    if (type.kind() == 'u') return type.itemsize() == 1 ? IMDP_Int8 : IMDP_Int16;
    if (type.kind() == 'f' && type.itemsize() == 2) return IMDP_Float16;
    return IMDP_Float32;
}

bool Accepted(const py::dtype& type)
{
    const char kind = type.kind();
    const auto size = type.itemsize();
    return (kind == 'f' && (size == 2 || size == 4 || size == 8)) || (kind == 'u' && (size == 1 || size == 2));
}

// Runs rows(first, last) over bands of 0 .. height - 1 on the host's pool.
template <class Rows>
void InBands(int height, const Rows& rows)
{
    WorkerPool& pool = WorkerPool::Shared();
    const int bands = std::max(1, std::min(height, static_cast<int>(pool.ThreadCount()) * kBandsPerThread));
    pool.Run(bands, [&](int b) {
        rows(static_cast<int>(static_cast<std::int64_t>(height) * b / bands),
             static_cast<int>(static_cast<std::int64_t>(height) * (b + 1) / bands));
    });
}

// Where an array's samples are: byte strides of rows, columns and channels.
struct Samples {
    const char* data;
    py::ssize_t row, column, channel;
};

template <class T>
struct ToFloat {
    float operator()(T v) const { return static_cast<float>(v); }
};
template <class T>
struct Scaled {
    float scale = 1.0f / std::numeric_limits<T>::max();
    float operator()(T v) const { return v * scale; }
};

// One band of rows of the array into pixel records (blue, green, red, alpha,
// extras): grey fills red, green and blue; alpha is 1 where the array has none.
template <class T, class Convert>
void FillRows(const Samples& s, int channels, Image& image, int first, int last, Convert convert)
{
    const int stride = image.PixelStride();
    for (int y = first; y < last; ++y) {
        const char* row = s.data + y * s.row;
        float* p = image.Pixel(0, y);
        auto at = [&](int x, int c) { return convert(*reinterpret_cast<const T*>(row + x * s.column + c * s.channel)); };
        switch (channels) {
        case 1:
        case 2:
            for (int x = 0; x < image.Width; ++x, p += stride) {
                p[0] = p[1] = p[2] = at(x, 0);
                p[3] = channels == 2 ? at(x, 1) : 1.0f;
            }
            break;
        case 3:
            for (int x = 0; x < image.Width; ++x, p += stride) {
                p[0] = at(x, 2), p[1] = at(x, 1), p[2] = at(x, 0), p[3] = 1.0f;
            }
            break;
        default:
            for (int x = 0; x < image.Width; ++x, p += stride) {
                p[0] = at(x, 2), p[1] = at(x, 1), p[2] = at(x, 0), p[3] = at(x, 3);
                for (int c = kColourChannels; c < channels; ++c) p[c] = at(x, c);
            }
        }
    }
}

}  // namespace

int ChannelsOf(const py::array& a, const char* what)
{
    std::string shape = "(";
    for (py::ssize_t d = 0; d < a.ndim(); ++d) shape += (d ? ", " : "") + std::to_string(a.shape(d));
    shape += a.ndim() == 1 ? ",)" : ")";
    const bool ok = (a.ndim() == 2 || (a.ndim() == 3 && a.shape(2) >= 1)) && a.shape(0) >= 1 && a.shape(1) >= 1;
    if (!ok)
        throw py::value_error(std::string(what) + ": an array of shape " + shape +
                              " is not an image; give height x width, or height x width x channels, all at least 1");
    if (a.shape(0) > std::numeric_limits<int>::max() || a.shape(1) > std::numeric_limits<int>::max())
        throw py::value_error(std::string(what) + ": an array of shape " + shape + " is too large");
    return a.ndim() == 2 ? 1 : static_cast<int>(a.shape(2));
}

Ref<Image> ShapeOfArray(const py::array& a, const char* what, double xScale, double yScale, ImagePixels pixels)
{
    const int channels = ChannelsOf(a, what);
    if (!Accepted(a.dtype()))
        throw py::type_error(std::string(what) + ": arrays of " + py::str(a.dtype()).cast<std::string>() +
                             " are not accepted; give float32, float64, float16, uint8 or uint16");
    std::vector<std::string> extras;
    for (int c = kColourChannels; c < channels; ++c) extras.push_back("channel" + std::to_string(c));
    Ref<Image> image(new Image(static_cast<int>(a.shape(1)), static_cast<int>(a.shape(0)), DepthOf(a.dtype()), extras,
                               pixels));
    image->XScale = xScale;
    image->YScale = yScale;
    return image;
}

Ref<Image> ImageFromArray(const py::array& a, const char* what, double xScale, double yScale)
{
    Ref<Image> image = ShapeOfArray(a, what, xScale, yScale, ImagePixels::Allocated);
    const int channels = ChannelsOf(a, what);
    py::array source = a;
    Sample sample = SampleOf(a.dtype());
    if (sample == Sample::Other) {
        // numpy's float conversions round to nearest, as OpenImageIO's.
        source = py::array_t<float, py::array::forcecast>::ensure(a);
        sample = Sample::Float32;
    }
    const Samples s{static_cast<const char*>(source.data()), source.strides(0), source.strides(1),
                    source.ndim() == 3 ? source.strides(2) : 0};
    Image& img = *image;
    py::gil_scoped_release unlocked;
    InBands(img.Height, [&](int first, int last) {
        switch (sample) {
        case Sample::Float64: return FillRows<double>(s, channels, img, first, last, ToFloat<double>{});
        case Sample::UInt8: return FillRows<std::uint8_t>(s, channels, img, first, last, Scaled<std::uint8_t>{});
        case Sample::UInt16: return FillRows<std::uint16_t>(s, channels, img, first, last, Scaled<std::uint16_t>{});
        default: return FillRows<float>(s, channels, img, first, last, ToFloat<float>{});
        }
    });
    return image;
}

py::array_t<float> ArrayFromImage(const Image& image, int channels, bool flat)
{
    std::vector<py::ssize_t> shape{image.Height, image.Width};
    if (!flat) shape.push_back(channels);
    py::array_t<float> out(shape);
    float* data = out.mutable_data();
    const int stride = image.PixelStride();
    py::gil_scoped_release unlocked;
    // Grey comes back from red.
    InBands(image.Height, [&](int first, int last) {
        for (int y = first; y < last; ++y) {
            const float* p = image.Pixel(0, y);
            float* dst = data + static_cast<std::size_t>(y) * image.Width * channels;
            switch (channels) {
            case 1:
                for (int x = 0; x < image.Width; ++x, p += stride) dst[x] = p[2];
                break;
            case 2:
                for (int x = 0; x < image.Width; ++x, p += stride, dst += 2) dst[0] = p[2], dst[1] = p[3];
                break;
            case 3:
                for (int x = 0; x < image.Width; ++x, p += stride, dst += 3) dst[0] = p[2], dst[1] = p[1], dst[2] = p[0];
                break;
            default:
                for (int x = 0; x < image.Width; ++x, p += stride, dst += channels) {
                    dst[0] = p[2], dst[1] = p[1], dst[2] = p[0], dst[3] = p[3];
                    for (int c = kColourChannels; c < channels; ++c) dst[c] = p[c];
                }
            }
        }
    });
    return out;
}
