// FrequencyArray against a direct DFT, its sizes and buffers, and use from many threads.
#include "fft/FrequencyArray.h"
#include "fft/FftPlans.h"
#include "support/DirectDft.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstring>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

struct Size {
    std::uint32_t width, height;
};

std::ostream& operator<<(std::ostream& out, const Size& s) { return out << s.width << "x" << s.height; }

void FillRandom(FrequencyArray& array, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::generate(array.data, array.data + array.size, [&] { return value(generator); });
}

std::vector<double> RoundTrip(Size size, unsigned seed)
{
    FrequencyArray array;
    array.Create(size.width, size.height);
    FillRandom(array, seed);
    EXPECT_TRUE(array.Forward() && array.Backward());
    return std::vector<double>(array.data, array.data + array.size);
}

class FrequencyArrayDft : public ::testing::TestWithParam<Size> {};

TEST_P(FrequencyArrayDft, ForwardIsTheDftAndRoundTripScalesByArea)
{
    FrequencyArray a;
    a.Create(GetParam().width, GetParam().height);
    FillRandom(a, a.size);
    const std::vector<double> in(a.data, a.data + a.size);
    const std::int32_t w = a.width, h = a.height;
    ASSERT_TRUE(a.Forward());
    for (std::int32_t v = 0; v < h; ++v)
        for (std::int32_t u = 0; u <= w / 2; ++u) {
            const std::complex<double> dft = DirectDft(in, w, h, u, v);
            EXPECT_LT(std::abs(Bin(a, u, v) - dft), 1e-12) << "bin " << u << ", " << v;
        }
    ASSERT_TRUE(a.Backward());
    for (std::int32_t y = 0; y < h; ++y)
        for (std::int32_t x = 0; x < w; ++x)
            EXPECT_NEAR(a.data[y * (w + 2) + x], in[y * (w + 2) + x] * w * h, 1e-12) << x << ", " << y;
}

INSTANTIATE_TEST_SUITE_P(Sizes, FrequencyArrayDft, ::testing::Values(Size{6, 5}, Size{8, 3}, Size{5, 4}, Size{7, 1}));

TEST(FrequencyArray, CreateEmptiesKeepsOrRenews)
{
    FrequencyArray a;
    EXPECT_FALSE(a.Forward() || a.Backward());
    a.Create(4, 3);
    a.data[5] = 2.5;
    a.Create(4, 3);
    EXPECT_EQ(a.data[5], 2.5);
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
            ADD_FAILURE() << huge << " did not throw";
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

}  // namespace
