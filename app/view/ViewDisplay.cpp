#include "app/view/ViewDisplay.h"

#include "app/files/ExitCodes.h"
#include "app/files/ImageCodec.h"


#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
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

long Code(double v) { return std::lround(Srgb(v) * 255.0); }

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
std::array<double, 256> FirstOfEachCode()
{
    std::array<double, 256> first{};
    for (int k = 1; k < 256; ++k) {
        std::uint64_t below = 0, at = Bits(1.0);  // Code(0) < k <= Code(1)
        while (at - below > 1) {
            const std::uint64_t mid = below + (at - below) / 2;
            (Code(FromBits(mid)) >= k ? at : below) = mid;
        }
        first[k] = FromBits(at);
    }
    return first;
}

// The codes of float samples times one gain, as Code(sample * gain) gives them,
// in a table over the samples' bits: positive floats order as their bits too,
// so with the thresholds carried over to floats (the smallest float whose
// product reaches each first[k]) a sample's code is the number of thresholds
// at or below it. The table holds, per run of 2^kShift neighbouring floats,
// the code at the run's start and the one threshold inside it, if any; a run
// holding more (none do at any gain the page offers) is searched.
class Codes {
public:
    explicit Codes(double gain)
    {
        static const std::array<double, 256> first = FirstOfEachCode();
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

std::string DisplayPicture(const Image& image, double exposure, bool magnitude, DisplayFormat format)
{
    const double gain = std::exp2(exposure);
    const Codes codes(gain);
    std::vector<unsigned char> rgb(static_cast<std::size_t>(image.Width) * image.Height * 3);
    for (int y = 0; y < image.Height; ++y) {
        unsigned char* out = &rgb[static_cast<std::size_t>(y) * image.Width * 3];
        for (int x = 0; x < image.Width; ++x) {
            const float* p = image.Pixel(x, y);
            for (int c = 0; c < 3; ++c) {
                const float v = p[kRecordPosition[c]];
                *out++ = codes(magnitude ? std::fabs(v) : v);
            }
        }
    }
    const bool png = format == DisplayFormat::Png;
    return Codec().Encode(rgb.data(), image.Width, image.Height, png, kPngCompression, kJpegQuality);
}
