#include "kernel/KernelPreview.h"

#include "controls/FilterInterface.h"
#include "host/Image.h"
#include "host/Object.h"
#include "kernel/KernelShapes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

// Red 1x1, green 3x3 and blue 5x9 Laplacians, centred in a 5x9 picture; the
// negative ring must survive the scaling to a peak of 1.
TEST(KernelPreview, CentresEachColoursKernelAtPeakOneWithOpaqueAlpha)
{
    filter_interface p;
    p.kernelStyle = 4;
    const double sizeX[3] = {1.0, 3.0, 5.0}, sizeY[3] = {1.0, 3.0, 9.0};
    const Ref<Image> preview(MakeKernelPreview(p, sizeX, sizeY)), blue(MakeChannelKernel(p, 5.0, 9.0));
    ASSERT_TRUE(preview->Width == 5 && preview->Height == 9);
    double bluePeak = 0;
    for (int i = 0; i < 45; ++i) bluePeak = std::max(bluePeak, std::fabs(double(blue->Pixel(i % 5, i / 5)[0])));
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 5; ++x) {
            const float* px = preview->Pixel(x, y);  // B, G, R, A
            EXPECT_EQ(px[3], 1.0f) << x << "," << y;
            EXPECT_EQ(px[2], x == 2 && y == 4 ? 1.0f : 0.0f) << x << "," << y;
            if (std::abs(x - 2) > 1 || std::abs(y - 4) > 1) { EXPECT_EQ(px[1], 0.0f) << x << "," << y; }
            EXPECT_NEAR(px[0], blue->Pixel(x, y)[0] / bluePeak, 1e-6) << x << "," << y;
        }
    EXPECT_EQ(preview->Pixel(2, 4)[1], 1.0f);
    EXPECT_LT(preview->Pixel(1, 3)[1], 0.0f);
}

TEST(KernelPreview, RefusesAColourWithoutAPositiveSizeAndLeaksNothing)
{
    const double sizeX[3] = {4.0, 4.0, 4.0}, sizeY[3] = {4.0, 0.0, 4.0};
    const long imagesBefore = Image::LiveCount();  // red's kernel is made before green's fails
    try {
        Ref<Image> preview(MakeKernelPreview(filter_interface{}, sizeX, sizeY));
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Blur size 4 x 0 pixels is not above 0 on both axes: a kernel needs a positive size");
    }
    EXPECT_EQ(Image::LiveCount(), imagesBefore);
}

}  // namespace
