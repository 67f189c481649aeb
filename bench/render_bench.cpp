// Whole renders through the host model, timed frame by frame. One configuration per process, so that the process's
// peak resident memory belongs to that configuration alone; bench/report.py runs
// it once per configuration and prints the tables.
//
//   bench_render render WIDTH HEIGHT CONFIG FRAMES [DATA_DIR]
//       renders FRAMES frames of a WIDTHxHEIGHT RGBA float plate; prints one JSON
//       line: the first frame, the median of the others, the plans made during each,
//       the transform sizes. With DATA_DIR, also writes the plate and the
//       normalised kernels (.npy) for the other tools, the kernel image when the
//       configuration connects one, and our result. No image library is linked
//       here: its start-up memory would hide the render's own.
// The floor the render is held against is bench_fftw_floor (fftw_floor.cpp), which
// is given the kernel edges this prints.
//
// CONFIG: disk1, disk2.5, disk5, polygon, gaussian, kernel-image, per-channel,
// deconvolve, wrap and black (Disk 2.5 % with those edges), or disk-px:N (a disk
// of N pixels, absolute).
#include "fft/FftBuffers.h"
#include "fft/FftPlans.h"
#include "fft/StagedTransform.h"
#include "fft/FrequencyArray.h"
#include "host/FusionDoc.h"
#include "host/Image.h"
#include "host/Tags.h"
#include "host/WorkerPool.h"
#include "kernel/KernelSize.h"
#include "tool/Lumivane2.h"
#include "tool/Registration.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Config {
    std::vector<std::pair<std::string, double>> controls;  // applied in this order
    bool kernelImage = false;
};

// The same control settings are given to the program as --set ID=VALUE.
Config ConfigNamed(const std::string& name)
{
    Config c;
    auto relative = [&c](double percent) { c.controls.push_back({"BlurSizeX", percent}); };
    if (name == "disk1") relative(1.0);
    else if (name == "disk2.5") relative(2.5);
    else if (name == "disk5") relative(5.0);
    else if (name == "polygon") {
        c.controls = {{"BlurStyle", 1}, {"PolygonSideCount", 6}, {"KernelAngle", 15}, {"BadBokeh", 0.5}};
        relative(2.5);
    } else if (name == "gaussian") {
        c.controls = {{"BlurStyle", 2}};
        relative(2.5);
    } else if (name == "kernel-image") {
        c.kernelImage = true;
        relative(2.5);
    } else if (name == "per-channel") {
        // Releasing the lock copies red into green and blue; then each gets its own.
        c.controls = {{"BlurSizeX", 2.0}, {"PerChannel", 0}, {"GreenBlurSizeX", 2.5}, {"BlueBlurSizeX", 3.0}};
    } else if (name == "deconvolve") {
        c.controls = {{"Operation", 1}, {"WienerParam", 0.001}};
        relative(2.5);
    } else if (name == "wrap" || name == "black") {
        c.controls = {{"Edges", name == "wrap" ? 1 : 2}};
        relative(2.5);
    } else if (name.rfind("disk-px:", 0) == 0) {
        c.controls = {{"BlurSizeUnit", 1}, {"BlurSizeX", std::stod(name.substr(8))}};
    } else
        throw std::runtime_error("unknown configuration " + name);
    return c;
}

// Smooth colour, a few hard edges and bright points (where a disk blur shows its
// shape), alpha that varies: the values matter only for the cross-checks.
Image* MakePlate(int w, int h)
{
    auto* img = new Image(w, h, IMDP_Float32);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(0.0f, 0.05f);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float u = static_cast<float>(x) / w, v = static_cast<float>(y) / h;
            float* p = img->Pixel(x, y);  // B, G, R, A
            const float edge = ((x / 64 + y / 64) % 2) ? 0.8f : 0.1f;
            const float spark = (x % 97 == 13 && y % 89 == 7) ? 40.0f : 0.0f;
            p[2] = 0.5f * u + 0.3f * edge + spark + noise(random);
            p[1] = 0.5f * v + 0.2f * edge + 0.5f * spark + noise(random);
            p[0] = 0.3f + 0.4f * std::sin(6.0f * u) * std::cos(4.0f * v) + 0.25f * spark;
            p[3] = std::min(1.0f, 0.25f + 0.75f * edge + noise(random));
        }
    return img;
}

// A chromatic bokeh: red a little larger than green, green than blue.
Image* MakeKernelImage()
{
    constexpr int side = 65;
    auto* img = new Image(side, side, IMDP_Float32);
    const double c = (side - 1) / 2.0;
    const double radius[3] = {32.0, 30.0, 28.0};  // red, green, blue
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const double r = std::hypot(x - c, y - c);
            float* p = img->Pixel(x, y);
            for (int k = 0; k < 3; ++k)
                p[2 - k] = static_cast<float>(std::clamp(radius[k] - r + 0.5, 0.0, 1.0) * (0.6 + 0.4 * r / c));
            p[3] = 1.0f;
        }
    return img;
}

struct Session {
    FusionDoc doc;
    Lumivane2* tool = nullptr;
    Ref<Image> plate, kernel;

    Session(int w, int h, const Config& config)
    {
        Lumivane2Registry();
        tool = static_cast<Lumivane2*>(doc.AddTool(FuID("tevrinworks.Lumivane2")));
        plate = Ref<Image>(MakePlate(w, h));
        tool->FindInput("input")->SetSource(plate.get(), 0.0);
        if (config.kernelImage) {
            kernel = Ref<Image>(MakeKernelImage());
            tool->FindInput("kernel")->SetSource(kernel.get(), 0.0);
        }
        for (const auto& [id, value] : config.controls) {
            Input* in = tool->FindInput(id);
            if (!in) throw std::runtime_error("no control " + id);
            Ref<Number> n(new Number(value));
            in->SetSource(n.get(), 0.0);
        }
    }

    Ref<Image> Render(double time)
    {
        doc.ClearConsole();
        Ref<Parameter> p = doc.Render(tool, time);
        Ref<Image> out(static_cast<Image*>(p.release()));
        if (!out) {
            std::string why = "the render set no output";
            for (const ConsoleLine& l : doc.Console())
                if (l.SubID == CONSOLE_Error) why = l.Text;
            throw std::runtime_error(why);
        }
        return out;
    }
};

double Median(std::vector<double> v)
{
    if (v.empty()) return 0.0;
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

double Seconds(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

// User plus system time of the whole process, every thread: the work a frame
// does, which other jobs on the machine disturb less than the wall clock.
double ProcessCpuSeconds()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_utime.tv_sec + u.ru_stime.tv_sec + 1e-6 * (u.ru_utime.tv_usec + u.ru_stime.tv_usec);
}

// A little-endian .npy file of the given shape.
void WriteNpy(const std::string& path, const char* dtype, const std::vector<std::size_t>& shape, const void* data,
              std::size_t bytes)
{
    std::string shapeText = "(";
    for (std::size_t s : shape) shapeText += std::to_string(s) + ", ";
    if (shape.size() > 1) shapeText.erase(shapeText.size() - 2);
    shapeText += shape.size() == 1 ? ")" : ")";
    std::string header =
        "{'descr': '" + std::string(dtype) + "', 'fortran_order': False, 'shape': " + shapeText + ", }";
    while ((10 + header.size() + 1) % 64) header += ' ';
    header += '\n';
    std::ofstream out(path, std::ios::binary);
    out.write("\x93NUMPY\x01\x00", 8);
    const std::uint16_t length = static_cast<std::uint16_t>(header.size());
    out.put(static_cast<char>(length & 0xff));
    out.put(static_cast<char>(length >> 8));
    out << header;
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(bytes));
    if (!out) throw std::runtime_error("cannot write " + path);
}

// Height x width x 4 floats, red, green, blue, alpha.
std::vector<float> Rgba(const Image& img)
{
    std::vector<float> v(static_cast<std::size_t>(img.Width) * img.Height * 4);
    for (int y = 0; y < img.Height; ++y)
        for (int x = 0; x < img.Width; ++x) {
            const float* p = img.Pixel(x, y);
            float* q = &v[(static_cast<std::size_t>(y) * img.Width + x) * 4];
            q[0] = p[2], q[1] = p[1], q[2] = p[0], q[3] = p[3];
        }
    return v;
}

void WriteRgba(const std::string& path, const Image& img)
{
    const std::vector<float> v = Rgba(img);
    WriteNpy(path, "<f4", {static_cast<std::size_t>(img.Height), static_cast<std::size_t>(img.Width), 4}, v.data(),
             v.size() * sizeof(float));
}

// Each colour's kernel exactly as the render normalises it before the transform
// (divided by the larger of its positive and negative sums), in double.
void WriteKernels(const std::string& dir, Lumivane2& tool)
{
    for (int c = 0; c < 3; ++c) {
        Ref<Image> k(tool.ObtainKernel(c));
        double positive = 0, negative = 0;
        std::vector<double> v(static_cast<std::size_t>(k->Width) * k->Height);
        for (int y = 0; y < k->Height; ++y)
            for (int x = 0; x < k->Width; ++x) {
                const float s = k->Pixel(x, y)[2 - c];
                (s >= 0 ? positive : negative) += std::abs(static_cast<double>(s));
                v[static_cast<std::size_t>(y) * k->Width + x] = s;
            }
        const double scale = 1.0 / std::max(positive, negative);
        for (double& s : v) s *= scale;
        WriteNpy(dir + "/kernel" + std::to_string(c) + ".npy", "<f8",
                 {static_cast<std::size_t>(k->Height), static_cast<std::size_t>(k->Width)}, v.data(),
                 v.size() * sizeof(double));
    }
}

// Transform sizes and how many distinct kernels and planes the frame has: each
// distinct kernel is transformed once; red, green and blue are planes of their own,
// and alpha is one plane per distinct kernel.
struct FrameShape {
    Lumivane2::TransformSize size[3];
    std::vector<int> kernels;  // colours that own a distinct kernel
    std::vector<int> planes;   // the colour of each distinct plane
};

FrameShape ShapeOf(const Lumivane2& tool)
{
    FrameShape s;
    for (int c = 0; c < 3; ++c) {
        s.size[c] = tool.TransformSizeFor(c);
        if (tool.kernelSpectra.Owner(c) == c) s.kernels.push_back(c);
    }
    s.planes = {0, 1, 2};
    for (int c : s.kernels) s.planes.push_back(c);
    return s;
}

// The distinct kernels' edges, "WxH" separated by commas.
std::string KernelEdgesText(const FrameShape& s)
{
    std::string t;
    for (int c : s.kernels)
        t += (t.empty() ? "" : ",") + std::to_string(s.size[c].kernelWidth) + "x" +
             std::to_string(s.size[c].kernelHeight);
    return t;
}

std::string SizesText(const FrameShape& s)
{
    std::string t;
    for (int c : s.kernels) {
        if (!t.empty()) t += " ";
        t += std::to_string(s.size[c].width) + "x" + std::to_string(s.size[c].height) + "(k" +
             std::to_string(s.size[c].kernelWidth) + ")";
    }
    return t;
}

long PeakResidentKiB()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    return 0;
}

int Render(int w, int h, const std::string& name, int frames, const std::string& dir)
{
    Session s(w, h, ConfigNamed(name));
    std::vector<double> times, cpu;
    std::vector<std::uint64_t> plans;
    Ref<Image> out;
    for (int f = 0; f < frames; ++f) {
        out = Ref<Image>();  // written out and dropped before the next frame, as the program does
        const std::uint64_t before = FftPlansCreated();
        const double c0 = ProcessCpuSeconds();
        const auto t0 = Clock::now();
        out = s.Render(0.0);
        const auto t1 = Clock::now();
        times.push_back(Seconds(t0, t1));
        cpu.push_back(ProcessCpuSeconds() - c0);
        plans.push_back(FftPlansCreated() - before);
    }
    const FrameShape shape = ShapeOf(*s.tool);
    std::uint64_t laterPlans = 0;
    for (std::size_t f = 1; f < plans.size(); ++f) laterPlans += plans[f];
    const std::size_t warm = frames > 1 ? 1 : 0;  // the first frame is reported on its own
    std::printf("{\"mode\": \"render\", \"config\": \"%s\", \"width\": %d, \"height\": %d, \"frames\": %d, "
                "\"first\": %.6f, \"median\": %.6f, \"min\": %.6f, \"cpu\": %.6f, \"plans_first\": %llu, "
                "\"plans_later\": %llu, \"kernels\": %zu, \"planes\": %zu, \"transforms\": %zu, \"sizes\": \"%s\", "
                "\"kernel_edges\": \"%s\", \"threads\": %u, \"peak_kib\": %ld}\n",
                name.c_str(), w, h, frames, times[0], Median(std::vector<double>(times.begin() + warm, times.end())),
                *std::min_element(times.begin(), times.end()),
                Median(std::vector<double>(cpu.begin() + warm, cpu.end())), static_cast<unsigned long long>(plans[0]),
                static_cast<unsigned long long>(laterPlans), shape.kernels.size(), shape.planes.size(),
                shape.kernels.size() + 2 * shape.planes.size(), SizesText(shape).c_str(),
                KernelEdgesText(shape).c_str(), WorkerPool::Shared().ThreadCount(), PeakResidentKiB());
    std::fflush(stdout);

    if (!dir.empty()) {
        WriteRgba(dir + "/image.npy", *s.plate);
        WriteRgba(dir + "/ours.npy", *out);
        WriteKernels(dir, *s.tool);
        if (s.kernel) WriteRgba(dir + "/kernel_image.npy", *s.kernel);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        const std::string mode = argc > 1 ? argv[1] : "";
        if (argc >= 6 && mode == "render")
            return Render(std::atoi(argv[2]), std::atoi(argv[3]), argv[4], std::max(1, std::atoi(argv[5])),
                          argc > 6 ? argv[6] : "");
        std::fprintf(stderr,
                     "usage: bench_render render WIDTH HEIGHT CONFIG FRAMES [DATA_DIR]\n");
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_render: %s\n", e.what());
        return 1;
    }
}
