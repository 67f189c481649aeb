#include "frequency/FrequencyArray.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <ostream>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Size {
    std::uint32_t width;
    std::uint32_t height;
};

std::ostream& operator<<(std::ostream& out, const Size& s) { return out << s.width << "x" << s.height; }

// Spectrum rows keep (width + 2) / 2 complex values, one double short of a spatial
// row when the width is odd.
std::size_t BinIndex(std::int32_t width, std::int32_t u, std::int32_t v)
{
    return static_cast<std::size_t>(v) * 2 * ((width + 2) / 2) + 2 * u;
}

void FillRandom(FrequencyArray& array, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (std::int32_t y = 0; y < array.height; ++y)
        for (std::int32_t x = 0; x < array.width; ++x)
            array.data[y * (array.width + 2) + x] = value(generator);
}

std::vector<double> Samples(const FrequencyArray& array)
{
    return std::vector<double>(array.data, array.data + array.size);
}

std::vector<double> RoundTrip(Size size, unsigned seed)
{
    FrequencyArray array;
    array.Create(size.width, size.height);
    FillRandom(array, seed);
    EXPECT_TRUE(array.Forward());
    EXPECT_TRUE(array.Backward());
    return Samples(array);
}

class FrequencyArrayDft : public ::testing::TestWithParam<Size> {};

TEST_P(FrequencyArrayDft, ForwardMatchesDirectDftAndRoundTripScales)
{
    const auto [w, h] = GetParam();
    FrequencyArray array;
    array.Create(w, h);
    FillRandom(array, w * 100 + h);
    const std::vector<double> input = Samples(array);
    const std::int32_t width = array.width, height = array.height, stride = width + 2;

    ASSERT_TRUE(array.Forward());
    for (std::int32_t v = 0; v < height; ++v) {
        for (std::int32_t u = 0; u <= width / 2; ++u) {
            std::complex<double> expected;
            for (std::int32_t y = 0; y < height; ++y)
                for (std::int32_t x = 0; x < width; ++x)
                    expected += input[y * stride + x]
                                * std::polar(1.0, -2 * kPi * (double(u * x) / width + double(v * y) / height));
            const std::size_t at = BinIndex(width, u, v);
            EXPECT_NEAR(array.data[at], expected.real(), 1e-12) << "bin " << u << ", " << v;
            EXPECT_NEAR(array.data[at + 1], expected.imag(), 1e-12) << "bin " << u << ", " << v;
        }
    }

    ASSERT_TRUE(array.Backward());
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            EXPECT_NEAR(array.data[y * stride + x], input[y * stride + x] * width * height, 1e-12)
                << "sample " << x << ", " << y;
}

INSTANTIATE_TEST_SUITE_P(Sizes, FrequencyArrayDft,
                         ::testing::Values(Size{6, 5}, Size{8, 3}, Size{5, 4}, Size{7, 1}));

TEST(FrequencyArray, ImpulseGivesFlatSpectrum)
{
    FrequencyArray array;
    array.Create(16, 8);
    array.data[0] = 1.0;
    ASSERT_TRUE(array.Forward());
    for (std::int32_t v = 0; v < 8; ++v) {
        for (std::int32_t u = 0; u <= 8; ++u) {
            EXPECT_DOUBLE_EQ(array.data[BinIndex(16, u, v)], 1.0);
            EXPECT_DOUBLE_EQ(array.data[BinIndex(16, u, v) + 1], 0.0);
        }
    }
    ASSERT_TRUE(array.Backward());
    EXPECT_DOUBLE_EQ(array.data[0], 16.0 * 8.0);
    EXPECT_NEAR(array.data[1], 0.0, 1e-12);
}

TEST(FrequencyArray, CreateEmptiesKeepsOrRenews)
{
    FrequencyArray array;
    EXPECT_FALSE(array.Forward());
    EXPECT_FALSE(array.Backward());

    array.Create(4, 3);
    EXPECT_EQ(array.size, 18);
    array.data[5] = 2.5;
    array.Create(4, 3);
    EXPECT_EQ(array.data[5], 2.5);  // same size: contents kept
    array.Create(3, 4);
    EXPECT_EQ(array.size, 20);
    for (std::int32_t i = 0; i < array.size; ++i) EXPECT_EQ(array.data[i], 0.0);

    for (const Size empty : {Size{0, 3}, Size{4, 0}}) {
        array.Create(4, 3);
        array.Create(empty.width, empty.height);
        EXPECT_EQ(array.data, nullptr);
        EXPECT_EQ(array.descriptor, nullptr);
        EXPECT_EQ(array.size + array.width + array.height, 0);
        EXPECT_FALSE(array.Forward());
        EXPECT_FALSE(array.Backward());
    }
}

TEST(FrequencyArray, SizeBeyondInt32FailsAsAllocation)
{
    for (const Size huge : {Size{65536, 65536}, Size{0xffffffffu, 1}, Size{1, 0xffffffffu},
                            Size{0x7ffffffeu, 1}}) {
        FrequencyArray array;
        array.Create(4, 4);
        try {
            array.Create(huge.width, huge.height);
            ADD_FAILURE() << huge.width << " x " << huge.height << " did not throw";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "FrequencyArray memory allocation failed");
        }
        EXPECT_EQ(array.data, nullptr);
        EXPECT_EQ(array.size + array.width + array.height, 0);
    }
}

TEST(FrequencyArray, ConcurrentUseMatchesSerialBitForBit)
{
    // Sizes no other test uses, so the threads also race to plan them.
    const std::vector<Size> sizes = {{36, 20}, {20, 36}, {36, 20}, {28, 14}, {20, 36}, {28, 14}};
    constexpr int kRounds = 4;
    std::vector<std::vector<std::vector<double>>> concurrent(sizes.size());
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < sizes.size(); ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round)
                concurrent[t].push_back(RoundTrip(sizes[t], static_cast<unsigned>(t * 10 + round)));
        });
    for (std::thread& thread : threads) thread.join();

    for (std::size_t t = 0; t < sizes.size(); ++t) {
        for (int round = 0; round < kRounds; ++round) {
            const std::vector<double> serial = RoundTrip(sizes[t], static_cast<unsigned>(t * 10 + round));
            ASSERT_EQ(serial.size(), concurrent[t][round].size());
            EXPECT_EQ(std::memcmp(serial.data(), concurrent[t][round].data(), serial.size() * sizeof(double)), 0)
                << "thread " << t << ", round " << round;
        }
    }
}

}  // namespace
