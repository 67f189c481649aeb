#include "kernel/PlaceKernel.h"

#include "fft/FrequencyArray.h"
#include "host/Image.h"
#include "host/Object.h"
#include "support/Refusal.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A kernel with `values` (row-major) in all four components, or only in
// component `only` of the host record (0 B, 1 G, 2 R, 3 A).
Ref<Image> KernelOf(int w, int h, const std::vector<float>& values, int only = -1)
{
    Ref<Image> k(new Image(w, h));
    for (int i = 0; i < w * h; ++i)
        for (int c = 0; c < 4; ++c)
            if (only < 0 || only == c) k->Pixel(i % w, i / w)[c] = values[i];
    return k;
}

// Each case is checked against a placement computed here: the centre pixel on
// (0, 0), wrapping, and the scale 1 / max(positive sum, negative magnitude sum).
TEST(PlaceKernel, WrapsTheCentreToTheOriginAndScalesByTheLargerLobe)
{
    const struct { int kw, kh, w, h; std::vector<float> values; double scale; } cases[] = {
        {1, 1, 8, 6, {1}, 1.0},
        {3, 3, 8, 5, {1, 0, 0, 0, 2, 0, 0, 0, 4}, 1.0 / 7},  // (0,0) to (7,4), (1,1) to (0,0), (2,2) to (1,1)
        {3, 5, 8, 6, {0.5f, 0, 0, 0, 0.5f, -1, 0, 1, 0, 0, 0, 0, 0, 0, 1}, 1.0 / 3},                // sums 3 and 1
        {3, 5, 8, 6, {0.25f, 0, 0, 0, 0.5f, -1, 0, 0.25f, 0, 0, 0, 0, 0, 0, -1}, 1.0 / 2},          // sums 1 and 2
    };
    for (const auto& c : cases) {
        FrequencyArray a;
        a.Create(c.w, c.h);
        PlaceKernel(a, KernelOf(c.kw, c.kh, c.values).get(), 1);
        std::vector<double> expected(static_cast<std::size_t>(c.w + 2) * c.h, 0.0);
        for (int y = 0; y < c.kh; ++y)
            for (int x = 0; x < c.kw; ++x)
                expected[(y - c.kh / 2 + c.h) % c.h * (c.w + 2) + (x - c.kw / 2 + c.w) % c.w] =
                    c.values[y * c.kw + x] * c.scale;
        ASSERT_EQ(a.size, static_cast<int>(expected.size()));
        for (int i = 0; i < a.size; ++i)
            EXPECT_DOUBLE_EQ(a.data[i], expected[i]) << c.kw << "x" << c.kh << " kernel, element " << i;
    }
}

TEST(PlaceKernel, RefusesWhatItCannotPlaceOrNormalise)
{
    const Ref<Image> greenOnly = KernelOf(3, 3, std::vector<float>(9, 0.5f), 1);
    const struct { Image* kernel; int width, channel; std::string message; } cases[] = {
        {greenOnly.get(), 8, 0, "The kernel is black in the red channel: it has no weight to normalise"},
        {greenOnly.get(), 8, 2, "The kernel is black in the blue channel: it has no weight to normalise"},
        {greenOnly.get(), 8, 4, "Kernel channel 4 is not one of 0 red, 1 green, 2 blue, 3 alpha"},
        {greenOnly.get(), 2, 1, "The 3x3 kernel does not fit the 2x8 frequency array"},
        {nullptr, 8, 0, "There is no kernel image to place"},
    };
    for (const auto& c : cases) {
        FrequencyArray a;
        a.Create(c.width, 8);
        EXPECT_EQ(Refusal<std::runtime_error>([&] { PlaceKernel(a, c.kernel, c.channel); }), c.message);
    }
}

}  // namespace
