#include "app/files/ColourSpaces.h"

#include "util/Text.h"

#include <algorithm>
#include <cstdlib>

namespace {

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

const char* ConfigVariable()
{
    const char* ocio = std::getenv("OCIO");
    return ocio && *ocio ? ocio : nullptr;
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

ColourSpaces::ColourSpaces() : m_working(kLinear)
{
    // The built-in spaces, which stand in when $OCIO is unset, work in "linear".
    if (!ConfigVariable()) return;
    const std::string role = Config().SpaceOfRole(kWorkingRole);
    if (!role.empty()) m_working = role;
}

const ColourConfig& ColourSpaces::Config() const
{
    const std::lock_guard<std::recursive_mutex> hold(m_mutex);
    if (!m_config) {
        std::unique_ptr<ColourConfig> config = Codec().Colours();
        const std::string why = config->Error();
        if (const char* ocio = ConfigVariable(); ocio && !why.empty())
            throw FileError(std::string("cannot read the colour configuration $OCIO=") + ocio + ": " + why);
        m_config = std::move(config);
    }
    return *m_config;
}

std::string ColourSpaces::OfFile(const FileLayout& layout) const
{
    if (!layout.colourSpace.empty()) return layout.colourSpace;
    return layout.floating ? m_working : kIntegerDefault;
}

bool ColourSpaces::IsWorking(const std::string& name) const
{
    // Files name linear light in many ways ("Linear" from OpenEXR, say).
    return SameIgnoringCase(name, m_working) || SameIgnoringCase(name, kLinear) || SameIgnoringCase(name, kWorkingRole);
}

ColourConfig::Displays ColourSpaces::Displays() const
{
    if (!ConfigVariable()) return {};
    return Config().DisplaysAndViews();
}

std::unique_ptr<ColourProcessor> ColourSpaces::ToDisplay(const std::string& display, const std::string& view) const
{
    if (ConfigVariable())
        if (std::unique_ptr<ColourProcessor> p = Config().DisplayProcessor(display, view, m_working)) return p;
    std::vector<std::string> pairs;
    for (const auto& [name, views] : Displays())
        for (const std::string& v : views) pairs.push_back(name + "/" + v);
    throw UsageError("display \"" + display + "\", view \"" + view + "\": not in the colour configuration (" +
                     (pairs.empty() ? std::string("it has none; set $OCIO to a configuration with displays")
                                    : "it has " + Join(pairs)) +
                     ")");
}

void ColourSpaces::Check(const std::string& name, const std::string& what) const { Find(name, what, Exit::Usage); }

const ColourSpaces::Transfer* ColourSpaces::Find(const std::string& name, const std::string& what, Exit kind) const
{
    if (IsWorking(name)) return nullptr;
    const std::lock_guard<std::recursive_mutex> hold(m_mutex);
    if (const auto it = m_transfers.find(name); it != m_transfers.end()) return &it->second;
    const ColourConfig& config = Config();
    Transfer t;
    t.in = config.Processor(name, m_working);
    t.out = config.Processor(m_working, name);
    if (!t.in || !t.out) {
        const std::string known = Join(config.Spaces());
        const std::string hint = kind == Exit::File ? "; name its space with --colorspace-in, or filter the values "
                                                      "as stored with --raw"
                                                    : "";
        throw ProgramError(kind, what + ": colour space \"" + name + "\" is not in the colour configuration (" +
                                     config.Name() + ", which has " + known + ")" + hint);
    }
    if (!t.in->Crosstalk()) {
        std::vector<float> rgb(3 * kSamples);
        for (int i = 0; i < kSamples; ++i) rgb[3 * i] = rgb[3 * i + 1] = rgb[3 * i + 2] = static_cast<float>(i) / (kSamples - 1);
        t.in->Apply(rgb.data(), kSamples);
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
        t->in->Apply(rgb, n);
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
        t->out->Apply(rgb, n);
        if (t->samples[0].empty()) return;
        for (int i = 0; i < 3 * n; ++i) {
            const std::vector<float>& s = t->samples[i % 3];
            if (linear[i] >= s.front() && linear[i] <= s.back()) rgb[i] = Invert(s, linear[i]);
        }
    });
}
