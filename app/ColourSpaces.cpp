#include "app/ColourSpaces.h"

#include <OpenImageIO/strutil.h>

#include <algorithm>
#include <cstdlib>

using OIIO::ImageSpec;

namespace {

constexpr const char* kColourSpaceAttribute = "oiio:ColorSpace";
constexpr const char* kWorkingRole = "scene_linear";
constexpr const char* kLinear = "linear";
constexpr int kSamples = 65536;  // one per 16-bit code, which holds every 8-bit code too

// Calls `convert` on each row's colour, unpremultiplied, as interleaved red,
// green, blue; puts the result back premultiplied.
template <class Convert>
void EachRow(Image& image, Convert convert)
{
    std::vector<float> rgb(static_cast<std::size_t>(image.Width) * 3);
    for (int y = 0; y < image.Height; ++y) {
        for (int x = 0; x < image.Width; ++x) {
            const float* p = image.Pixel(x, y);
            const float a = p[3];
            const bool divide = a > 0.0f && a != 1.0f;  // colour under no alpha is light of its own
            for (int c = 0; c < 3; ++c) rgb[3 * x + c] = divide ? p[kRecordPosition[c]] / a : p[kRecordPosition[c]];
        }
        convert(rgb.data(), image.Width);
        for (int x = 0; x < image.Width; ++x) {
            float* p = image.Pixel(x, y);
            const float a = p[3];
            const bool divide = a > 0.0f && a != 1.0f;
            for (int c = 0; c < 3; ++c) p[kRecordPosition[c]] = divide ? rgb[3 * x + c] * a : rgb[3 * x + c];
        }
    }
}

void Apply(const OIIO::ColorProcessor& processor, float* rgb, int n)
{
    constexpr OIIO::stride_t kFloat = sizeof(float);
    processor.apply(rgb, n, 1, 3, kFloat, 3 * kFloat, 3 * kFloat * n);
}

// The sampled transfer at `v` in 0..1, linear between samples.
float Lookup(const std::vector<float>& samples, float v)
{
    const double pos = static_cast<double>(v) * (kSamples - 1);
    const int i = std::min(static_cast<int>(pos), kSamples - 2);
    const double f = pos - i;
    return static_cast<float>(samples[i] + f * (static_cast<double>(samples[i + 1]) - samples[i]));
}

// The inverse of Lookup for `u` between the first and last sample.
float Invert(const std::vector<float>& samples, float u)
{
    const auto above = std::upper_bound(samples.begin(), samples.end(), u);
    const int i = std::clamp(static_cast<int>(above - samples.begin()) - 1, 0, kSamples - 2);
    const double f = (static_cast<double>(u) - samples[i]) / (static_cast<double>(samples[i + 1]) - samples[i]);
    return static_cast<float>((i + f) / (kSamples - 1));
}

}  // namespace

ColourSpaces::ColourSpaces() : m_config(std::make_unique<OIIO::ColorConfig>())
{
    const char* ocio = std::getenv("OCIO");
    const std::string why = m_config->geterror();  // the built-in spaces stand in when $OCIO is unset
    if (ocio && *ocio && !why.empty())
        throw FileError(std::string("cannot read the colour configuration $OCIO=") + ocio + ": " + why);
    const char* role = m_config->getColorSpaceNameByRole(kWorkingRole);
    m_working = role && *role ? role : kLinear;
}

std::string ColourSpaces::OfFile(const ImageSpec& layout) const
{
    const std::string named = layout.get_string_attribute(kColourSpaceAttribute);
    if (!named.empty()) return named;
    return layout.format.is_floating_point() ? m_working : kIntegerDefault;
}

bool ColourSpaces::IsWorking(const std::string& name) const
{
    // Files name linear light in many ways ("Linear" from OpenEXR, say).
    return OIIO::Strutil::iequals(name, m_working) || OIIO::Strutil::iequals(name, kLinear) ||
           OIIO::Strutil::iequals(name, kWorkingRole);
}

void ColourSpaces::Check(const std::string& name, const std::string& what) const { Find(name, what, Exit::Usage); }

const ColourSpaces::Transfer* ColourSpaces::Find(const std::string& name, const std::string& what, Exit kind) const
{
    if (IsWorking(name)) return nullptr;
    if (const auto it = m_transfers.find(name); it != m_transfers.end()) return &it->second;
    Transfer t;
    t.in = m_config->createColorProcessor(name, m_working);
    t.out = m_config->createColorProcessor(m_working, name);
    if (!t.in || !t.out) {
        m_config->geterror();
        const std::string known = OIIO::Strutil::join(m_config->getColorSpaceNames(), ", ");
        const std::string hint = kind == Exit::File ? "; name its space with --colorspace-in, or filter the values "
                                                      "as stored with --raw"
                                                    : "";
        throw ProgramError(kind, what + ": colour space \"" + name + "\" is not in the colour configuration (" +
                                     m_config->configname() + ", which has " + known + ")" + hint);
    }
    if (!t.in->hasChannelCrosstalk()) {
        std::vector<float> rgb(3 * kSamples);
        for (int i = 0; i < kSamples; ++i) rgb[3 * i] = rgb[3 * i + 1] = rgb[3 * i + 2] = static_cast<float>(i) / (kSamples - 1);
        Apply(*t.in, rgb.data(), kSamples);
        bool increasing = true;
        for (int c = 0; c < 3; ++c) {
            t.samples[c].resize(kSamples);
            for (int i = 0; i < kSamples; ++i) t.samples[c][i] = rgb[3 * i + c];
            increasing = increasing && std::adjacent_find(t.samples[c].begin(), t.samples[c].end(),
                                                          std::greater_equal<float>()) == t.samples[c].end();
        }
        if (!increasing)
            for (auto& s : t.samples) s.clear();
    }
    return &m_transfers.emplace(name, std::move(t)).first->second;
}

void ColourSpaces::ToWorking(Image& image, const std::string& from, const std::string& file) const
{
    const Transfer* t = Find(from, file, Exit::File);
    if (!t) return;
    std::vector<float> exact;
    EachRow(image, [&](float* rgb, int n) {
        exact.assign(rgb, rgb + 3 * n);
        Apply(*t->in, rgb, n);
        if (t->samples[0].empty()) return;
        for (int i = 0; i < 3 * n; ++i)
            if (exact[i] >= 0.0f && exact[i] <= 1.0f) rgb[i] = Lookup(t->samples[i % 3], exact[i]);
    });
}

void ColourSpaces::FromWorking(Image& image, const std::string& to) const
{
    const Transfer* t = Find(to, "--colorspace-out", Exit::Usage);
    if (!t) return;
    std::vector<float> linear;
    EachRow(image, [&](float* rgb, int n) {
        linear.assign(rgb, rgb + 3 * n);
        Apply(*t->out, rgb, n);
        if (t->samples[0].empty()) return;
        for (int i = 0; i < 3 * n; ++i) {
            const std::vector<float>& s = t->samples[i % 3];
            if (linear[i] >= s.front() && linear[i] <= s.back()) rgb[i] = Invert(s, linear[i]);
        }
    });
}
