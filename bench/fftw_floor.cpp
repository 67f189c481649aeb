// The transforms a blurred RGBA frame cannot do without, done by FFTW alone: none
// of the project's code is linked, so the render can be measured against it.
//
//   bench_fftw_floor WIDTH HEIGHT KERNELS REPEATS [THREADS]
//
// KERNELS lists the distinct kernels, each WxH or a single edge ("49", or
// "39x39,49x49,59x59" when red, green and blue have their own). A frame is:
//   - one forward transform per distinct kernel;
//   - one forward transform each of red, green, blue and alpha;
//   - for each colour the product of its spectrum with its kernel's and one
//     inverse; alpha once per distinct kernel (the output alpha needs each).
// Every transform is real-to-complex or complex-to-real, out of place, at the
// smallest size with no prime factor above 7 that holds image + kernel - 1 on
// each side (the largest kernel's), planned with FFTW_MEASURE before timing.
// THREADS (default 2) workers take the transforms as jobs (each plan single-
// threaded, FFTW's new-array execute); forwards first, then product + inverse.
// The same frame is also timed with FFTW's own threads on each transform, one
// transform after the other; the floor is the faster of the two. Prints one
// JSON line; times are medians of REPEATS (and the fastest repeat), in seconds.
#include <fftw3.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kColours = 3;

int SmoothAtLeast(int n)
{
    for (int m = std::max(n, 1);; ++m) {
        int r = m;
        for (int p : {2, 3, 5, 7})
            while (r % p == 0) r /= p;
        if (r == 1) return m;
    }
}

struct KernelEdge {
    int width, height;
};

std::vector<KernelEdge> ParseKernels(const std::string& text)
{
    std::vector<KernelEdge> kernels;
    std::size_t at = 0;
    while (at <= text.size()) {
        const std::size_t end = std::min(text.find(',', at), text.size());
        const std::string item = text.substr(at, end - at);
        const std::size_t x = item.find('x');
        const int w = std::atoi(item.c_str());
        const int h = x == std::string::npos ? w : std::atoi(item.c_str() + x + 1);
        if (w < 1 || h < 1) throw std::runtime_error("kernel edge \"" + item + "\": give WxH or one edge, at least 1");
        kernels.push_back({w, h});
        at = end + 1;
    }
    if (kernels.size() != 1 && kernels.size() != kColours)
        throw std::runtime_error("give one kernel (shared by the colours) or three (red, green, blue)");
    return kernels;
}

template <typename T>
struct FftwArray {
    T* data = nullptr;
    explicit FftwArray(std::size_t n) : data(static_cast<T*>(fftw_malloc(n * sizeof(T))))
    {
        if (!data) throw std::runtime_error("out of memory");
    }
    ~FftwArray() { fftw_free(data); }
    FftwArray(const FftwArray&) = delete;
    FftwArray(FftwArray&& o) noexcept : data(o.data) { o.data = nullptr; }
};
using Real = FftwArray<double>;
using Spectrum = FftwArray<fftw_complex>;

// Runs jobs 0..n-1 on `threads` threads and returns when all are done.
void RunJobs(int n, int threads, const std::function<void(int, int)>& job)
{
    std::atomic<int> next{0};
    auto worker = [&](int slot) {
        for (int j; (j = next++) < n;) job(j, slot);
    };
    std::vector<std::thread> pool;
    for (int t = 1; t < threads; ++t) pool.emplace_back(worker, t);
    worker(0);
    for (auto& t : pool) t.join();
}

double Median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.size() % 2 ? v[v.size() / 2] : 0.5 * (v[v.size() / 2 - 1] + v[v.size() / 2]);
}

void Multiply(const fftw_complex* a, const fftw_complex* b, fftw_complex* out, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i) {
        const double re = a[i][0] * b[i][0] - a[i][1] * b[i][1];
        const double im = a[i][0] * b[i][1] + a[i][1] * b[i][0];
        out[i][0] = re;
        out[i][1] = im;
    }
}

int Floor(int width, int height, const std::vector<KernelEdge>& kernels, int repeats, int threads)
{
    int kw = 0, kh = 0;
    for (const KernelEdge& k : kernels) kw = std::max(kw, k.width), kh = std::max(kh, k.height);
    const int w = SmoothAtLeast(width + kw - 1), h = SmoothAtLeast(height + kh - 1);
    const std::size_t reals = static_cast<std::size_t>(w) * h;
    const std::size_t complexes = static_cast<std::size_t>(w / 2 + 1) * h;
    const int planeCount = kColours + 1;  // red, green, blue, alpha
    const int kernelCount = static_cast<int>(kernels.size());
    // Inverses: each colour with its kernel, alpha with every distinct kernel.
    std::vector<std::pair<int, int>> inverses;  // (plane, kernel)
    for (int c = 0; c < kColours; ++c) inverses.push_back({c, kernelCount == 1 ? 0 : c});
    for (int k = 0; k < kernelCount; ++k) inverses.push_back({kColours, k});

    std::vector<Real> inputs, outputs;
    std::vector<Spectrum> spectra, products;
    for (int i = 0; i < kernelCount + planeCount; ++i) inputs.emplace_back(reals), spectra.emplace_back(complexes);
    for (int t = 0; t < threads; ++t) outputs.emplace_back(reals), products.emplace_back(complexes);

    // Plans, measured once for the size, each used on every array by the new-array
    // execute functions (all arrays come from fftw_malloc, so alignment matches).
    fftw_plan forward = fftw_plan_dft_r2c_2d(h, w, inputs[0].data, spectra[0].data, FFTW_MEASURE);
    fftw_plan inverse = fftw_plan_dft_c2r_2d(h, w, products[0].data, outputs[0].data, FFTW_MEASURE);
    fftw_plan_with_nthreads(threads);
    fftw_plan forwardThreaded = fftw_plan_dft_r2c_2d(h, w, inputs[0].data, spectra[0].data, FFTW_MEASURE);
    fftw_plan inverseThreaded = fftw_plan_dft_c2r_2d(h, w, products[0].data, outputs[0].data, FFTW_MEASURE);
    if (!forward || !inverse || !forwardThreaded || !inverseThreaded) throw std::runtime_error("FFTW made no plan");

    std::mt19937 random(5);
    std::uniform_real_distribution<double> value(0.0, 1.0);
    for (auto& in : inputs)
        for (std::size_t i = 0; i < reals; ++i) in.data[i] = value(random);

    const int forwards = kernelCount + planeCount;
    const int backs = static_cast<int>(inverses.size());
    auto inverseJob = [&](int j, int slot, fftw_plan plan) {
        const auto [plane, kernel] = inverses[j];
        Multiply(spectra[kernelCount + plane].data, spectra[kernel].data, products[slot].data, complexes);
        fftw_execute_dft_c2r(plan, products[slot].data, outputs[slot].data);
    };

    std::vector<double> jobs, fftwThreads;
    for (int r = 0; r < repeats; ++r) {
        auto t0 = Clock::now();
        RunJobs(forwards, threads, [&](int j, int) { fftw_execute_dft_r2c(forward, inputs[j].data, spectra[j].data); });
        RunJobs(backs, threads, [&](int j, int slot) { inverseJob(j, slot, inverse); });
        jobs.push_back(std::chrono::duration<double>(Clock::now() - t0).count());

        t0 = Clock::now();
        for (int j = 0; j < forwards; ++j) fftw_execute_dft_r2c(forwardThreaded, inputs[j].data, spectra[j].data);
        for (int j = 0; j < backs; ++j) inverseJob(j, 0, inverseThreaded);
        fftwThreads.push_back(std::chrono::duration<double>(Clock::now() - t0).count());
    }
    for (fftw_plan p : {forward, inverse, forwardThreaded, inverseThreaded}) fftw_destroy_plan(p);

    const double a = Median(jobs), b = Median(fftwThreads);
    const double fastest = std::min(*std::min_element(jobs.begin(), jobs.end()),
                                    *std::min_element(fftwThreads.begin(), fftwThreads.end()));
    std::printf("{\"mode\": \"fftw-floor\", \"width\": %d, \"height\": %d, \"kernels\": \"%s\", \"repeats\": %d, "
                "\"threads\": %d, \"floor\": %.6f, \"min\": %.6f, \"jobs\": %.6f, \"fftw_threads\": %.6f, \"transforms\": %d, "
                "\"sizes\": \"%dx%d\"}\n",
                width, height, [&] {
                    std::string t;
                    for (const KernelEdge& k : kernels)
                        t += (t.empty() ? "" : ",") + std::to_string(k.width) + "x" + std::to_string(k.height);
                    return t;
                }().c_str(),
                repeats, threads, std::min(a, b), fastest, a, b, forwards + backs, w, h);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 5) {
        std::fprintf(stderr, "usage: bench_fftw_floor WIDTH HEIGHT KERNELS REPEATS [THREADS]\n");
        return 2;
    }
    try {
        const int width = std::atoi(argv[1]), height = std::atoi(argv[2]);
        const int repeats = std::max(1, std::atoi(argv[4]));
        const int threads = argc > 5 ? std::max(1, std::atoi(argv[5])) : 2;
        if (width < 1 || height < 1) throw std::runtime_error("the image's width and height must be at least 1");
        if (!fftw_init_threads()) throw std::runtime_error("FFTW's threads did not start");
        return Floor(width, height, ParseKernels(argv[3]), repeats, threads);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_fftw_floor: %s\n", e.what());
        return 1;
    }
}
