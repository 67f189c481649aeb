// The kernel shapes against their closed forms and hand-worked values, and their
// placement in a transform array.
#include "kernel/KernelShapes.h"
#include "kernel/PlaceKernel.h"

#include "fft/FrequencyArray.h"
#include "kernel/KernelParams.h"
#include "host/Image.h"
#include "host/Object.h"
#include "support/Refusal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace {

enum Style { Disk, Polygon, Gaussian, Airy, Laplacian };
const double kPi = std::acos(-1.0);

KernelParams Params(int style, double badBokeh = 0.0, double degrees = 0.0, int sides = 6)
{
    KernelParams p;
    p.kernelStyle = style;
    p.badBokeh = badBokeh;
    p.angle = degrees * kPi / 180.0;
    p.sideCount = sides;
    return p;
}

Ref<Image> Make(const KernelParams& p, double size, int minimumSize = 0) { return Ref<Image>(MakeKernel(p, size, minimumSize)); }

float At(const Ref<Image>& k, int x, int y) { return k->Pixel(x, y)[2]; }  // red

class EveryStyle : public ::testing::TestWithParam<int> {};

// Odd and at least the size whatever the model image; Bad Bokeh brightens only
// the rims of Disk and Polygon, to three times the centre at 0.5.
TEST_P(EveryStyle, EdgeIsOddAndAtLeastTheSizeAndOnlyDiskAndPolygonHaveBadBokeh)
{
    Image model(64, 48, IMDP_Int8);
    KernelParams p = Params(GetParam());
    p.modelImage = &model;
    for (const auto& [size, minimumSize, edge] : {std::tuple{1.0, 0, 1}, {2.0, 0, 3}, {4.0, 0, 5}, {4.2, 0, 5},
                                                 {5.0, 0, 5}, {6.0, 0, 7}, {2.0, 9, 9}}) {
        const Ref<Image> k = Make(p, size, minimumSize);
        EXPECT_TRUE(k->Width == edge && k->Height == edge && k->Depth == IMDP_Float32) << "size " << size;
    }
    EXPECT_EQ(At(Make(p, 1.0), 0, 0), 1.0f);

    const Ref<Image> plain = Make(Params(GetParam(), 0.0), 9.0), bokeh = Make(Params(GetParam(), 0.5), 9.0);
    EXPECT_EQ(At(bokeh, 4, 4), At(plain, 4, 4));
    // (8, 4) is on the disk's rim; (4, 8) is on a corner of the hexagon; (6, 4)
    // halfway out, where the brightening rises with the fourth power: 1 + 2 / 16.
    const float rim = GetParam() == Disk ? At(bokeh, 8, 4) : At(bokeh, 4, 8);
    if (GetParam() <= Polygon) {
        EXPECT_FLOAT_EQ(rim, 3.0f);
        EXPECT_FLOAT_EQ(At(bokeh, 4, 6), 1.125f);
    } else {
        EXPECT_EQ(At(bokeh, 8, 4), At(plain, 8, 4));
    }
}

INSTANTIATE_TEST_SUITE_P(Kernel, EveryStyle, ::testing::Values(Disk, Polygon, Gaussian, Airy, Laplacian));

TEST(DiskKernel, SizeTwoValuesAndRimEdges)
{
    const Ref<Image> k = Make(Params(Disk), 2.0);
    EXPECT_TRUE(At(k, 1, 1) == 1.0f && At(k, 0, 1) == 0.5f && At(k, 2, 1) == 0.5f && At(k, 1, 0) == 0.5f);
    EXPECT_FLOAT_EQ(At(k, 0, 0), static_cast<float>(1.5 - std::sqrt(2.0)));
    // Size 3 padded to 5: radius 1, so (3, 2) is on the rim, twice as bright as the centre with
    // BadBokeh 0.25, (3, 3) in the fall-off and (4, 2) a pixel beyond.
    const Ref<Image> padded = Make(Params(Disk, 0.25), 3.0, 5);
    EXPECT_TRUE(At(padded, 3, 2) == 2.0f && At(padded, 4, 2) == 0.0f);
    EXPECT_FLOAT_EQ(At(padded, 3, 3), static_cast<float>((2.0 - std::sqrt(2.0)) * 2.0));
}

TEST(PolygonKernel, HexagonFacesXWithAFlatSideAtAngleZeroAndWithACornerAtThirty)
{
    // Size 21: circumradius 10, apothem 8.66. 9 pixels out is past a flat side, inside toward a corner.
    const float pastSide = static_cast<float>(10.0 * std::cos(kPi / 6) + 1.0 - 9.0);
    for (const double degrees : {0.0, 30.0}) {
        const Ref<Image> k = Make(Params(Polygon, 0.0, degrees), 21.0);
        const float alongX = degrees == 0.0 ? pastSide : 1.0f, alongY = degrees == 0.0 ? 1.0f : pastSide;
        for (const auto& [x, y, want] : {std::tuple{19, 10, alongX}, {1, 10, alongX}, {10, 19, alongY}, {10, 1, alongY}})
            EXPECT_NEAR(At(k, x, y), want, 1e-6) << degrees << " at " << x << ", " << y;
    }
    // A positive angle turns the shape toward negative atan2 angles: a triangle
    // at 90 degrees shows its flat side (apothem 5) at -y and a corner at +y.
    const Ref<Image> triangle = Make(Params(Polygon, 0.0, 90.0, 3), 21.0);
    EXPECT_TRUE(At(triangle, 10, 1) == 0.0f && At(triangle, 10, 19) == 1.0f);
}

// Size 30: sigma 5, so the Laplacian's ring bottoms out at q = 2 on the grid (d = 10).
TEST(SmoothKernels, MatchTheirClosedForms)
{
    const double size = 30.0, sigma = size / 6.0, airyScale = size / 20.347;
    const Ref<Image> gauss = Make(Params(Gaussian), size), airy = Make(Params(Airy), size);
    const Ref<Image> hat = Make(Params(Laplacian), size);
    double positive = 0, negative = 0;
    float lowest = 0;
    for (int y = 0; y < 31; ++y)
        for (int x = 0; x < 31; ++x) {
            const double r2 = (x - 15.0) * (x - 15.0) + (y - 15.0) * (y - 15.0), u = std::sqrt(r2) / airyScale;
            const double bessel = u == 0.0 ? 0.5 : std::cyl_bessel_j(1.0, u) / u, q = r2 / (2 * sigma * sigma);
            EXPECT_NEAR(At(gauss, x, y), std::exp(-r2 / (sigma * sigma)), 1e-6) << x << "," << y;
            EXPECT_NEAR(At(hat, x, y), std::exp(-q) * (1 - q), 1e-6) << x << "," << y;
            if (std::sqrt(r2) > size / 2) { EXPECT_EQ(At(airy, x, y), 0.0f) << x << "," << y; }
            else { EXPECT_NEAR(At(airy, x, y), 4 * bessel * bessel, 1e-6) << x << "," << y; }
            (At(hat, x, y) >= 0 ? positive : negative) += std::fabs(At(hat, x, y));
            lowest = std::min(lowest, At(hat, x, y));
        }
    EXPECT_EQ(At(airy, 15, 15), 1.0f);
    EXPECT_GT(At(gauss, 0, 0), 0.0f);
    EXPECT_FLOAT_EQ(lowest, static_cast<float>(-std::exp(-2.0)));
    EXPECT_FLOAT_EQ(At(hat, 25, 15), lowest);
    EXPECT_NEAR(negative / positive, 1.0, 0.1);
}

TEST(ChannelKernel, IsMadeAtTheLargerSizeAndResizedWhenTheAxesDiffer)
{
    const Ref<Image> wide(MakeChannelKernel(Params(Disk), 3.0, 6.2));
    EXPECT_TRUE(wide->Width == 3 && wide->Height == 7);
    const Ref<Image> square(MakeChannelKernel(Params(Disk), 6.2, 6.2)), direct = Make(Params(Disk), 6.2);
    EXPECT_TRUE(std::equal(square->Pixel(0, 0), square->Pixel(0, 7), direct->Pixel(0, 0)));
}

TEST(KernelErrors, SayWhatWasWrongAndWhatIsAccepted)
{
    const std::string sides = " is below 3: a polygon needs at least 3 sides";
    const std::string styles = " is not one of 0 Disk, 1 Polygon, 2 Gaussian, 3 Airy Disk, 4 Laplacian";
    const std::string sizes = " pixels is not above 0 on both axes: a kernel needs a positive size";
    const struct { int style, sides; double sx, sy; std::string message; } cases[] = {
        {Polygon, 2, 5, 5, "Polygon Side Count 2" + sides}, {Polygon, -4, 5, 5, "Polygon Side Count -4" + sides},
        {7, 6, 5, 5, "Blur Style 7" + styles},             {-1, 6, 5, 5, "Blur Style -1" + styles},
        {Disk, 6, 0, 5, "Blur size 0 x 5" + sizes},        {Disk, 6, 2.5, -1, "Blur size 2.5 x -1" + sizes},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Refusal<std::runtime_error>([&] { Ref<Image>(MakeChannelKernel(Params(c.style, 0, 0, c.sides), c.sx, c.sy)); }),
                  c.message);
    EXPECT_EQ(At(Make(Params(Polygon, 0.0, 0.0, 3), 5.0), 2, 2), 1.0f);  // a triangle is fine
    // A rim as bright as a float holds is drawn; past that the control is blamed, not a kernel image.
    for (const int style : {Disk, Polygon}) {
        EXPECT_TRUE(std::isfinite(At(Make(Params(style, 8e37), 5.0), 4, 2))) << style;  // 3.2e38 times the centre
        EXPECT_EQ(Refusal<std::runtime_error>([&] { Make(Params(style, 1e38), 5.0); }),
                  "Bad Bokeh 1e+38 makes the kernel's rim 4e+38 times as bright as its centre, more than a kernel "
                  "pixel holds (3.40282e+38)");
    }
}


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
    const Ref<Image> infinite = KernelOf(3, 1, {1.0f, -INFINITY, 1.0f}, 1);
    const struct { Image* kernel; int width, channel; std::string message; } cases[] = {
        {greenOnly.get(), 8, 0, "The kernel is black in the red channel: it has no weight to normalise"},
        {greenOnly.get(), 8, 2, "The kernel is black in the blue channel: it has no weight to normalise"},
        {infinite.get(), 8, 1,
         "The kernel image has -infinity in the green channel at pixel 1, 0: every output pixel of that channel would "
         "be lost; clean the kernel image first"},
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

TEST(PolygonKernel, AnglesOfManyTurnsOrNoneAtAllNeitherHangNorPass)
{
    KernelParams p = Params(Polygon);
    p.angle = 1e300;
    const Ref<Image> k(MakePolygonKernel(p, 9.0, 0));
    EXPECT_EQ(At(k, 4, 4), 1.0f);
    p.angle = std::numeric_limits<double>::infinity();
    EXPECT_THROW(MakePolygonKernel(p, 9.0, 0), std::runtime_error);
}
