// Transform sizes: powers of two by default, and the smooth rule's smaller sides
// with no prime factor above 7, which give the same image; sizes out of range
// are refused.
#include "frequency/FilterFrame.h"
#include "frequency/TransformSize.h"

namespace {

bool SevenSmooth(int n)
{
    for (int p : {2, 3, 5, 7})
        while (n % p == 0) n /= p;
    return n == 1;
}

struct Case { int width, height; double blurX, blurY; int style, edge; };

class SmoothSizes : public ::testing::TestWithParam<Case> {};

TEST_P(SmoothSizes, AreSmallerSevenSmoothSidesAndGiveTheSameImage)
{
    const Case c = GetParam();
    Ref<Image> src(TestPlate(c.width, c.height));
    const TransformSize usual = TransformSizeFor(c.width, c.height, c.blurX, c.blurY, 0, TransformSizes::PowersOfTwo);
    const TransformSize t = TransformSizeFor(c.width, c.height, c.blurX, c.blurY, 0, TransformSizes::Smooth);
    EXPECT_EQ(usual.width, PowerOfTwoAbove(c.width + usual.kernelWidth));
    EXPECT_EQ(usual.height, PowerOfTwoAbove(c.height + usual.kernelHeight));
    for (const auto& [side, needed] :
         {std::pair{t.width, c.width + t.kernelWidth}, std::pair{t.height, c.height + t.kernelHeight}}) {
        EXPECT_GT(side, needed);
        EXPECT_LE(side, PowerOfTwoAbove(needed));
        EXPECT_TRUE(side % 2 == 0 && SevenSmooth(side)) << side;
        for (int smaller = needed + 1; smaller < side; ++smaller)
            EXPECT_FALSE(smaller % 2 == 0 && SevenSmooth(smaller)) << smaller << " would do";
    }
    FrameSettings s;
    s.shape.kernelStyle = c.style;
    s.edge = c.edge;
    s.Size(c.blurX, c.blurY);
    const Ref<Image> expected = FilterFrame(*src, s);
    s.rule = TransformSizes::Smooth;
    ExpectCloseTo(*FilterFrame(*src, s), [&](int x, int y, int k) { return Sample(*expected, x, y, k); });
}

// Sides where the smooth size falls well short of the power of two (45 -> 48
// against 64, 62 -> 63 is odd so 64 both ways, 133 -> 140 against 256), every edge
// mode, and a transform just large enough for the kernel.
INSTANTIATE_TEST_SUITE_P(Renders, SmoothSizes,
                         ::testing::Values(Case{40, 13, 4.5, 4.5, 0, 0}, Case{57, 23, 4.2, 9.0, 1, 1},
                                           Case{128, 7, 5.0, 3.0, 2, 2}, Case{31, 33, 6.0, 6.0, 0, 0},
                                           Case{17, 9, 1.5, 1.5, 3, 1}));

TEST(TransformSize, SizesNotAboveZeroOrPastTheLargestSideAreRefused)
{
    const std::pair<double, const char*> cases[] = {
        {0.0, "the green blur size 0.000000 x 0.000000 is not above 0 pixels, so there is no kernel to filter with"},
        {3e9, "the green blur size of 3000000000.000000 pixels passes the largest kernel of 1073741824 pixels"},
        {1073741800, "the transform width for image plus kernel of 1073741865 pixels would pass the largest side "
                     "of 1073741824"},
    };
    for (const auto& [size, message] : cases) {
        try {
            TransformSizeFor(64, 48, size, size, 1, TransformSizes::PowersOfTwo);
            ADD_FAILURE() << size;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), message);
        }
    }
}

}  // namespace
