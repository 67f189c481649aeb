// Whole renders against an independent computation: the edge-extended padded
// plane convolved directly in the spatial domain with the normalised kernel.
#include "fft/EdgeExtension.h"
#include "fft/FrequencyArray.h"
#include "kernel/KernelShapes.h"
#include "kernel/KernelSize.h"
#include "support/ToolHarness.h"

#include <algorithm>
#include <cmath>

namespace {

// Component `comp` of `src` filtered with component `kcomp` of `kernel`, as the
// render should give it, computed without any transform.
std::vector<double> SpatialReference(const Image& src, int comp, const Image& kernel, int kcomp, int edge)
{
    const int w = src.Width, h = src.Height, kw = kernel.Width, kh = kernel.Height;
    const int wt = PowerOfTwoAbove(w + kw), ht = PowerOfTwoAbove(h + kh);
    FrequencyArray padded;
    padded.Create(wt, ht);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) padded.data[y * (wt + 2) + x] = Sample(src, x, y, comp);
    ExtendEdges(padded, w, h, kw, kh, edge);

    double pos = 0, neg = 0;
    for (int j = 0; j < kh; ++j)
        for (int i = 0; i < kw; ++i) {
            const double v = Sample(kernel, i, j, kcomp);
            (v >= 0 ? pos : neg) += std::abs(v);
        }
    const double norm = std::max(pos, neg);

    std::vector<double> out(static_cast<std::size_t>(w) * h, 0.0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double sum = 0;
            for (int j = 0; j < kh; ++j)
                for (int i = 0; i < kw; ++i) {
                    const int sx = ((x - i + kw / 2) % wt + wt) % wt, sy = ((y - j + kh / 2) % ht + ht) % ht;
                    sum += Sample(kernel, i, j, kcomp) / norm * padded.data[sy * (wt + 2) + sx];
                }
            out[static_cast<std::size_t>(y) * w + x] = sum;
        }
    return out;
}

// Every output sample of red, green, blue and alpha within float rounding of
// the reference; extra channels exactly as the source.
void ExpectMatchesReference(ToolHarness& h, const Image& src, const Image& out, const Image* connected)
{
    ASSERT_EQ(out.Width, src.Width);
    ASSERT_EQ(out.Height, src.Height);
    std::vector<double> ref[4];
    std::vector<double> alpha[3];
    for (int c = 0; c < 3; ++c) {
        const double sx = h.tool->blurSizeX[c], sy = h.tool->blurSizeY[c];
        Ref<Image> kernel(connected ? connected->ResizeOfImage({{RSZ_Width, OddKernelSize(sx)},
                                                                {RSZ_Height, OddKernelSize(sy)},
                                                                {RSZ_Filter, RSZ_FILTER_AREA}})
                                    : MakeChannelKernel(*h.tool, sx, sy));
        ref[c] = SpatialReference(src, c, *kernel, c, h.tool->edgeType);
        alpha[c] = SpatialReference(src, 3, *kernel, c, h.tool->edgeType);
    }
    ref[3].resize(ref[0].size());
    for (std::size_t i = 0; i < ref[3].size(); ++i) ref[3][i] = std::max({alpha[0][i], alpha[1][i], alpha[2][i]});

    ExpectCloseTo(out, [&](int x, int y, int c) { return ref[c][static_cast<std::size_t>(y) * src.Width + x]; });
    for (int y = 0; y < src.Height; ++y)
        for (int x = 0; x < src.Width; ++x)
            for (int e = 4; e < src.PixelStride(); ++e) ASSERT_EQ(Sample(out, x, y, e), Sample(src, x, y, e));
}

// Values outside 0..1, alpha that varies, and a depth channel.
Image* TestPlate(int w, int h)
{
    return MakeImage(
        w, h,
        [](int x, int y, int c) {
            if (c == 3) return 0.25f + 0.5f * std::sin(0.4f * x + 0.1f * y) * std::sin(0.4f * x + 0.1f * y);
            if (c == 4) return 100.0f + x - y;
            return static_cast<float>(((x * 7 + y * 13 + c * 5) % 11) - 3) * 0.7f + (x == 5 && y == 4 ? 20.f : 0.f);
        },
        {"Z"});
}

struct StyleEdge {
    int style, edge;
};

class EveryStyleAndEdge : public ::testing::TestWithParam<StyleEdge> {};

TEST_P(EveryStyleAndEdge, MatchesTheSpatialConvolution)
{
    ToolHarness h;
    Ref<Image> src(TestPlate(17, 13));
    h.Connect("input", src.get());
    h.Set("BlurSizeUnit", 1);
    h.Set("BlurStyle", GetParam().style);
    h.Set("Edges", GetParam().edge);
    h.Set("BadBokeh", 0.5);
    h.Set("KernelAngle", 20);
    h.Set("BlurSizeX", 4.5);
    Ref<Image> out = h.Render();
    ASSERT_TRUE(out) << (h.Lines(CONSOLE_Error).empty() ? "" : h.Lines(CONSOLE_Error).front());
    ExpectMatchesReference(h, *src, *out, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Pipeline, EveryStyleAndEdge, ::testing::ValuesIn([] {
                             std::vector<StyleEdge> v;
                             for (int s = 0; s < 5; ++s)
                                 for (int e = 0; e < 3; ++e) v.push_back({s, e});
                             return v;
                         }()));

TEST(Pipeline, PerChannelSizesWithTheLocksReleased)
{
    ToolHarness h;
    Ref<Image> src(TestPlate(40, 9));
    h.Connect("input", src.get());
    h.Set("BlurSizeUnit", 1);
    h.Set("PerChannel", 0);
    h.Set("LockXY", 1);
    h.Set("LockXY", 0);
    const double sizes[3][2] = {{3.0, 6.2}, {5.0, 2.2}, {1.0, 7.0}};
    const char* ids[3][2] = {{"BlurSizeX", "BlurSizeY"}, {"GreenBlurSizeX", "GreenBlurSizeY"},
                             {"BlueBlurSizeX", "BlueBlurSizeY"}};
    for (int c = 0; c < 3; ++c)
        for (int a = 0; a < 2; ++a) h.Set(ids[c][a], sizes[c][a]);
    h.Set("BlurStyle", 2);
    Ref<Image> out = h.Render();
    ASSERT_TRUE(out);
    ExpectMatchesReference(h, *src, *out, nullptr);
}

TEST(Pipeline, ConnectedKernelWithDifferentColours)
{
    ToolHarness h;
    Ref<Image> src(TestPlate(17, 13));
    Ref<Image> kernel(MakeImage(9, 6, [](int x, int y, int c) {
        return c == 0 ? float(x == 2) : c == 1 ? float(y + 1) : c == 2 ? float((x * y) % 3) : 1.0f;
    }));
    h.Connect("input", src.get());
    h.Connect("kernel", kernel.get());
    h.Set("BlurSizeUnit", 1);
    h.Set("LockXY", 1);
    h.Set("LockXY", 0);
    h.Set("BlurSizeX", 7);
    h.Set("BlurSizeY", 4);
    h.Set("Edges", 1);
    Ref<Image> out = h.Render();
    ASSERT_TRUE(out);
    ExpectMatchesReference(h, *src, *out, kernel.get());
}

TEST(Pipeline, DeconvolvingAGaussianBlurGivesTheImageBack)
{
    const int w = 48, h = 40;
    Ref<Image> smooth(MakeImage(w, h, [](int x, int y, int c) {
        return c == 3 ? 1.0f : 0.5f + 0.3f * std::sin(0.21f * x + c) * std::cos(0.17f * y);
    }));
    ToolHarness blur;
    blur.Connect("input", smooth.get());
    blur.Set("BlurSizeUnit", 1);
    blur.Set("BlurStyle", 2);
    blur.Set("BlurSizeX", 5);
    Ref<Image> blurred = blur.Render();
    ASSERT_TRUE(blurred);

    ToolHarness sharpen;
    sharpen.Connect("input", blurred.get());
    sharpen.Set("BlurSizeUnit", 1);
    sharpen.Set("BlurStyle", 2);
    sharpen.Set("BlurSizeX", 5);
    sharpen.Set("Operation", 0.5);  // exactly half way deconvolves
    sharpen.Set("WienerParam", 1e-7);
    Ref<Image> back = sharpen.Render();
    ASSERT_TRUE(back);
    double worst = 0, blurWorst = 0;
    for (int y = 8; y < h - 8; ++y)
        for (int x = 8; x < w - 8; ++x)
            for (int c = 0; c < 3; ++c) {
                worst = std::max(worst, double(std::abs(Sample(*back, x, y, c) - Sample(*smooth, x, y, c))));
                blurWorst = std::max(blurWorst, double(std::abs(Sample(*blurred, x, y, c) - Sample(*smooth, x, y, c))));
            }
    EXPECT_LT(worst, 2e-3) << "the blur itself moved samples by up to " << blurWorst;
    EXPECT_GT(blurWorst, 20 * worst);
}

}  // namespace
