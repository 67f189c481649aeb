#pragma once
// Running the lumivane program in a scratch folder, and the image files the
// end-to-end tests feed it.
#include <OpenImageIO/imagebuf.h>

#include <string>
#include <vector>

struct RunResult {
    int status = -1;  // exit status, or 128 + signal
    std::string out;
    std::string err;
};

// A folder of its own for each test, removed afterwards.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    const std::string& Path() const { return m_path; }
    // Names of the files in the folder (or a sub-folder), hidden ones included, sorted.
    std::vector<std::string> Files(const std::string& sub = "") const;

private:
    std::string m_path;
};

// Runs the program with `args` in `folder`, without LUMIVANE_PLUGIN_PATH.
// `shellSetup` runs first in the same shell (a `ulimit`, say).
RunResult RunLumivane(const ScratchFolder& folder, const std::vector<std::string>& args,
                      const std::string& shellSetup = {});

// A deterministic test picture: smooth ramps plus a few bright points, with
// values above 1 when `hdr`.
OIIO::ImageBuf TestPicture(int width, int height, const std::vector<std::string>& channels, bool hdr);
void WriteFile(const OIIO::ImageBuf& image, const std::string& path, OIIO::TypeDesc format);
OIIO::ImageBuf ReadFile(const std::string& path);

// Largest absolute difference over all channels and pixels, with where it is;
// images of different size or channel count compare as infinitely different.
struct Difference {
    double worst = 0.0;
    int x = 0, y = 0, channel = 0;
};
Difference Compare(const OIIO::ImageBuf& a, const OIIO::ImageBuf& b);
std::string Describe(const Difference& d);
