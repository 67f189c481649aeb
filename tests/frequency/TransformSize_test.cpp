// LUMIVANE_TRANSFORM_SIZES=smooth: smaller transforms whose sides have no prime
// factor above 7, and the same output as the default powers of two.
#include "support/ToolHarness.h"

#include <cmath>
#include <cstdlib>

namespace {

// Sets the variable for one scope; the previous value comes back after it.
struct TransformSizesMode {
    explicit TransformSizesMode(const char* mode)
    {
        if (const char* was = std::getenv("LUMIVANE_TRANSFORM_SIZES")) previous = was, hadPrevious = true;
        if (mode) setenv("LUMIVANE_TRANSFORM_SIZES", mode, 1);
        else unsetenv("LUMIVANE_TRANSFORM_SIZES");
    }
    ~TransformSizesMode()
    {
        if (hadPrevious) setenv("LUMIVANE_TRANSFORM_SIZES", previous.c_str(), 1);
        else unsetenv("LUMIVANE_TRANSFORM_SIZES");
    }
    std::string previous;
    bool hadPrevious = false;
};

bool SevenSmooth(int n)
{
    for (int p : {2, 3, 5, 7})
        while (n % p == 0) n /= p;
    return n == 1;
}

struct Case {
    int width, height;
    double blurX, blurY;
    int style, edge;
};

std::ostream& operator<<(std::ostream& out, const Case& c)
{
    return out << c.width << "x" << c.height << " blur " << c.blurX << "x" << c.blurY << " style " << c.style
               << " edge " << c.edge;
}

Image* Plate(int w, int h)
{
    return MakeImage(w, h, [](int x, int y, int c) {
        if (c == 3) return 0.3f + 0.6f * float((x / 3 + y / 2) % 2);
        return std::sin(0.37f * x + 1.3f * c) * std::cos(0.23f * y) + (x == 4 && y == 3 ? 15.f : 0.f) - 0.2f * c;
    });
}

Ref<Image> Render(const Case& c, const Image& src, const char* mode, ToolHarness& h)
{
    TransformSizesMode scope(mode);
    h.Connect("input", const_cast<Image*>(&src));
    h.Set("BlurSizeUnit", 1);
    h.Set("BlurStyle", c.style);
    h.Set("Edges", c.edge);
    h.Set("LockXY", 0);
    h.Set("BlurSizeX", c.blurX);
    h.Set("BlurSizeY", c.blurY);
    Ref<Image> out = h.Render();
    EXPECT_TRUE(out) << (h.Lines(CONSOLE_Error).empty() ? "" : h.Lines(CONSOLE_Error).front());
    return out;
}

class SmoothSizes : public ::testing::TestWithParam<Case> {};

TEST_P(SmoothSizes, AreSmallerSevenSmoothSidesAndGiveTheSameImage)
{
    const Case c = GetParam();
    Ref<Image> src(Plate(c.width, c.height));
    ToolHarness usual, smooth;
    Ref<Image> expected = Render(c, *src, nullptr, usual);
    Ref<Image> got = Render(c, *src, "smooth", smooth);
    ASSERT_TRUE(expected && got);

    {
        TransformSizesMode scope("smooth");
        const Lumivane2::TransformSize t = smooth.tool->TransformSizeFor(0);
        for (const auto& [side, needed] : {std::pair{t.width, c.width + t.kernelWidth},
                                           std::pair{t.height, c.height + t.kernelHeight}}) {
            EXPECT_GT(side, needed);
            EXPECT_LE(side, PowerOfTwoAbove(needed));
            EXPECT_TRUE(side % 2 == 0 && SevenSmooth(side)) << side;
            for (int smaller = needed + 1; smaller < side; ++smaller)
                EXPECT_FALSE(smaller % 2 == 0 && SevenSmooth(smaller)) << smaller << " would do";
        }
    }

    ExpectCloseTo(*got, [&](int x, int y, int k) { return Sample(*expected, x, y, k); });
}

// Sides where the smooth size falls well short of the power of two (45 -> 48
// against 64, 62 -> 63 is odd so 64 both ways, 133 -> 140 against 256), every edge
// mode, a deconvolution, and a transform just large enough for the kernel.
INSTANTIATE_TEST_SUITE_P(Renders, SmoothSizes,
                         ::testing::Values(Case{40, 13, 4.5, 4.5, 0, 0}, Case{57, 23, 4.2, 9.0, 1, 1},
                                           Case{128, 7, 5.0, 3.0, 2, 2}, Case{31, 33, 6.0, 6.0, 0, 0},
                                           Case{17, 9, 1.5, 1.5, 3, 1}));

TEST(SmoothSizes, PowerOfTwoOrUnsetKeepsPowersOfTwoAndAnythingElseIsRefused)
{
    ToolHarness h;
    Ref<Image> src(Plate(40, 13));
    for (const char* mode : {"power-of-two", ""}) {
        Render(Case{40, 13, 4.5, 4.5, 0, 0}, *src, mode, h);
        TransformSizesMode scope(mode);
        const Lumivane2::TransformSize t = h.tool->TransformSizeFor(0);
        EXPECT_EQ(t.width, 64) << mode;
        EXPECT_EQ(t.height, 32) << mode;
    }
    TransformSizesMode typo("Smooth");
    try {
        EngineTransformSizes();
        ADD_FAILURE() << "a malformed LUMIVANE_TRANSFORM_SIZES was accepted";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "LUMIVANE_TRANSFORM_SIZES: \"Smooth\" is not a transform size rule: power-of-two or smooth");
    }
}

}  // namespace
