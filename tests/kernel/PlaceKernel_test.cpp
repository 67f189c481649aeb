#include "kernel/PlaceKernel.h"

#include "controls/FilterInterface.h"
#include "frequency/FrequencyArray.h"
#include "host/Image.h"
#include "host/Object.h"
#include "kernel/KernelShapes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A kernel whose four components are all `values` (row-major), or one component
// (0 B, 1 G, 2 R, 3 A in the host record) when `only` is given.
Ref<Image> KernelOf(int w, int h, const std::vector<float>& values, int only = -1)
{
    Ref<Image> k(new Image(w, h));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c)
                if (only < 0 || only == c) k->Pixel(x, y)[c] = values[y * w + x];
    return k;
}

// The element that sample (x, y) of an array of width w lives at.
double& Sample(FrequencyArray& a, int x, int y) { return a.data[y * (a.width + 2) + x]; }

// Every element of the buffer, spare columns included, against `expected` (same layout).
void ExpectBuffer(const FrequencyArray& a, const std::vector<double>& expected)
{
    ASSERT_EQ(a.size, static_cast<std::int32_t>(expected.size()));
    for (int i = 0; i < a.size; ++i)
        EXPECT_DOUBLE_EQ(a.data[i], expected[i]) << "column " << i % (a.width + 2) << ", row " << i / (a.width + 2);
}

TEST(PlaceKernel, SinglePixelLandsOnElementZeroAlone)
{
    FrequencyArray a;
    a.Create(8, 6);
    PlaceKernel(a, KernelOf(1, 1, {1.0f}).get(), 0);
    std::vector<double> expected(10 * 6, 0.0);
    expected[0] = 1.0;
    ExpectBuffer(a, expected);
}

// The centre pixel goes to (0, 0) and its neighbours wrap, checked against a
// placement computed here for an odd, non-square kernel; the scale is 1 / 3
// when the positive lobe (3) outweighs the negative (1), 1 / 2 the other way.
TEST(PlaceKernel, WrapsTheCentreToTheOriginAndScalesByTheLargerLobe)
{
    const struct { std::vector<float> values; double scale; } cases[] = {
        {{0.5f, 0, 0, 0, 0.5f, -1, 0, 1, 0, 0, 0, 0, 0, 0, 1}, 1.0 / 3},
        {{0.25f, 0, 0, 0, 0.5f, -1, 0, 0.25f, 0, 0, 0, 0, 0, 0, -1}, 1.0 / 2},
    };
    for (const auto& c : cases) {
        const int kw = 3, kh = 5, w = 8, h = 6;
        FrequencyArray a;
        a.Create(w, h);
        PlaceKernel(a, KernelOf(kw, kh, c.values).get(), 1);
        std::vector<double> expected(static_cast<std::size_t>(w + 2) * h, 0.0);
        for (int y = 0; y < kh; ++y)
            for (int x = 0; x < kw; ++x) {
                const int tx = (x - kw / 2 + w) % w, ty = (y - kh / 2 + h) % h;
                expected[ty * (w + 2) + tx] = c.values[y * kw + x] * c.scale;
            }
        ExpectBuffer(a, expected);
        EXPECT_DOUBLE_EQ(Sample(a, 1, 5), -c.scale);  // pixel (2, 1), -1, keeps its sign
    }
    // The three corner examples: (0, 0) to (7, H - 1), (1, 1) to (0, 0), (2, 2) to (1, 1).
    FrequencyArray a;
    a.Create(8, 5);
    PlaceKernel(a, KernelOf(3, 3, {1, 0, 0, 0, 2, 0, 0, 0, 4}).get(), 2);
    EXPECT_DOUBLE_EQ(Sample(a, 7, 4), 1.0 / 7);
    EXPECT_DOUBLE_EQ(Sample(a, 0, 0), 2.0 / 7);
    EXPECT_DOUBLE_EQ(Sample(a, 1, 1), 4.0 / 7);
}

// Each channel index reads its own component of the host's B, G, R, A record.
TEST(PlaceKernel, ReadsTheComponentOfTheChannel)
{
    Ref<Image> k(new Image(3, 1));
    const float first[4] = {1, 2, 3, 4};  // B, G, R, A
    for (int c = 0; c < 4; ++c) {
        k->Pixel(0, 0)[c] = first[c];
        k->Pixel(1, 0)[c] = 1;
    }
    const float read[4] = {3, 2, 1, 4};  // red, green, blue, alpha
    for (int channel = 0; channel < 4; ++channel) {
        FrequencyArray a;
        a.Create(4, 2);
        PlaceKernel(a, k.get(), channel);
        EXPECT_DOUBLE_EQ(Sample(a, 3, 0), read[channel] / (read[channel] + 1)) << "channel " << channel;
        EXPECT_DOUBLE_EQ(Sample(a, 0, 0), 1 / (read[channel] + 1)) << "channel " << channel;
    }
}

TEST(PlaceKernel, SynthesisedKernelsGiveTheSameArrayForEveryChannel)
{
    filter_interface p;
    p.kernelStyle = 4;
    Ref<Image> k(MakeKernel(p, 6.0, 0));
    FrequencyArray red;
    red.Create(16, 8);
    PlaceKernel(red, k.get(), 0);
    for (int channel = 1; channel < 4; ++channel) {
        FrequencyArray other;
        other.Create(16, 8);
        PlaceKernel(other, k.get(), channel);
        ExpectBuffer(other, std::vector<double>(red.data, red.data + red.size));
    }
}

TEST(PlaceKernel, RefusesWhatItCannotPlaceOrNormalise)
{
    const Ref<Image> blackInRed = KernelOf(3, 3, std::vector<float>(9, 0.5f), 1);  // green only
    const struct { Image* kernel; int width, channel; std::string message; } cases[] = {
        {blackInRed.get(), 8, 0, "The kernel is black in the red channel: it has no weight to normalise"},
        {blackInRed.get(), 8, 2, "The kernel is black in the blue channel: it has no weight to normalise"},
        {blackInRed.get(), 8, 4, "Kernel channel 4 is not one of 0 red, 1 green, 2 blue, 3 alpha"},
        {blackInRed.get(), 2, 1, "The 3x3 kernel does not fit the 2x8 frequency array"},
        {nullptr, 8, 0, "There is no kernel image to place"},
    };
    for (const auto& c : cases) {
        FrequencyArray a;
        a.Create(c.width, 8);
        try {
            PlaceKernel(a, c.kernel, c.channel);
            ADD_FAILURE() << "no exception for: " << c.message;
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(std::string(e.what()), c.message);
        }
    }
    FrequencyArray a;
    a.Create(8, 8);
    PlaceKernel(a, blackInRed.get(), 1);
    EXPECT_DOUBLE_EQ(Sample(a, 0, 0), 0.5 / 4.5);
}

}  // namespace
