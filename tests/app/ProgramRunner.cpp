#include "ProgramRunner.h"

#include <OpenImageIO/imagebufalgo.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string Quoted(const std::string& s)
{
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

std::string Slurp(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace

ScratchFolder::ScratchFolder()
{
    std::string tmpl = (fs::temp_directory_path() / "lumivane-app-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) throw std::runtime_error("cannot make a scratch folder");
    m_path = tmpl;
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ec;
    fs::permissions(m_path, fs::perms::owner_all, fs::perm_options::add, ec);
    for (const auto& e : fs::recursive_directory_iterator(m_path, ec))
        if (e.is_directory(ec)) fs::permissions(e.path(), fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(m_path, ec);
}

std::vector<std::string> ScratchFolder::Files(const std::string& sub) const
{
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(sub.empty() ? m_path : m_path + "/" + sub))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

RunResult RunLumivane(const ScratchFolder& folder, const std::vector<std::string>& args, const std::string& shellSetup)
{
    std::string cmd = "cd " + Quoted(folder.Path()) + " && " + (shellSetup.empty() ? "" : shellSetup + " && ") + "env -u LUMIVANE_PLUGIN_PATH LUMIVANE_THREADS=2 " +
                      Quoted(LUMIVANE_EXE);
    for (const std::string& a : args) cmd += " " + Quoted(a);
    const std::string outFile = folder / ".run.out", errFile = folder / ".run.err";
    cmd += " >" + Quoted(outFile) + " 2>" + Quoted(errFile);
    const int raw = std::system(cmd.c_str());
    RunResult r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    r.out = Slurp(outFile);
    r.err = Slurp(errFile);
    std::remove(outFile.c_str());
    std::remove(errFile.c_str());
    return r;
}

OIIO::ImageBuf TestPicture(int width, int height, const std::vector<std::string>& channels, bool hdr)
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

void WriteFile(const OIIO::ImageBuf& image, const std::string& path, OIIO::TypeDesc format)
{
    if (!image.write(path, format)) throw std::runtime_error("cannot write test file " + path + ": " + image.geterror());
}

OIIO::ImageBuf ReadFile(const std::string& path)
{
    OIIO::ImageBuf buf(path);
    if (!buf.read(0, 0, true, OIIO::TypeDesc::FLOAT)) throw std::runtime_error("cannot read " + path + ": " + buf.geterror());
    return buf;
}

Difference Compare(const OIIO::ImageBuf& a, const OIIO::ImageBuf& b)
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

std::string Describe(const Difference& d)
{
    std::ostringstream s;
    s << "worst difference " << d.worst << " at (" << d.x << ", " << d.y << ") channel " << d.channel;
    return s.str();
}
