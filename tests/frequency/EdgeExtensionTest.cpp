#include "frequency/EdgeExtension.h"
#include "frequency/FrequencyArray.h"

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::int32_t kDuplicate = 0;
constexpr std::int32_t kWrap = 1;
constexpr std::int32_t kBlack = 2;

struct Layout {
    std::int32_t C, R, W, H, kw, kh;
};

std::ostream& operator<<(std::ostream& out, const Layout& l)
{
    return out << l.C << "x" << l.R << " image " << l.W << "x" << l.H << " kernel " << l.kw << "x" << l.kh;
}

double& At(FrequencyArray& array, std::int32_t x, std::int32_t y)
{
    return array.data[y * (array.width + 2) + x];
}

double ImageValue(const Layout& l, std::int32_t x, std::int32_t y) { return 1 + x + l.W * y; }

void MakeImage(FrequencyArray& array, const Layout& l)
{
    array.Create(l.C, l.R);
    for (std::int32_t y = 0; y < l.H; ++y)
        for (std::int32_t x = 0; x < l.W; ++x) At(array, x, y) = ImageValue(l, x, y);
}

// Where an array column or row lies relative to the image, for margins of the
// given half width, when the two sides of the array are far enough apart not to meet.
enum class Band { Image, Near, NearExtra, Far, FarExtra, Outside };

Band BandOf(std::int32_t p, std::int32_t imageSize, std::int32_t arraySize, std::int32_t half)
{
    if (p < imageSize) return Band::Image;
    if (p < imageSize + half) return Band::Near;
    if (p == imageSize + half) return Band::NearExtra;
    if (p >= arraySize - half) return Band::Far;
    if (p == arraySize - half - 1) return Band::FarExtra;
    return Band::Outside;
}

// Periodic continuation: a far margin sample is the image sample one period back.
double ExpectedWrap(const Layout& l, std::int32_t x, std::int32_t y)
{
    const Band bx = BandOf(x, l.W, l.C, (l.kw + 1) / 2);
    const Band by = BandOf(y, l.H, l.R, (l.kh + 1) / 2);
    const auto inside = [](Band b) { return b == Band::Image || b == Band::Near || b == Band::Far; };
    if (!inside(bx) || !inside(by)) return 0.0;
    const std::int32_t sx = bx == Band::Image ? x : bx == Band::Near ? x - l.W : x - l.C + l.W;
    const std::int32_t sy = by == Band::Image ? y : by == Band::Near ? y - l.H : y - l.R + l.H;
    return ImageValue(l, sx, sy);
}

// Nearest border sample, over the deliberately uneven extents: far corners one
// column and row wider than near ones, one more row copied below the image's
// columns than the corners reach, no extra far column beside the image's rows.
double ExpectedDuplicate(const Layout& l, std::int32_t x, std::int32_t y)
{
    Band bx = BandOf(x, l.W, l.C, (l.kw + 1) / 2);
    Band by = BandOf(y, l.H, l.R, (l.kh + 1) / 2);
    if (bx == Band::NearExtra) bx = Band::Outside;
    if (by == Band::FarExtra) by = Band::Far;
    if (bx == Band::Outside || by == Band::Outside) return 0.0;
    if (bx == Band::FarExtra && by == Band::Image) return 0.0;
    if (bx != Band::Image && by == Band::NearExtra) return 0.0;
    const std::int32_t sx = bx == Band::Image ? x : bx == Band::Near ? l.W - 1 : 0;
    const std::int32_t sy = by == Band::Image ? y : by == Band::Far ? 0 : l.H - 1;
    return ImageValue(l, sx, sy);
}

class RoomyMargins : public ::testing::TestWithParam<Layout> {};

TEST_P(RoomyMargins, WrapAndDuplicateFillTheirMargins)
{
    const Layout l = GetParam();
    for (const auto& [type, expected] : {std::pair{kWrap, &ExpectedWrap}, std::pair{kDuplicate, &ExpectedDuplicate}}) {
        FrequencyArray array;
        MakeImage(array, l);
        ExtendEdges(array, l.W, l.H, l.kw, l.kh, type);
        for (std::int32_t y = 0; y < l.R; ++y)
            for (std::int32_t x = 0; x < l.C; ++x)
                ASSERT_EQ(At(array, x, y), expected(l, x, y)) << "type " << type << " at " << x << ", " << y;
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, RoomyMargins,
                         ::testing::Values(Layout{8, 8, 3, 2, 1, 1}, Layout{16, 12, 4, 3, 3, 3},
                                           Layout{16, 16, 5, 4, 5, 3}, Layout{32, 8, 7, 1, 7, 1}));

struct TightCase {
    Layout layout;
    std::vector<std::vector<double>> expected;  // rows of the whole array
};

std::ostream& operator<<(std::ostream& out, const TightCase& c) { return out << c.layout; }

class TightDuplicate : public ::testing::TestWithParam<TightCase> {};

// Arrays exactly one sample wider (or taller) than image plus kernel: the far
// corner's extra column or row lands on the last near one, and the order of the
// writes decides (worked by hand).
TEST_P(TightDuplicate, LaterWritesStand)
{
    const TightCase& c = GetParam();
    FrequencyArray array;
    MakeImage(array, c.layout);
    ExtendEdges(array, c.layout.W, c.layout.H, c.layout.kw, c.layout.kh, kDuplicate);
    for (std::int32_t y = 0; y < c.layout.R; ++y)
        for (std::int32_t x = 0; x < c.layout.C; ++x)
            EXPECT_EQ(At(array, x, y), c.expected[y][x]) << "at " << x << ", " << y;
}

INSTANTIATE_TEST_SUITE_P(
    HandWorked, TightDuplicate,
    ::testing::Values(TightCase{{4, 4, 2, 2, 1, 1}, {{1, 2, 2, 1}, {3, 4, 4, 3}, {1, 2, 4, 3}, {1, 2, 2, 1}}},
                      TightCase{{7, 6, 3, 2, 3, 1},
                                {{1, 2, 3, 3, 3, 1, 1},
                                 {4, 5, 6, 6, 6, 4, 4},
                                 {4, 5, 6, 6, 6, 4, 4},
                                 {4, 5, 6, 0, 0, 0, 0},
                                 {1, 2, 3, 3, 3, 1, 1},
                                 {1, 2, 3, 3, 3, 1, 1}}},
                      TightCase{{5, 7, 2, 3, 1, 3},
                                {{1, 2, 2, 0, 1},
                                 {3, 4, 4, 0, 3},
                                 {5, 6, 6, 0, 5},
                                 {5, 6, 6, 5, 5},
                                 {1, 2, 6, 5, 5},
                                 {1, 2, 2, 1, 1},
                                 {1, 2, 2, 1, 1}}}));

TEST(ExtendEdges, BlackClearsEverythingOutsideTheImage)
{
    const Layout l{8, 6, 3, 2, 3, 1};
    FrequencyArray array;
    MakeImage(array, l);
    FillRect(array, l.W, l.C - 1, 0, l.R - 1, 7.0);
    FillRect(array, 0, l.W - 1, l.H, l.R - 1, 7.0);
    ExtendEdges(array, l.W, l.H, l.kw, l.kh, kBlack);
    for (std::int32_t y = 0; y < l.R; ++y)
        for (std::int32_t x = 0; x < l.C; ++x)
            ASSERT_EQ(At(array, x, y), x < l.W && y < l.H ? ImageValue(l, x, y) : 0.0) << x << ", " << y;
}

TEST(ExtendEdges, UnknownTypeFailsAndLeavesTheArray)
{
    const Layout l{8, 6, 3, 2, 3, 1};
    for (const std::int32_t type : {3, -1}) {
        FrequencyArray array;
        MakeImage(array, l);
        try {
            ExtendEdges(array, l.W, l.H, l.kw, l.kh, type);
            ADD_FAILURE() << "type " << type << " did not throw";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "Invalid Edge Type");
        }
        EXPECT_EQ(At(array, l.W, 0), 0.0);
    }
}

TEST(ExtendEdges, KernelWiderThanTheArrayStaysInside)
{
    for (const std::int32_t type : {kDuplicate, kWrap, kBlack}) {
        FrequencyArray array;
        MakeImage(array, {4, 3, 4, 3, 9, 9});
        for (std::int32_t y = 0; y < 3; ++y) At(array, 4, y) = At(array, 5, y) = 99.0;
        ExtendEdges(array, 4, 3, 9, 9, type);
        for (std::int32_t y = 0; y < 3; ++y) {
            EXPECT_EQ(At(array, 4, y), 99.0) << "type " << type;
            EXPECT_EQ(At(array, 5, y), 99.0) << "type " << type;
        }
    }
}

TEST(SumRect, ClampsEveryCoordinate)
{
    FrequencyArray array;
    MakeImage(array, {3, 2, 3, 2, 1, 1});  // 1 2 3 / 4 5 6
    EXPECT_EQ(SumRect(array, -5, 9, -5, 9), 21.0);
    EXPECT_EQ(SumRect(array, 9, 9, 9, 9), 6.0);
    EXPECT_EQ(SumRect(array, -1, -1, 1, 1), 4.0);
    EXPECT_EQ(SumRect(array, 1, 2, 0, 0), 5.0);
    EXPECT_EQ(SumRect(FrequencyArray{}, 0, 0, 0, 0), 0.0);
}

}  // namespace
