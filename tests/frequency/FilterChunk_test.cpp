// Whole frames filtered chunk by chunk against an independent computation: the
// image extended past its borders by direct indexing, convolved in the spatial
// domain with the normalised kernel, whose shapes are drawn here from their
// closed forms.
#include "frequency/FilterFrame.h"
#include "frequency/TransformSize.h"
#include "support/Refusal.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <tuple>

namespace {

// Component `comp` of `src` filtered with component `kcomp` of `kernel`, as the
// render should give it, computed directly: the kernel scaled so that the larger
// of its positive and negative sums is 1, and the image extended past its
// borders by edge mode `edge` (0 repeats the border pixel, 1 wraps around, 2 is
// black).
std::vector<double> SpatialReference(const Image& src, int comp, const Image& kernel, int kcomp, int edge)
{
    const int w = src.Width, h = src.Height, kw = kernel.Width, kh = kernel.Height;
    double pos = 0, neg = 0;
    for (int j = 0; j < kh; ++j)
        for (int i = 0; i < kw; ++i)
            (Sample(kernel, i, j, kcomp) >= 0 ? pos : neg) += std::abs(Sample(kernel, i, j, kcomp));
    std::vector<double> out(static_cast<std::size_t>(w) * h, 0.0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int j = 0; j < kh; ++j)
                for (int i = 0; i < kw; ++i) {
                    int sx = x - i + kw / 2, sy = y - j + kh / 2;
                    if (edge == 2 && (sx < 0 || sy < 0 || sx >= w || sy >= h)) continue;
                    if (edge == 1) sx = (sx % w + w) % w, sy = (sy % h + h) % h;
                    const double v = Sample(src, std::clamp(sx, 0, w - 1), std::clamp(sy, 0, h - 1), comp);
                    out[static_cast<std::size_t>(y) * w + x] += Sample(kernel, i, j, kcomp) / std::max(pos, neg) * v;
                }
    return out;
}

// Inside a disk or polygon of edge distance e: 1 rising by 4 x bad bokeh to the
// rim with the fourth power of d / e; past it a ramp one pixel wide down to 0,
// starting from the rim's height.
double RimValue(double d, double e, double badBokeh)
{
    if (d <= e) return 1.0 + 4.0 * badBokeh * std::pow(d / e, 4);
    return d <= e + 1.0 ? (e + 1.0 - d) * (1.0 + 4.0 * badBokeh) : 0.0;
}

// A kernel shape of blur size `size`, sampled at whole-pixel offsets from the
// centre of an odd square (the odd number of pixels at or above the size). The
// polygon's edge distance along a point's direction is the apothem over the
// largest cosine between that direction and a side's outward normal; with angle
// 0 a normal lies on +x, and the angle turns them toward negative angles.
int OddSide(double size)
{
    const int n = static_cast<int>(std::ceil(size));
    return n % 2 ? n : n + 1;
}

Ref<Image> ReferenceShape(const KernelParams& p, double size)
{
    const int n = OddSide(size);
    const double radius = std::max((size - 1.0) / 2.0, 1e-4), sigma = size / 6.0, pi = std::acos(-1.0);
    return Ref<Image>(MakeImage(n, n, [&](int x, int y, int) {
        const double dx = x - n / 2, dy = y - n / 2, d = std::hypot(dx, dy);
        switch (p.kernelStyle) {
        case 0: return static_cast<float>(RimValue(d, radius, p.badBokeh));
        case 1: {
            double most = -1.0;
            for (int k = 0; k < p.sideCount; ++k)
                most = std::max(most, std::cos(std::atan2(dy, dx) + p.angle - 2.0 * pi * k / p.sideCount));
            return static_cast<float>(RimValue(d, radius * std::cos(pi / p.sideCount) / most, p.badBokeh));
        }
        case 2: return static_cast<float>(std::exp(-d * d / (sigma * sigma)));
        case 3: {  // 4 (J1(u) / u)^2, 1 at the centre, cut at J1's third zero, which lies at size / 2
            const double u = d * 20.347 / size;
            return static_cast<float>(u == 0.0 ? 1.0 : u < 10.1735 ? 4.0 * std::pow(::j1(u) / u, 2) : 0.0);
        }
        default: {  // an inverted hat: 1 at the centre, a negative ring
            const double q = d * d / (2.0 * sigma * sigma);
            return static_cast<float>(std::exp(-q) * (1.0 - q));
        }
        }
    }));
}

// Every output sample of red, green, blue and alpha within float rounding of
// the reference; extra channels exactly as the source.
void ExpectMatchesReference(const FrameSettings& s, const Image& src, const Image& out)
{
    ASSERT_EQ(std::make_pair(out.Width, out.Height), std::make_pair(src.Width, src.Height));
    std::vector<double> ref[4], alpha[3];
    for (int c = 0; c < 3; ++c) {
        // A shape is drawn square at the larger size, then resized like a kernel image.
        Ref<Image> kernel = s.kernelImage ? Ref<Image>() : ReferenceShape(s.shape, std::max(s.sizeX[c], s.sizeY[c]));
        const int kw = OddSide(s.sizeX[c]), kh = OddSide(s.sizeY[c]);
        if (s.kernelImage || kw != kh)
            kernel = Ref<Image>((s.kernelImage ? s.kernelImage : kernel.get())
                                    ->ResizeOfImage({{RSZ_Width, kw}, {RSZ_Height, kh}, {RSZ_Filter, RSZ_FILTER_AREA}}));
        ref[c] = SpatialReference(src, c, *kernel, c, s.edge);
        alpha[c] = SpatialReference(src, 3, *kernel, c, s.edge);
    }
    ref[3] = alpha[0];
    for (std::size_t i = 0; i < ref[3].size(); ++i) ref[3][i] = std::max({alpha[0][i], alpha[1][i], alpha[2][i]});
    ExpectCloseTo(out, [&](int x, int y, int c) { return ref[c][static_cast<std::size_t>(y) * src.Width + x]; });
    for (int y = 0; y < src.Height; ++y)
        for (int x = 0; x < src.Width; ++x)
            for (int e = 4; e < src.PixelStride(); ++e) ASSERT_EQ(Sample(out, x, y, e), Sample(src, x, y, e));
}

class EveryStyleAndEdge : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(EveryStyleAndEdge, MatchesTheSpatialConvolution)
{
    Ref<Image> src(TestPlate(17, 13));
    FrameSettings s;
    std::tie(s.shape.kernelStyle, s.edge) = GetParam();
    s.shape.badBokeh = 0.5;
    s.shape.angle = 20 * 0.017453292519943295;
    s.Size(4.5, 4.5);
    ExpectMatchesReference(s, *src, *FilterFrame(*src, s));
}

INSTANTIATE_TEST_SUITE_P(FilterChunk, EveryStyleAndEdge,
                         ::testing::Combine(::testing::Range(0, 5), ::testing::Range(0, 3)));

TEST(FilterChunk, PerChannelSizesAndAKernelImageWithDifferentColours)
{
    Ref<Image> src(TestPlate(40, 9));
    FrameSettings s;
    s.shape.kernelStyle = 2;
    const double sizes[3][2] = {{3.0, 6.2}, {5.0, 2.2}, {1.0, 7.0}};
    for (int c = 0; c < 3; ++c) s.sizeX[c] = sizes[c][0], s.sizeY[c] = sizes[c][1];
    ExpectMatchesReference(s, *src, *FilterFrame(*src, s));

    src = Ref<Image>(TestPlate(17, 13));
    Ref<Image> kernel(MakeImage(9, 6, [](int x, int y, int c) {
        return c == 0 ? float(x == 2) : c == 1 ? float(y + 1) : c == 2 ? float((x * y) % 3) : 1.0f;
    }));
    s.kernelImage = kernel.get();
    s.Size(7, 4);
    s.edge = 1;
    ExpectMatchesReference(s, *src, *FilterFrame(*src, s));
}

TEST(FilterChunk, DeconvolvingAGaussianBlurGivesTheImageBack)
{
    const int w = 48, h = 40;
    Ref<Image> smooth(MakeImage(w, h, [](int x, int y, int c) {
        return c == 3 ? 1.0f : 0.5f + 0.3f * std::sin(0.21f * x + c) * std::cos(0.17f * y);
    }));
    FrameSettings s;
    s.shape.kernelStyle = 2;
    s.Size(5, 5);
    Ref<Image> blurred = FilterFrame(*smooth, s);
    s.convolve = false;
    s.wiener = 1e-7;
    Ref<Image> back = FilterFrame(*blurred, s);
    double worst = 0, blurWorst = 0;  // away from the edges
    for (int y = 8; y < h - 8; ++y)
        for (int x = 8; x < w - 8; ++x)
            for (int c = 0; c < 3; ++c) {
                worst = std::max(worst, double(std::abs(Sample(*back, x, y, c) - Sample(*smooth, x, y, c))));
                blurWorst = std::max(blurWorst, double(std::abs(Sample(*blurred, x, y, c) - Sample(*smooth, x, y, c))));
            }
    EXPECT_LT(worst, 2e-3) << "the blur itself moved samples by up to " << blurWorst;
    EXPECT_GT(blurWorst, 20 * worst);
}

// A naive two-dimensional DFT of an n x m array (row-major), e^(sign 2 pi i ...), unscaled.
std::vector<std::complex<double>> Dft(const std::vector<std::complex<double>>& a, int n, int m, double sign)
{
    const double pi = std::acos(-1.0);
    std::vector<std::complex<double>> out(a.size());
    for (int v = 0; v < m; ++v)
        for (int u = 0; u < n; ++u)
            for (int y = 0; y < m; ++y)
                for (int x = 0; x < n; ++x)
                    out[v * n + u] += a[y * n + x] * std::polar(1.0, sign * 2 * pi * (double(u * x) / n + double(v * y) / m));
    return out;
}

// Deconvolution of a whole frame against the Wiener filter computed here: with
// black edges the image sits in the top-left corner of a zero array of the
// powers of two above image plus kernel, the kernel's centre on (0, 0) and its
// weights summing to 1, and every frequency becomes Y conj(K) / (|K|^2 + w).
TEST(FilterChunk, DeconvolutionIsTheWienerFilterOverTheWholeFrame)
{
    using Complex = std::complex<double>;
    const int w = 9, h = 7, kw = 5, kh = 3;
    const double wiener = 0.3;
    Ref<Image> src(TestPlate(w, h));
    Ref<Image> kernel(MakeImage(kw, kh, [](int x, int y, int) { return 1.0f + x + 3.0f * y + (x == 4 && y == 0 ? 5.0f : 0.0f); }));
    const int n = PowerOfTwoAbove(w + kw), m = PowerOfTwoAbove(h + kh);
    std::vector<Complex> k(static_cast<std::size_t>(n) * m);
    double total = 0;
    for (int y = 0; y < kh; ++y)
        for (int x = 0; x < kw; ++x) total += Sample(*kernel, x, y, 0);
    for (int y = 0; y < kh; ++y)
        for (int x = 0; x < kw; ++x) k[(y - kh / 2 + m) % m * n + (x - kw / 2 + n) % n] = Sample(*kernel, x, y, 0) / total;
    const std::vector<Complex> K = Dft(k, n, m, -1);
    std::vector<double> ref[4];
    for (int c = 0; c < 4; ++c) {
        std::vector<Complex> plane(k.size());
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) plane[y * n + x] = Sample(*src, x, y, c);
        std::vector<Complex> Y = Dft(plane, n, m, -1);
        for (std::size_t j = 0; j < Y.size(); ++j) Y[j] *= std::conj(K[j]) / (std::norm(K[j]) + wiener);
        const std::vector<Complex> back = Dft(Y, n, m, 1);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) ref[c].push_back(back[y * n + x].real() / (n * m));
    }
    FrameSettings s;
    s.kernelImage = kernel.get();
    s.Size(kw, kh);
    s.edge = 2;
    s.convolve = false;
    s.wiener = wiener;
    ExpectCloseTo(*FilterFrame(*src, s), [&](int x, int y, int c) { return ref[c][static_cast<std::size_t>(y) * w + x]; });
}

// Transform sizes: powers of two by default, and the smooth rule's smaller sides
// with no prime factor above 7, which give the same image; sizes out of range
// are refused.
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
        {0.0, "the green blur size 0 x 0 is not above 0 pixels, so there is no kernel to filter with"},
        {3e9, "the green blur size of 3e+09 pixels passes the largest kernel of 1073741824 pixels"},
        {1e300, "the green blur size of 1e+300 pixels passes the largest kernel of 1073741824 pixels"},
        {1073741800, "the transform width for image plus kernel of 1073741865 pixels would pass the largest side "
                     "of 1073741824"},
    };
    for (const auto& c : cases)  // clang 14 lambdas cannot capture structured bindings
        EXPECT_EQ(Refusal<std::runtime_error>(
                      [&] { TransformSizeFor(64, 48, c.first, c.first, 1, TransformSizes::PowersOfTwo); }),
                  c.second);
}

}  // namespace
