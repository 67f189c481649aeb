// Plates as a compositor has them: encoded colour, data and display windows, AOV layers.
#include "support/ProgramRunner.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using OIIO::ImageBuf;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

double EncodeSrgb(double v) { return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055; }
double DecodeSrgb(double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); }

constexpr double kGrey = 128.0 / 255;  // the dark side, as encoded

// A grey/white edge down the middle: as encoded in an 8-bit PNG with alpha
// (stored unassociated), or as linear light in a float EXR.
void WriteEdge(const std::string& path, TypeDesc format, float alpha)
{
    ImageBuf buf(ImageSpec(24, 3, 4, TypeDesc::FLOAT));
    const float grey = static_cast<float>(format == TypeDesc::FLOAT ? DecodeSrgb(kGrey) : kGrey);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 24; ++x) {
            const float v = (x < 12 ? grey : 1.0f) * alpha;  // OpenImageIO takes colour premultiplied
            const float px[4] = {v, v, v, alpha};
            buf.setpixel(x, y, px);
        }
    WriteFile(buf, path, format);
}

// Light is filtered linearly: the edge's ramp (how far each pixel is from
// grey to white, found filtering the stored values) is laid between the two
// in linear light and encoded to sRGB on the way out, whether the input was an
// sRGB PNG with alpha or a linear EXR.
TEST(Plates, EncodedColourIsFilteredInLinearLight)
{
    ScratchFolder dir;
    WriteEdge(dir / "edge.png", TypeDesc::UINT8, 0.6f);
    WriteEdge(dir / "edge.exr", TypeDesc::FLOAT, 1.0f);
    auto render = [&](const std::string& in, const std::string& out, const char* raw) {
        const RunResult r = RunLumivane(dir, {"render", in, out, "--size", "5", "--unit", "absolute", raw});
        EXPECT_EQ(r.status, 0) << r.err;
    };
    render("edge.png", "ramp.exr", "--raw");
    const ImageBuf ramp = ReadFile(dir / "ramp.exr");
    for (const char* in : {"edge.png", "edge.exr"}) {
        render(in, "out.png", "-q");
        const ImageBuf out = ReadFile(dir / "out.png");
        for (int x = 6; x < 18; ++x) {
            const double t = (ramp.getchannel(x, 1, 0, 0) / ramp.getchannel(x, 1, 0, 3) - kGrey) / (1 - kGrey);
            const double linear = DecodeSrgb(kGrey) + t * (1 - DecodeSrgb(kGrey));
            // Read back premultiplied at 8 bits, which costs up to another 0.8 of a code.
            const double stored = out.getchannel(x, 1, 0, 0) / out.getchannel(x, 1, 0, 3);
            EXPECT_NEAR(stored, EncodeSrgb(linear), 1.5 / 255) << in << " at x " << x;
        }
    }
}

// One bright point in a 101-pixel-wide frame: --size 10 is 10% of the frame,
// about ten pixels across, whether the data window is the frame, holds 30
// pixels of overscan, or is a 3x3 bounding box the blur must spread out of.
TEST(Plates, RelativeSizeRefersToTheFrameWhateverTheDataWindow)
{
    struct Window { const char* name; int x, y, width, height; };
    for (const Window w : {Window{"plain", 0, 0, 101, 41}, Window{"overscan", -30, -30, 161, 101},
                           Window{"bbox", 49, 19, 3, 3}}) {
        ScratchFolder dir;
        ImageSpec layout(w.width, w.height, 4, TypeDesc::FLOAT);
        layout.x = w.x;
        layout.y = w.y;
        layout.full_width = 101;
        layout.full_height = 41;
        ImageBuf buf(layout);
        const float point[4] = {100, 100, 100, 1};
        buf.setpixel(50, 20, point);
        WriteFile(buf, dir / "in.exr", TypeDesc::FLOAT);
        const RunResult r = RunLumivane(dir, {"render", "in.exr", "out.exr", "--size", "10", "--edges", "black"});
        ASSERT_EQ(r.status, 0) << r.err;
        const ImageBuf out = ReadFile(dir / "out.exr");
        const OIIO::ROI expected(std::min(w.x, 0), std::max(w.x + w.width, 101), std::min(w.y, 0),
                                 std::max(w.y + w.height, 41), 0, 1, 0, 4);
        EXPECT_EQ(out.roi(), expected) << w.name << ": the data window is the union with the frame";
        EXPECT_EQ(out.roi_full(), OIIO::ROI(0, 101, 0, 41, 0, 1, 0, 4)) << w.name;
        int across = 0;
        for (int x = out.xbegin(); x < out.xend(); ++x) across += out.getchannel(x, 20, 0, 0) > 0.01f;
        EXPECT_GE(across, 9) << w.name;
        EXPECT_LE(across, 11) << w.name;
    }
}

// RGBA, a diffuse layer at half its brightness and a normals layer: with
// --layers all the diffuse layer is blurred as RGBA is (half of it), the
// normals pass through. A layer the file lacks is refused with the list.
TEST(Plates, ColourLayersAreFilteredLikeRgbaAndDataLayersPassThrough)
{
    ScratchFolder dir;
    ImageSpec layout(31, 21, 10, TypeDesc::FLOAT);
    layout.channelnames = {"R", "G", "B", "A", "N.X", "N.Y", "N.Z", "diffuse.R", "diffuse.G", "diffuse.B"};  // as OpenEXR sorts them
    layout.alpha_channel = 3;
    ImageBuf buf(layout);
    const float point[10] = {40, 40, 40, 1, 40, 40, 40, 20, 20, 20};
    buf.setpixel(15, 10, point);
    WriteFile(buf, dir / "in.exr", TypeDesc::FLOAT);

    RunResult r = RunLumivane(dir, {"render", "in.exr", "out.exr", "--layers", "all", "--size", "7", "--unit",
                                    "absolute", "--edges", "black"});
    ASSERT_EQ(r.status, 0) << r.err;
    const ImageBuf out = ReadFile(dir / "out.exr");
    ASSERT_EQ(out.spec().channelnames, layout.channelnames);
    EXPECT_LT(out.getchannel(15, 10, 0, 0), 10.0f) << "nothing was blurred";
    for (int y = 0; y < 21; ++y)
        for (int x = 0; x < 31; ++x)
            for (int c = 0; c < 3; ++c) {
                ASSERT_NEAR(out.getchannel(x, y, 0, 7 + c), 0.5f * out.getchannel(x, y, 0, c), 1e-5f) << x << "," << y;
                ASSERT_EQ(out.getchannel(x, y, 0, 4 + c), buf.getchannel(x, y, 0, 4 + c)) << x << "," << y;
            }

    r = RunLumivane(dir, {"render", "in.exr", "out.exr", "--layers", "diffuse,specular"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("no layer \"specular\"; its layers: N (data), diffuse"), std::string::npos) << r.err;
    r = RunLumivane(dir, {"render", "in.exr", "out.png"});
    EXPECT_NE(r.err.find("left out: N.X, N.Y, N.Z, diffuse.R"), std::string::npos) << r.err;
}

}  // namespace
