#include "kernel/KernelShapes.h"

#include "controls/FilterInterface.h"
#include "host/Image.h"
#include "host/Object.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <string>

namespace {

enum Style { Disk, Polygon, Gaussian, Airy, Laplacian };
const char* const kStyleNames[] = {"Disk", "Polygon", "Gaussian", "Airy", "Laplacian"};
const double kPi = std::acos(-1.0);

filter_interface Params(int style, double badBokeh = 0.0, double angleDegrees = 0.0, int sides = 6)
{
    filter_interface p;
    p.kernelStyle = style;
    p.badBokeh = badBokeh;
    p.angle = angleDegrees * kPi / 180.0;
    p.sideCount = sides;
    return p;
}

Ref<Image> Make(const filter_interface& p, double size, int minimumSize = 0)
{
    return Ref<Image>(MakeKernel(p, size, minimumSize));
}

// The red component; every test of a whole kernel also checks the other three match it.
float At(const Ref<Image>& k, int x, int y) { return k->Pixel(x, y)[2]; }

std::string ThrownBy(const std::function<void()>& f)
{
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "(nothing thrown)";
}

class EveryStyle : public ::testing::TestWithParam<int> {};

TEST_P(EveryStyle, EdgeIsTheSmallestOddWholeNumberNotBelowTheSizeAndSizeOneIsASinglePixelOfOne)
{
    const struct { double size; int minimumSize; int edge; } cases[] = {
        {1, 0, 1}, {2, 0, 3}, {4, 0, 5}, {4.2, 0, 5}, {5, 0, 5}, {6, 0, 7}, {2, 9, 9}};
    for (const auto& c : cases) {
        const Ref<Image> k = Make(Params(GetParam()), c.size, c.minimumSize);
        EXPECT_EQ(k->Width, c.edge) << "size " << c.size;
        EXPECT_EQ(k->Height, c.edge) << "size " << c.size;
        EXPECT_EQ(k->Depth, IMDP_Float32);
    }
    EXPECT_EQ(At(Make(Params(GetParam()), 1.0), 0, 0), 1.0f);
}

TEST_P(EveryStyle, ComponentsAreEqualAndQuarterTurnsOrMirrorsLeaveTheKernelAlone)
{
    const Ref<Image> k = Make(Params(GetParam()), 12.6);
    const int n = k->Width;
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            const float* p = k->Pixel(x, y);
            ASSERT_TRUE(p[0] == p[2] && p[1] == p[2] && p[3] == p[2]) << "at " << x << "," << y;
            if (GetParam() == Polygon) {
                // A hexagon at angle 0 has mirror symmetry about both axes, not 90-degree symmetry.
                EXPECT_NEAR(At(k, n - 1 - x, y), p[2], 1e-6) << "at " << x << "," << y;
                EXPECT_NEAR(At(k, x, n - 1 - y), p[2], 1e-6) << "at " << x << "," << y;
            } else {
                EXPECT_EQ(At(k, n - 1 - y, x), p[2]) << "at " << x << "," << y;
            }
        }
}

TEST_P(EveryStyle, BadBokehBrightensOnlyDiskAndPolygonRimsToThreeTimesTheCentre)
{
    const Ref<Image> plain = Make(Params(GetParam(), 0.0), 9.0);
    const Ref<Image> bokeh = Make(Params(GetParam(), 0.5), 9.0);
    const bool shaded = GetParam() == Disk || GetParam() == Polygon;
    // (8, 4) lies at d = 4 on +x: the disk's rim, and past a hexagon's flat side.
    EXPECT_EQ(At(bokeh, 4, 4), At(plain, 4, 4));
    if (GetParam() == Disk) { EXPECT_FLOAT_EQ(At(bokeh, 8, 4), 3.0f); }
    if (GetParam() == Polygon) { EXPECT_FLOAT_EQ(At(bokeh, 4, 8), 3.0f); }  // a corner: d = circumradius
    if (!shaded) { EXPECT_EQ(At(bokeh, 8, 4), At(plain, 8, 4)); }
}

INSTANTIATE_TEST_SUITE_P(Kernel, EveryStyle, ::testing::Values(Disk, Polygon, Gaussian, Airy, Laplacian),
                         [](const auto& info) { return std::string(kStyleNames[info.param]); });

TEST(DiskKernel, SizeTwoHasAHalfBrightRingAndFallOffCorners)
{
    const Ref<Image> k = Make(Params(Disk), 2.0);
    EXPECT_EQ(At(k, 1, 1), 1.0f);
    EXPECT_EQ(At(k, 0, 1), 0.5f);
    EXPECT_EQ(At(k, 2, 1), 0.5f);
    EXPECT_FLOAT_EQ(At(k, 0, 0), static_cast<float>(1.5 - std::sqrt(2.0)));
}

TEST(DiskKernel, RimIsInsideAtTheEdgeAndDarkOnePixelBeyond)
{
    EXPECT_EQ(RimShading(2.5, 2.5, 0.25), 2.0);
    EXPECT_EQ(RimShading(3.5, 2.5, 0.25), 0.0);
    // Size 3 padded to 5: radius 1, so (3, 2) sits on the rim and (4, 2) one pixel beyond.
    const Ref<Image> k = Make(Params(Disk, 0.25), 3.0, 5);
    EXPECT_EQ(At(k, 3, 2), 2.0f);
    EXPECT_EQ(At(k, 4, 2), 0.0f);
}

TEST(PolygonKernel, HexagonFacesXWithAFlatSideAtAngleZeroAndWithACornerAtThirty)
{
    // Size 21: circumradius 10, apothem 10 cos 30 = 8.66. A pixel 9 out lies past
    // a flat side (in its fall-off) but inside toward a corner.
    const float pastSide = static_cast<float>(10.0 * std::cos(kPi / 6) + 1.0 - 9.0);
    for (const double degrees : {0.0, 30.0}) {
        const Ref<Image> k = Make(Params(Polygon, 0.0, degrees), 21.0);
        const float alongX = degrees == 0.0 ? pastSide : 1.0f;
        const float alongY = degrees == 0.0 ? 1.0f : pastSide;
        EXPECT_NEAR(At(k, 19, 10), alongX, 1e-6) << degrees;
        EXPECT_NEAR(At(k, 1, 10), alongX, 1e-6) << degrees;
        EXPECT_NEAR(At(k, 10, 19), alongY, 1e-6) << degrees;
        EXPECT_NEAR(At(k, 10, 1), alongY, 1e-6) << degrees;
    }
}

// The smooth shapes against their closed forms, computed here directly.
TEST(SmoothKernels, MatchTheirClosedForms)
{
    const double size = 14.0, sigma = size / 6.0, airyScale = size / 20.347;
    const Ref<Image> gauss = Make(Params(Gaussian), size);
    const Ref<Image> airy = Make(Params(Airy), size);
    const Ref<Image> hat = Make(Params(Laplacian), size);
    for (int y = 0; y < 15; ++y)
        for (int x = 0; x < 15; ++x) {
            const double r2 = (x - 7.0) * (x - 7.0) + (y - 7.0) * (y - 7.0), u = std::sqrt(r2) / airyScale;
            const double bessel = u == 0.0 ? 0.5 : std::cyl_bessel_j(1.0, u) / u;
            const double q = r2 / (2 * sigma * sigma);
            EXPECT_NEAR(At(gauss, x, y), std::exp(-r2 / (sigma * sigma)), 1e-6) << x << "," << y;
            EXPECT_NEAR(At(airy, x, y), std::sqrt(r2) < size / 2 ? 4 * bessel * bessel : 0.0, 1e-6) << x << "," << y;
            if (std::sqrt(r2) > size / 2) { EXPECT_EQ(At(airy, x, y), 0.0f) << x << "," << y; }
            EXPECT_NEAR(At(hat, x, y), std::exp(-q) * (1 - q), 1e-6) << x << "," << y;
        }
    EXPECT_EQ(At(airy, 7, 7), 1.0f);
    EXPECT_GT(At(gauss, 0, 0), 0.0f);
    EXPECT_NE(At(hat, 0, 0), 0.0f);
}

TEST(LaplacianKernel, HasANegativeRingBottomingAtMinusEToTheMinusTwoThatNearlyCancelsTheCentre)
{
    const Ref<Image> k = Make(Params(Laplacian), 30.0);  // sigma 5: q = 2 at d = 10
    double positive = 0, negative = 0;
    float lowest = 0;
    for (int y = 0; y < 31; ++y)
        for (int x = 0; x < 31; ++x) {
            const float v = At(k, x, y);
            (v >= 0 ? positive : negative) += std::fabs(v);
            lowest = std::min(lowest, v);
        }
    EXPECT_EQ(At(k, 15, 15), 1.0f);
    EXPECT_FLOAT_EQ(lowest, static_cast<float>(-std::exp(-2.0)));
    EXPECT_FLOAT_EQ(At(k, 25, 15), lowest);
    EXPECT_NEAR(negative / positive, 1.0, 0.1);
}

TEST(KernelImage, TakesItsSizeAndDepthFromTheTagsNotFromTheModel)
{
    Image model(64, 48, IMDP_Int8);
    model.XScale = 2.0;
    filter_interface p = Params(Gaussian);
    p.modelImage = &model;
    const Ref<Image> k = Make(p, 4.0);
    EXPECT_EQ(k->Width, 5);
    EXPECT_EQ(k->Height, 5);
    EXPECT_EQ(k->Depth, IMDP_Float32);
    EXPECT_EQ(k->XScale, 2.0);
}

TEST(ChannelKernel, IsMadeSquareAtTheLargerSizeThenResizedToEachAxis)
{
    const filter_interface p = Params(Disk);
    const Ref<Image> wide(MakeChannelKernel(p, 3.0, 6.2));
    EXPECT_EQ(wide->Width, 3);
    EXPECT_EQ(wide->Height, 7);
    const Ref<Image> square(MakeChannelKernel(p, 6.2, 6.2)), direct = Make(p, 6.2);
    ASSERT_EQ(square->Width, 7);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 7; ++x) EXPECT_EQ(At(square, x, y), At(direct, x, y));
}

TEST(KernelErrors, SayWhatWasWrongAndWhatIsAccepted)
{
    const std::string badStyle = " is not one of 0 Disk, 1 Polygon, 2 Gaussian, 3 Airy Disk, 4 Laplacian";
    const struct { int style, sides; double sx, sy; std::string message; } cases[] = {
        {Polygon, 2, 5, 5, "Polygon Side Count 2 is below 3: a polygon needs at least 3 sides"},
        {Polygon, -4, 5, 5, "Polygon Side Count -4 is below 3: a polygon needs at least 3 sides"},
        {7, 6, 5, 5, "Blur Style 7" + badStyle},
        {-1, 6, 5, 5, "Blur Style -1" + badStyle},
        {Disk, 6, 0, 5, "Blur size 0 x 5 pixels is not above 0 on both axes: a kernel needs a positive size"},
        {Disk, 6, 2.5, -1, "Blur size 2.5 x -1 pixels is not above 0 on both axes: a kernel needs a positive size"},
    };
    for (const auto& c : cases) {
        const filter_interface p = Params(c.style, 0.0, 0.0, c.sides);
        EXPECT_EQ(ThrownBy([&] { Ref<Image> k(MakeChannelKernel(p, c.sx, c.sy)); }), c.message);
    }
    const filter_interface triangle = Params(Polygon, 0.0, 0.0, 3);
    EXPECT_EQ(ThrownBy([&] { Ref<Image> k(MakePolygonKernel(Params(Polygon, 0, 0, 0), 5, 0)); }),
              "Polygon Side Count 0 is below 3: a polygon needs at least 3 sides");
    EXPECT_EQ(At(Make(triangle, 5.0), 2, 2), 1.0f);
}

}  // namespace
