// The transform against a direct DFT and its stages (rows known to be zero left
// out of the forward transform, rows nobody reads left out of the inverse, the
// column stage shared between threads); the arrays' sizes and buffers (including
// ones earlier arrays left dirty) and use from many threads; the edge margins and
// the products of spectra.
#include "fft/EdgeExtension.h"
#include "fft/FftBuffers.h"
#include "fft/FftPlans.h"
#include "fft/FrequencyArray.h"
#include "fft/SpectrumOps.h"
#include "fft/StagedTransform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

// Complex bin (u, v) of a transformed array. Spectrum rows keep (width + 2) / 2
// complex values: one double short of a spatial row when the width is odd.
std::complex<double> Bin(const FrequencyArray& a, std::int32_t u, std::int32_t v)
{
    const double* at = a.data + v * 2 * ((a.width + 2) / 2) + 2 * u;
    return {at[0], at[1]};
}

// Bin (u, v) of the w x h real samples laid out with a row stride of w + 2,
// computed the slow, obvious way to check the transforms against.
std::complex<double> DirectDft(const std::vector<double>& samples, std::int32_t w, std::int32_t h, std::int32_t u,
                               std::int32_t v)
{
    constexpr double kPi = 3.14159265358979323846;
    std::complex<double> sum;
    for (std::int32_t y = 0; y < h; ++y)
        for (std::int32_t x = 0; x < w; ++x)
            sum += samples[y * (w + 2) + x] * std::polar(1.0, -2 * kPi * (double(u * x) / w + double(v * y) / h));
    return sum;
}

struct Case {
    std::uint32_t width, height;
    std::int32_t leading, trailing;  // the rows that hold samples; the others are zero
    int threads;
};

std::ostream& operator<<(std::ostream& out, const Case& c)
{
    return out << c.width << "x" << c.height << " rows " << c.leading << "+" << c.trailing << " threads " << c.threads;
}

class StagedTransform : public ::testing::TestWithParam<Case> {};

TEST_P(StagedTransform, SkippedRowsChangeNeitherTheSpectrumNorTheRowsKept)
{
    const Case c = GetParam();
    FrequencyArray a;
    a.Create(c.width, c.height);
    const std::int32_t w = a.width, h = a.height;
    // Random samples in the given rows, zeros elsewhere (the spare doubles included).
    std::mt19937 generator(w * 31 + h);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (std::int32_t i = 0; i < a.size; ++i)
        a.data[i] = (i / (w + 2) < c.leading || i / (w + 2) >= h - c.trailing) && i % (w + 2) < w ? value(generator) : 0.0;
    const std::vector<double> in(a.data, a.data + a.size);

    a.SetTransformThreads(c.threads);
    ASSERT_TRUE(a.ForwardRows(c.leading, c.trailing));
    double worst = 0;
    for (std::int32_t v = 0; v < h; ++v)
        for (std::int32_t u = 0; u <= w / 2; ++u) {
            const std::complex<double> dft = DirectDft(in, w, h, u, v);
            worst = std::max(worst, std::abs(Bin(a, u, v) - dft));
        }
    EXPECT_LT(worst, 1e-10);

    // One thread, every row: the same spectrum to the last bit when the threads
    // only share out the columns.
    FrequencyArray b;
    b.Create(c.width, c.height);
    std::memcpy(b.data, in.data(), in.size() * sizeof(double));
    ASSERT_TRUE(b.Forward());
    if (c.width % 2 == 0) {
        EXPECT_EQ(std::memcmp(a.data, b.data, in.size() * sizeof(double)), 0);
    }

    const std::int32_t kept = std::max(1, c.leading);
    ASSERT_TRUE(a.BackwardRows(kept));
    for (std::int32_t y = 0; y < kept; ++y)
        for (std::int32_t x = 0; x < w; ++x)
            ASSERT_NEAR(a.data[y * (w + 2) + x], in[y * (w + 2) + x] * w * h, 1e-9) << x << ", " << y;
}

INSTANTIATE_TEST_SUITE_P(Shapes, StagedTransform,
                         ::testing::Values(Case{6, 5, 5, 0, 1}, Case{8, 3, 3, 0, 1},  // whole transforms
                                           Case{5, 4, 4, 0, 1}, Case{7, 1, 1, 0, 1},  // ... of odd sides
                                           Case{20, 12, 3, 2, 1},    // a last column block of 3
                                           Case{20, 12, 3, 2, 3},    // ... shared by three threads
                                           Case{64, 10, 4, 0, 2},    // no wrapped rows
                                           Case{18, 9, 0, 3, 1},     // only wrapped rows
                                           Case{30, 14, 9, 7, 4},    // the two spans meet
                                           Case{22, 6, 6, 6, 2},     // every row
                                           Case{21, 8, 2, 2, 2}));   // odd width: two-dimensional plans

// Filtering in one go against the three steps it replaces (forward, product
// over the whole spectrum, inverse), which it must match to the last bit, for
// both products; whole frames are checked against spatial convolution in
// test_frequency.
TEST_P(StagedTransform, FilterMatchesTheStepsItReplaces)
{
    const Case c = GetParam();
    FrequencyArray image, kernel;
    image.Create(c.width, c.height);
    kernel.Create(c.width, c.height);
    const std::int32_t w = image.width, h = image.height, stride = w + 2;
    std::mt19937 generator(w * 7 + h);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (std::int32_t y = 0; y < h; ++y)
        for (std::int32_t x = 0; x < w; ++x) {
            if (y < c.leading || y >= h - c.trailing) image.data[y * stride + x] = value(generator);
            // A kernel round the origin, wrapped, as the tool places one.
            if ((y < 2 || y >= h - 1) && (x < 2 || x >= w - 1)) kernel.data[y * stride + x] = value(generator);
        }
    const std::vector<double> in(image.data, image.data + image.size), k(kernel.data, kernel.data + kernel.size);
    FrequencyArray spectrum;  // the same kernel, transformed as the steps below want it
    spectrum.Create(c.width, c.height);
    std::memcpy(spectrum.data, k.data(), k.size() * sizeof(double));
    ASSERT_TRUE(spectrum.Forward());
    kernel.SetTransformThreads(c.threads);
    ASSERT_TRUE(kernel.ForwardRowsForFilter(2, 1));
    EXPECT_FALSE(kernel.Forward()) << "a spectrum in column blocks was transformed as an array";

    const std::int32_t kept = std::max(1, c.leading);
    for (const bool wiener : {false, true}) {
        FrequencyArray fused, steps;
        for (FrequencyArray* a : {&fused, &steps}) {
            a->Create(c.width, c.height);
            std::memcpy(a->data, in.data(), in.size() * sizeof(double));
        }
        fused.SetTransformThreads(c.threads);
        ASSERT_TRUE(fused.Filter(kernel, wiener ? WienerDivideBins : MultiplyBins, 0.3, c.leading, c.trailing, kept));
        ASSERT_TRUE(steps.ForwardRows(c.leading, c.trailing));
        if (wiener) WienerDivideSpectra(steps, spectrum, 0.3);
        else MultiplySpectra(steps, spectrum);
        ASSERT_TRUE(steps.BackwardRows(kept));
        const std::size_t compared = static_cast<std::size_t>(c.width % 2 ? h : kept) * stride;
        EXPECT_EQ(std::memcmp(fused.data, steps.data, compared * sizeof(double)), 0) << (wiener ? "Wiener" : "product");
    }
    FrequencyArray other;
    other.Create(c.width + 2, c.height);
    const auto refusal = [&](const FrequencyArray& with) {
        try {
            image.Filter(with, MultiplyBins, 0.0, h, 0, h);
        } catch (const std::runtime_error& e) {
            return std::string(e.what());
        }
        return std::string("nothing thrown");
    };
    EXPECT_EQ(refusal(other), "Spectra differ in size");
    EXPECT_EQ(refusal(spectrum), "the spectrum to filter with was not made by ForwardRowsForFilter");
}

TEST(StagedTransform, ArraysOnKeptBuffersStartZeroOutsideThePlaneOrInTheRowsRead)
{
    constexpr std::uint32_t w = 30, h = 12, planeW = 7, planeH = 5;
    FrequencyArray dirty;
    dirty.Create(w, h);
    std::fill(dirty.data, dirty.data + dirty.size, std::numeric_limits<double>::quiet_NaN());
    const double* buffer = dirty.data;
    dirty.Release();

    FrequencyArray plane;
    plane.CreateForPlane(w, h, planeW, planeH);
    ASSERT_EQ(plane.data, buffer) << "the released buffer was not handed on, so this proves nothing";
    for (std::int32_t y = 0; y < plane.height; ++y)
        for (std::int32_t x = 0; x < plane.width + 2; ++x)
            if (x >= static_cast<std::int32_t>(planeW) || y >= static_cast<std::int32_t>(planeH)) {
                ASSERT_EQ(plane.data[y * (w + 2) + x], 0.0) << x << ", " << y;
            }

    // Only the rows a transform reads are cleared: it must not read the others.
    constexpr std::int32_t leading = planeH + 2, trailing = 3;
    std::fill(plane.data, plane.data + plane.size, std::numeric_limits<double>::quiet_NaN());
    plane.Release();
    FrequencyArray rows;
    rows.CreateForRows(w, h, planeW, planeH, leading, trailing);
    ASSERT_EQ(rows.data, buffer);
    for (std::int32_t y = 0; y < static_cast<std::int32_t>(h); ++y)
        for (std::int32_t x = 0; x < static_cast<std::int32_t>(w) + 2; ++x) {
            double& sample = rows.data[y * (w + 2) + x];
            if (x < static_cast<std::int32_t>(planeW) && y < static_cast<std::int32_t>(planeH)) {
                sample = 1.0;
            } else if (y < leading || y >= static_cast<std::int32_t>(h) - trailing) {
                ASSERT_EQ(sample, 0.0) << x << ", " << y;
            }
        }
    ASSERT_TRUE(rows.ForwardRows(leading, trailing));
    // A constant plane: bin (0, 0) is its sum, and nothing is NaN.
    EXPECT_EQ(rows.data[0], double(planeW * planeH));
    EXPECT_EQ(std::count_if(rows.data, rows.data + rows.size, [](double v) { return std::isnan(v); }), 0);

    std::fill(rows.data, rows.data + rows.size, std::numeric_limits<double>::quiet_NaN());
    rows.Release();
    FrequencyArray whole;
    whole.Create(w, h);
    for (std::int32_t i = 0; i < whole.size; ++i) ASSERT_EQ(whole.data[i], 0.0) << i;
}


struct Size { std::uint32_t width, height; };

std::vector<double> RoundTrip(Size size, unsigned seed)
{
    FrequencyArray a;
    a.Create(size.width, size.height);
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::generate(a.data, a.data + a.size, [&] { return value(generator); });
    EXPECT_TRUE(a.Forward() && a.Backward());
    return std::vector<double>(a.data, a.data + a.size);
}

TEST(FrequencyArray, CreateZeroesOrEmptiesAndRefusesWhatItCannotHold)
{
    FrequencyArray a;
    EXPECT_FALSE(a.Forward() || a.Backward());
    a.Create(3, 4);
    EXPECT_EQ(a.size, 20);
    EXPECT_EQ(std::count(a.data, a.data + a.size, 0.0), 20);
    a.Create(0, 3);
    EXPECT_TRUE(!a.data && !a.descriptor && a.size == 0 && a.width == 0 && a.height == 0);
    EXPECT_FALSE(a.Forward() || a.Backward());
    // Buffer lengths beyond int32 fail as allocations instead of wrapping round.
    for (const Size huge : {Size{65536, 65536}, Size{0xffffffffu, 1}, Size{1, 0xffffffffu}, Size{0x7ffffffeu, 1}}) {
        a.Create(4, 4);
        try {
            a.Create(huge.width, huge.height);
            ADD_FAILURE() << huge.width << "x" << huge.height << " did not throw";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "FrequencyArray memory allocation failed");
        }
        EXPECT_TRUE(!a.data && a.size == 0 && a.width == 0 && a.height == 0);
    }
}

TEST(FrequencyArray, ConcurrentUseMatchesSerialAndPlansEachSizeOnce)
{
    // Sizes no other test uses, so the threads also race to plan them.
    const std::vector<Size> sizes = {{36, 20}, {20, 36}, {36, 20}, {28, 14}, {20, 36}, {28, 14}};
    std::vector<std::vector<double>> concurrent(sizes.size());
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < sizes.size(); ++t)
        threads.emplace_back([&, t] { concurrent[t] = RoundTrip(sizes[t], t); });
    for (std::thread& thread : threads) thread.join();

    const std::uint64_t plansMade = FftPlansCreated();
    for (std::size_t t = 0; t < sizes.size(); ++t) {
        const std::vector<double> serial = RoundTrip(sizes[t], t);
        EXPECT_EQ(std::memcmp(serial.data(), concurrent[t].data(), serial.size() * sizeof(double)), 0) << t;
    }
    EXPECT_EQ(FftPlansCreated(), plansMade);
}

constexpr std::int32_t kDuplicate = 0;
constexpr std::int32_t kWrap = 1;
constexpr std::int32_t kBlack = 2;

struct EdgeCase {
    const char* name;
    std::int32_t C, R, W, H, kw, kh, type;
    double margin;                              // what the margins hold before
    std::vector<std::vector<double>> expected;  // the whole array, row by row, worked by hand
};

std::ostream& operator<<(std::ostream& out, const EdgeCase& c) { return out << c.name; }

double& At(FrequencyArray& a, std::int32_t x, std::int32_t y) { return a.data[y * (a.width + 2) + x]; }

// The image is numbered 1, 2, ... row by row.
void MakeImage(FrequencyArray& a, std::int32_t C, std::int32_t R, std::int32_t W, std::int32_t H, double margin)
{
    a.Create(C, R);
    for (std::int32_t y = 0; y < R; ++y)
        for (std::int32_t x = 0; x < C; ++x) At(a, x, y) = x < W && y < H ? 1 + x + W * y : margin;
}

class ExtendEdgesCase : public ::testing::TestWithParam<EdgeCase> {};

TEST_P(ExtendEdgesCase, FillsTheMargins)
{
    const EdgeCase& c = GetParam();
    FrequencyArray a;
    MakeImage(a, c.C, c.R, c.W, c.H, c.margin);
    ExtendEdges(a, c.W, c.H, c.kw, c.kh, c.type);
    for (std::int32_t y = 0; y < c.R; ++y)
        for (std::int32_t x = 0; x < c.C; ++x) EXPECT_EQ(At(a, x, y), c.expected[y][x]) << "at " << x << ", " << y;
}

// Image 1 2 3 / 4 5 6 unless it is 2 wide. The tight cases are exactly one sample
// wider or taller than image plus kernel: there the far corner's extra column or
// row lands on the last near one and the later write stands.
INSTANTIATE_TEST_SUITE_P(
    Margins, ExtendEdgesCase,
    ::testing::Values(
        EdgeCase{"WrapTwoColumnsOneRow", 8, 5, 3, 2, 3, 1, kWrap, 0,
                 {{1, 2, 3, 1, 2, 0, 2, 3}, {4, 5, 6, 4, 5, 0, 5, 6}, {1, 2, 3, 1, 2, 0, 2, 3}, {0, 0, 0, 0, 0, 0, 0, 0},
                  {4, 5, 6, 4, 5, 0, 5, 6}}},
        EdgeCase{"DuplicateRoomy", 9, 7, 3, 2, 3, 1, kDuplicate, 0,
                 {{1, 2, 3, 3, 3, 0, 0, 1, 1}, {4, 5, 6, 6, 6, 0, 0, 4, 4}, {4, 5, 6, 6, 6, 0, 4, 4, 4},
                  {4, 5, 6, 0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0, 0, 0, 0}, {1, 2, 3, 3, 3, 0, 1, 1, 1},
                  {1, 2, 3, 3, 3, 0, 1, 1, 1}}},
        EdgeCase{"DuplicateTightBothWays", 4, 4, 2, 2, 1, 1, kDuplicate, 0,
                 {{1, 2, 2, 1}, {3, 4, 4, 3}, {1, 2, 4, 3}, {1, 2, 2, 1}}},
        EdgeCase{"DuplicateTightColumns", 7, 6, 3, 2, 3, 1, kDuplicate, 0,
                 {{1, 2, 3, 3, 3, 1, 1}, {4, 5, 6, 6, 6, 4, 4}, {4, 5, 6, 6, 6, 4, 4}, {4, 5, 6, 0, 0, 0, 0},
                  {1, 2, 3, 3, 3, 1, 1}, {1, 2, 3, 3, 3, 1, 1}}},
        EdgeCase{"DuplicateTightRows", 5, 7, 2, 3, 1, 3, kDuplicate, 0,
                 {{1, 2, 2, 0, 1}, {3, 4, 4, 0, 3}, {5, 6, 6, 0, 5}, {5, 6, 6, 5, 5}, {1, 2, 6, 5, 5}, {1, 2, 2, 1, 1},
                  {1, 2, 2, 1, 1}}},
        EdgeCase{"BlackClearsOldMargins", 5, 4, 3, 2, 3, 1, kBlack, 7,
                 {{1, 2, 3, 0, 0}, {4, 5, 6, 0, 0}, {0, 0, 0, 0, 0}, {0, 0, 0, 0, 0}}}),
    [](const auto& info) { return info.param.name; });

using Complex = std::complex<double>;

// A 2 x 2 array holds four complex bins, the spare doubles of each row included.
void SetBins(FrequencyArray& a, const std::vector<Complex>& bins)
{
    a.Create(2, 2);
    std::copy(bins.begin(), bins.end(), reinterpret_cast<Complex*>(a.data));
}

Complex Bin(const FrequencyArray& a, int j) { return {a.data[2 * j], a.data[2 * j + 1]}; }

TEST(SpectrumOps, MultiplyAndWienerDivideEveryBin)
{
    const std::vector<Complex> i = {{1, 2}, {2, 0}, {0, 4}, {3, 3}}, k = {{3, -1}, {1, 1}, {0, 2}, {0, 0}};
    const std::vector<Complex> product = {{5, 5}, {2, 2}, {-8, 0}, {0, 0}};
    // w = 1: (1+2i)(3+i)/11, 2(1-i)/3, 4i(-2i)/5, and a zero bin of K gives 0.
    const std::vector<Complex> wiener = {{1.0 / 11, 7.0 / 11}, {2.0 / 3, -2.0 / 3}, {8.0 / 5, 0}, {0, 0}};
    FrequencyArray I, K;
    SetBins(I, i);
    SetBins(K, k);
    MultiplySpectra(I, K);
    for (int j = 0; j < 4; ++j) EXPECT_EQ(Bin(I, j), product[j]) << "bin " << j;
    SetBins(I, i);
    WienerDivideSpectra(I, K, 1.0);
    for (int j = 0; j < 4; ++j) EXPECT_LT(std::abs(Bin(I, j) - wiener[j]), 1e-15) << "bin " << j;
    // Without the constant it is plain division; a zero bin is not guarded against.
    const std::vector<Complex> i0 = {{0.3, -1.7}, {-2, 0.5}, {1e-3, 4}, {1, 0}}, k0 = {{-0.8, 0.6}, {3, 0}, {1e-3, -1e-4}, {0, 0}};
    SetBins(I, i0);
    SetBins(K, k0);
    WienerDivideSpectra(I, K, 0.0);
    for (int j = 0; j < 3; ++j) EXPECT_LT(std::abs(Bin(I, j) - i0[j] / k0[j]), 1e-12 * std::abs(i0[j] / k0[j])) << j;
    EXPECT_TRUE(std::isnan(I.data[6]));
    // A constant other than 0 and 1, where w and w squared differ.
    SetBins(I, i0);
    WienerDivideSpectra(I, K, 0.25);
    for (int j = 0; j < 4; ++j) {
        const Complex expected = i0[j] * std::conj(k0[j]) / (std::norm(k0[j]) + 0.25);
        EXPECT_LT(std::abs(Bin(I, j) - expected), 1e-12 * (1 + std::abs(expected))) << j;
    }
}

}  // namespace
