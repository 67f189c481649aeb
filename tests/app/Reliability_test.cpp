// What the program does with the images and conditions a pipeline throws at
// it: every channel layout and depth, non-finite pixels, writing over the
// input, and a write that fails part way through a sequence.
#include "ProgramRunner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>

namespace {

struct Layout {
    const char* name;
    std::vector<std::string> channels;
    const char* file;
    OIIO::TypeDesc type;
};

std::string LayoutName(const ::testing::TestParamInfo<Layout>& info) { return info.param.name; }
void PrintTo(const Layout& l, std::ostream* os) { *os << l.name; }

class ChannelLayout : public ::testing::TestWithParam<Layout> {};

// A real blur, not a copy: the output keeps the input's channels and type,
// and the bright points spread into their neighbours.
TEST_P(ChannelLayout, RendersAndKeepsTheLayout)
{
    const Layout& l = GetParam();
    ScratchFolder dir;
    WriteFile(TestPicture(32, 24, l.channels, false), dir / l.file, l.type);
    const std::string out = std::string("out.") + (std::strrchr(l.file, '.') + 1);
    const RunResult r = RunLumivane(dir, {"render", l.file, out, "--size", "3", "--unit", "absolute"});
    ASSERT_EQ(r.status, 0) << r.err;
    const OIIO::ImageBuf in = ReadFile(dir / l.file), result = ReadFile(dir / out);
    EXPECT_EQ(result.spec().channelnames, in.spec().channelnames);
    EXPECT_EQ(result.spec().format, in.spec().format);
    const Difference d = Compare(in, result);
    EXPECT_GT(d.worst, 0.05) << "nothing was blurred";
    if (in.spec().alpha_channel >= 0) {
        // Opaque-ish alpha of 0.5 and 1 averages to something in between.
        const float a = result.getchannel(10, 10, 0, in.spec().alpha_channel);
        EXPECT_GT(a, 0.5f);
        EXPECT_LT(a, 1.0f);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, ChannelLayout,
    ::testing::Values(Layout{"GreyFloat", {"Y"}, "grey.exr", OIIO::TypeDesc::FLOAT},
                      Layout{"GreyAlpha16", {"Y", "A"}, "grey.tif", OIIO::TypeDesc::UINT16},
                      Layout{"RGB8", {"R", "G", "B"}, "rgb.png", OIIO::TypeDesc::UINT8},
                      Layout{"RGBA16", {"R", "G", "B", "A"}, "rgba.tif", OIIO::TypeDesc::UINT16},
                      Layout{"RGBAHalf", {"R", "G", "B", "A"}, "rgba.exr", OIIO::TypeDesc::HALF},
                      Layout{"TwoChannel", {"R", "G"}, "two.exr", OIIO::TypeDesc::FLOAT}),
    LayoutName);

TEST(Reliability, NonFinitePixelsSpreadThroughTheirChannelOnly)
{
    ScratchFolder dir;
    OIIO::ImageBuf picture = TestPicture(16, 16, {"R", "G", "B", "A"}, false);
    const float bad[4] = {std::numeric_limits<float>::quiet_NaN(), 0.5f, std::numeric_limits<float>::infinity(), 1.0f};
    picture.setpixel(3, 3, bad);
    WriteFile(picture, dir / "bad.exr", OIIO::TypeDesc::FLOAT);
    const RunResult r = RunLumivane(dir, {"render", "bad.exr", "out.exr", "--size", "10"});
    ASSERT_EQ(r.status, 0) << r.err;
    const OIIO::ImageBuf out = ReadFile(dir / "out.exr");
    EXPECT_TRUE(std::isnan(out.getchannel(12, 12, 0, 0)));  // the transform mixes every sample of a plane
    EXPECT_TRUE(std::isfinite(out.getchannel(12, 12, 0, 1)));
    EXPECT_FALSE(std::isfinite(out.getchannel(12, 12, 0, 2)));
}

TEST(Reliability, OutputMayReplaceTheInput)
{
    ScratchFolder dir;
    const OIIO::ImageBuf picture = TestPicture(20, 12, {"R", "G", "B", "A"}, true);
    WriteFile(picture, dir / "shot.exr", OIIO::TypeDesc::HALF);
    const RunResult r = RunLumivane(dir, {"render", "shot.exr", "shot.exr", "--size", "10"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_GT(Compare(picture, ReadFile(dir / "shot.exr")).worst, 0.1);
    EXPECT_EQ(dir.Files(), std::vector<std::string>{"shot.exr"});
}

TEST(Reliability, AFailedWriteNamesTheFileAndKeepsEarlierFrames)
{
    ScratchFolder dir;
    // Frame 1 is small enough for the file-size limit below, frame 2 is not:
    // the write fails as it would on a full disk.
    WriteFile(TestPicture(8, 8, {"R", "G", "B", "A"}, false), dir / "f.0001.exr", OIIO::TypeDesc::FLOAT);
    WriteFile(TestPicture(400, 300, {"R", "G", "B", "A"}, true), dir / "f.0002.exr", OIIO::TypeDesc::FLOAT);
    std::filesystem::create_directory(dir / "out");
    const RunResult r =
        RunLumivane(dir, {"render", "f.####.exr", "out/o.####.exr", "--frames", "1-2", "--size", "2", "-k"},
                    "ulimit -f 64");
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_NE(r.err.find("out/o.0002.exr"), std::string::npos) << r.err;
    EXPECT_EQ(dir.Files("out"), std::vector<std::string>{"o.0001.exr"});
    EXPECT_EQ(ReadFile(dir / "out/o.0001.exr").spec().width, 8);
}

}  // namespace
