#pragma once
// Running the lumivane program in a scratch folder, and the image files the
// end-to-end tests feed it.
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagecache.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

struct RunResult {
    int status = -1;  // exit status, or 128 + signal
    std::string out;
    std::string err;
};

// A folder of its own for each test, removed afterwards (write permission given
// back first, for tests that take it away).
class ScratchFolder {
public:
    ScratchFolder()
    {
        m_path = (std::filesystem::temp_directory_path() / "lumivane-app-XXXXXX").string();
        if (!::mkdtemp(m_path.data())) throw std::runtime_error("cannot make a scratch folder");
    }
    ~ScratchFolder()
    {
        namespace fs = std::filesystem;
        std::error_code ec;
        fs::permissions(m_path, fs::perms::owner_all, fs::perm_options::add, ec);
        for (const auto& e : fs::recursive_directory_iterator(m_path, ec))
            if (e.is_directory(ec)) fs::permissions(e.path(), fs::perms::owner_all, fs::perm_options::add, ec);
        fs::remove_all(m_path, ec);
    }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    const std::string& Path() const { return m_path; }
    // Names of the files in the folder (or a sub-folder), hidden ones included, sorted.
    std::vector<std::string> Files(const std::string& sub = "") const
    {
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(m_path + "/" + sub))
            names.push_back(e.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string m_path;
};

inline std::string Quoted(const std::string& s)
{
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Runs the program with `args` in `folder`, without LUMIVANE_PLUGIN_PATH.
// `shellSetup` runs first in the same shell (a `ulimit`, say); `runner` is a
// command the program runs under (another user, say).
inline RunResult RunLumivane(const ScratchFolder& folder, const std::vector<std::string>& args,
                             const std::string& shellSetup = {}, const std::string& runner = {})
{
    const std::string outFile = folder / ".run.out", errFile = folder / ".run.err";
    std::string cmd = "cd " + Quoted(folder.Path()) + " && " + (shellSetup.empty() ? "" : shellSetup + " && ") +
                      runner + " env -u LUMIVANE_PLUGIN_PATH LUMIVANE_THREADS=2 " + Quoted(LUMIVANE_EXE);
    for (const std::string& a : args) cmd += " " + Quoted(a);
    const int raw = std::system((cmd + " >" + Quoted(outFile) + " 2>" + Quoted(errFile)).c_str());
    RunResult r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    for (auto [file, text] : {std::pair{&outFile, &r.out}, {&errFile, &r.err}}) {
        std::stringstream s;
        s << std::ifstream(*file).rdbuf();
        *text = s.str();
        std::remove(file->c_str());
    }
    return r;
}

// A deterministic test picture: smooth ramps plus a few bright points, with
// values above 1 when `hdr`.
inline OIIO::ImageBuf TestPicture(int width, int height, const std::vector<std::string>& channels, bool hdr)
{
    const int n = static_cast<int>(channels.size());
    OIIO::ImageSpec layout(width, height, n, OIIO::TypeDesc::FLOAT);
    layout.channelnames = channels;
    const auto alpha = std::find(channels.begin(), channels.end(), "A");
    layout.alpha_channel = alpha == channels.end() ? -1 : static_cast<int>(alpha - channels.begin());
    OIIO::ImageBuf buf(layout);
    std::vector<float> px(n);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            // Multiples of 1/255 keep 8-bit files exact; the points exceed 1 for HDR files.
            for (int c = 0; c < n; ++c) {
                const int level = (x * 7 + y * 13 + c * 61) % 256;
                px[c] = c == layout.alpha_channel ? (level % 2 ? 1.0f : 0.5f)
                        : hdr && (x * 31 + y * 17) % 97 == 0 ? 12.0f + c : level / 255.0f;
            }
            buf.setpixel(x, y, px.data());
        }
    return buf;
}

inline void WriteFile(const OIIO::ImageBuf& image, const std::string& path, OIIO::TypeDesc format)
{
    if (!image.write(path, format)) throw std::runtime_error("cannot write test file " + path + ": " + image.geterror());
}

// The file as it is now: the shared image cache would give back what an earlier
// read of the same name found.
inline OIIO::ImageBuf ReadFile(const std::string& path)
{
    OIIO::ImageCache::create()->invalidate(OIIO::ustring(path));
    OIIO::ImageBuf buf(path);
    if (!buf.read(0, 0, true, OIIO::TypeDesc::FLOAT)) throw std::runtime_error("cannot read " + path + ": " + buf.geterror());
    return buf;
}

// Largest absolute difference over all channels and pixels, with where it is;
// images of different size or channel count compare as infinitely different.
struct Difference {
    double worst = 0.0;
    int x = 0, y = 0, channel = 0;
};

inline Difference Compare(const OIIO::ImageBuf& a, const OIIO::ImageBuf& b)
{
    const OIIO::ImageSpec &sa = a.spec(), &sb = b.spec();
    if (sa.width != sb.width || sa.height != sb.height || sa.nchannels != sb.nchannels)
        return {std::numeric_limits<double>::infinity()};
    std::vector<float> pa(sa.image_pixels() * sa.nchannels), pb(pa.size());
    a.get_pixels(a.roi(), OIIO::TypeDesc::FLOAT, pa.data());
    b.get_pixels(b.roi(), OIIO::TypeDesc::FLOAT, pb.data());
    Difference d;
    for (std::size_t i = 0; i < pa.size(); ++i) {
        const double diff = std::fabs(static_cast<double>(pa[i]) - pb[i]);
        const int pixel = static_cast<int>(i) / sa.nchannels;
        if (diff > d.worst || std::isnan(diff))
            d = {std::isnan(diff) ? 1e30 : diff, pixel % sa.width, pixel / sa.width, static_cast<int>(i) % sa.nchannels};
    }
    return d;
}

inline std::ostream& operator<<(std::ostream& out, const Difference& d)
{
    return out << "worst difference " << d.worst << " at (" << d.x << ", " << d.y << ") channel " << d.channel;
}
