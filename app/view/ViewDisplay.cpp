#include "app/view/ViewDisplay.h"

#include "app/files/ExitCodes.h"
#include "app/files/ImageCodec.h"


#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

// Display is for the eye and is redone at every change: a fast zlib level
// (the PNG is a few per cent larger than at the default level, and made
// several times faster).
constexpr int kPngCompression = 1;
constexpr int kJpegQuality = 95;

double Srgb(double v)
{
    v = std::clamp(v, 0.0, 1.0);
    return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
}

// The 8-bit code of a display value raised to 1/gamma; NaN shows as 0.
long DisplayCode(double v, double gamma)
{
    if (!(v > 0.0)) return 0;
    v = std::min(v, 1.0);
    return std::lround((gamma == 1.0 ? v : std::pow(v, 1.0 / gamma)) * 255.0);
}

long Code(double v, double gamma) { return DisplayCode(Srgb(v), gamma); }

// Hands `row` each row's samples, red, green and blue of each pixel, as
// `pick(pixel, c)` gives them; one loop is made per way of picking.
template <class Pick, class Row>
void EachRow(const Image& image, bool magnitude, Pick pick, Row row)
{
    std::vector<float> samples(static_cast<std::size_t>(image.Width) * 3);
    for (int y = 0; y < image.Height; ++y) {
        float* next = samples.data();
        for (int x = 0; x < image.Width; ++x) {
            const float* p = image.Pixel(x, y);
            for (int c = 0; c < 3; ++c) *next++ = magnitude ? std::fabs(pick(p, c)) : pick(p, c);
        }
        row(y, samples.data());
    }
}

// The samples of the colour, or of one channel shown as grey.
template <class Row>
void EachRowOf(const Image& image, bool magnitude, char channel, Row row)
{
    if (!channel) return EachRow(image, magnitude, [](const float* p, int c) { return p[kRecordPosition[c]]; }, row);
    if (channel == 'y')
        return EachRow(image, magnitude, [](const float* p, int) {
            return static_cast<float>(0.2126 * p[kRecordPosition[0]] + 0.7152 * p[kRecordPosition[1]] +
                                      0.0722 * p[kRecordPosition[2]]);
        }, row);
    const int k = kRecordPosition[std::string_view("rgba").find(channel)];
    EachRow(image, magnitude, [k](const float* p, int) { return p[k]; }, row);
}

std::uint64_t Bits(double v)
{
    std::uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

double FromBits(std::uint64_t b)
{
    double v;
    std::memcpy(&v, &b, sizeof v);
    return v;
}

// The display code of a linear value, as Code gives it, without a pow per
// value: first[k] is the smallest double whose code is k or more (the code
// never falls as the value grows, and positive doubles order as their bits).
std::array<double, 256> FirstOfEachCode(double gamma)
{
    std::array<double, 256> first{};
    for (int k = 1; k < 256; ++k) {
        std::uint64_t below = 0, at = Bits(1.0);  // Code(0) < k <= Code(1)
        while (at - below > 1) {
            const std::uint64_t mid = below + (at - below) / 2;
            (Code(FromBits(mid), gamma) >= k ? at : below) = mid;
        }
        first[k] = FromBits(at);
    }
    return first;
}

// The codes of float samples times one gain, as Code(sample * gain, gamma) gives them,
// in a table over the samples' bits: positive floats order as their bits too,
// so with the thresholds carried over to floats (the smallest float whose
// product reaches each first[k]) a sample's code is the number of thresholds
// at or below it. The table holds, per run of 2^kShift neighbouring floats,
// the code at the run's start and the one threshold inside it, if any; a run
// holding more (none do at any gain the page offers) is searched.
class Codes {
public:
    Codes(double gain, double gamma)
    {
        static const std::array<double, 256> plain = FirstOfEachCode(1.0);
        const std::array<double, 256> first = gamma == 1.0 ? plain : FirstOfEachCode(gamma);
        for (int k = 1; k < 256; ++k) {
            std::uint32_t below = 0, at = kInfinity;  // 0 is below every threshold; infinity reaches all
            while (at - below > 1) {
                const std::uint32_t mid = below + (at - below) / 2;
                (static_cast<double>(FloatFrom(mid)) * gain >= first[k] ? at : below) = mid;
            }
            m_threshold[k] = at;
        }
        m_runs.resize((m_threshold[255] >> kShift) + 1);
        int code = 0;
        for (std::size_t run = 0; run < m_runs.size(); ++run) {
            const std::uint32_t start = static_cast<std::uint32_t>(run) << kShift, end = start + (1u << kShift);
            while (code < 255 && m_threshold[code + 1] <= start) ++code;
            int inside = 0;
            while (code + inside < 255 && m_threshold[code + inside + 1] < end) ++inside;
            m_runs[run] = {static_cast<unsigned char>(code), inside > 1, inside ? m_threshold[code + 1] : end};
        }
    }
    unsigned char operator()(float v) const
    {
        std::uint32_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        if (bits & kSign) return 0;  // negative (and -0): clipped to 0
        if (bits >= kNaN) return 0;  // as Code gives NaN
        const std::size_t run = bits >> kShift;
        if (run >= m_runs.size()) return 255;
        const Run& r = m_runs[run];
        if (r.search) return static_cast<unsigned char>(
            std::upper_bound(m_threshold.begin() + 1, m_threshold.end(), bits) - m_threshold.begin() - 1);
        return static_cast<unsigned char>(r.code + (bits >= r.next));
    }

private:
    static constexpr int kShift = 12;
    static constexpr std::uint32_t kSign = 0x80000000u, kInfinity = 0x7f800000u, kNaN = 0x7f800001u;
    static float FloatFrom(std::uint32_t bits)
    {
        float v;
        std::memcpy(&v, &bits, sizeof v);
        return v;
    }
    struct Run {
        unsigned char code;
        bool search;
        std::uint32_t next;  // the threshold inside the run, or past its end
    };
    std::array<std::uint32_t, 256> m_threshold{};  // float bits; [0] unused
    std::vector<Run> m_runs;
};

}  // namespace

std::string DisplayPicture(const Image& image, double exposure, bool magnitude, DisplayFormat format,
                           const DisplayLook& look, const ColourProcessor* toDisplay)
{
    const double gain = std::exp2(exposure);
    const std::size_t n = static_cast<std::size_t>(image.Width) * 3;
    std::vector<unsigned char> rgb(n * image.Height);
    if (toDisplay) {
        EachRowOf(image, magnitude, look.channel, [&](int y, float* samples) {
            for (std::size_t i = 0; i < n; ++i) samples[i] = static_cast<float>(samples[i] * gain);
            toDisplay->Apply(samples, image.Width);
            for (std::size_t i = 0; i < n; ++i)
                rgb[y * n + i] = static_cast<unsigned char>(DisplayCode(samples[i], look.gamma));
        });
    } else {
        const Codes codes(gain, look.gamma);
        EachRowOf(image, magnitude, look.channel, [&](int y, const float* samples) {
            for (std::size_t i = 0; i < n; ++i) rgb[y * n + i] = codes(samples[i]);
        });
    }
    const bool png = format == DisplayFormat::Png;
    return Codec().Encode(rgb.data(), image.Width, image.Height, png, kPngCompression, kJpegQuality);
}
