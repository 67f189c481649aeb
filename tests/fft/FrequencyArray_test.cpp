// FrequencyArray sizes and buffers, and use from many threads (the transform itself
// is checked against a direct DFT in TransformStages_test.cpp).
#include "fft/FrequencyArray.h"
#include "fft/FftPlans.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

struct Size {
    std::uint32_t width, height;
};

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

}  // namespace
