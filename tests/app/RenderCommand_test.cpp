// End-to-end renders: the program on files made here, read back with OpenImageIO.
#include "ProgramRunner.h"
#include "app/PfmFile.h"

#include <OpenImageIO/imagebufalgo.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

using OIIO::TypeDesc;

struct FormatCase {
    const char* name;
    const char* ext;
    std::vector<std::string> channels;
    TypeDesc format;
    bool hdr;
    double tolerance;  // largest difference allowed; 0: bit for bit
    double meanTolerance = 0.0;  // lossy formats: the mean difference allowed instead (JPEG loses
                                 // chroma detail again on every save)
};

std::string PrintName(const ::testing::TestParamInfo<FormatCase>& info) { return info.param.name; }
void PrintTo(const FormatCase& c, std::ostream* os) { *os << c.name; }

void WriteInput(const OIIO::ImageBuf& picture, const std::string& path, TypeDesc format)
{
    if (!IsPfmPath(path)) return WriteFile(picture, path, format);
    const OIIO::ImageSpec& s = picture.spec();
    std::vector<float> px(static_cast<std::size_t>(s.width) * s.height * s.nchannels);
    picture.get_pixels(picture.roi(), TypeDesc::FLOAT, px.data());
    ASSERT_EQ(WritePfm(path, s.width, s.height, s.nchannels, px.data()), "");
}

class FormatRoundTrip : public ::testing::TestWithParam<FormatCase> {};

// With every size at its default the tool copies its input, so the file that
// comes out must hold what went in, in the same layout and data type. A real
// blur keeps the layout too, spreads the bright points, averages alpha and
// passes other channels through untouched.
TEST_P(FormatRoundTrip, PassThroughKeepsThePixelsAndABlurKeepsTheLayout)
{
    const FormatCase& c = GetParam();
    ScratchFolder dir;
    OIIO::ImageBuf picture = TestPicture(23, 17, c.channels, c.hdr);
    const bool exr = std::string(c.ext) == ".exr";
    if (exr) {
        picture.specmod().attribute("Note", "kept");
        picture.specmod().attribute("PixelAspectRatio", 2.0f);
    }
    const std::string in = dir / (std::string("in") + c.ext), out = dir / (std::string("out") + c.ext);
    const std::string blurred = dir / (std::string("blurred") + c.ext);
    WriteInput(picture, in, c.format);

    const RunResult r = RunLumivane(dir, {"render", in, out});
    ASSERT_EQ(r.status, 0) << r.err;
    const OIIO::ImageBuf before = ReadFile(in), after = ReadFile(out);
    EXPECT_EQ(after.spec().channelnames, before.spec().channelnames);
    EXPECT_EQ(after.spec().format, before.spec().format);
    if (c.meanTolerance > 0.0) {
        EXPECT_LE(OIIO::ImageBufAlgo::compare(before, after, 1.0f, 1.0f).meanerror, c.meanTolerance);
    } else {
        const Difference d = Compare(before, after);
        EXPECT_LE(d.worst, c.tolerance) << Describe(d);
    }
    if (exr) {
        EXPECT_EQ(after.spec().get_string_attribute("Note"), "kept");
        EXPECT_EQ(after.spec().get_float_attribute("PixelAspectRatio"), 2.0f);
    }

    const RunResult b = RunLumivane(dir, {"render", in, blurred, "--size", "3", "--unit", "absolute"});
    ASSERT_EQ(b.status, 0) << b.err;
    const OIIO::ImageBuf result = ReadFile(blurred);
    EXPECT_EQ(result.spec().channelnames, before.spec().channelnames);
    EXPECT_EQ(result.spec().format, before.spec().format);
    EXPECT_GT(Compare(before, result).worst, 0.05) << "nothing was blurred";
    for (int ch = 0; ch < before.spec().nchannels; ++ch) {
        const std::string& name = before.spec().channelnames[ch];
        if (name == "A") {  // alpha of 0.5 and 1 averages to something in between
            EXPECT_GT(result.getchannel(10, 10, 0, ch), 0.5f);
            EXPECT_LT(result.getchannel(10, 10, 0, ch), 1.0f);
        }
        for (int y = 0; name == "Z" && y < 17; ++y)
            for (int x = 0; x < 23; ++x) ASSERT_EQ(result.getchannel(x, y, 0, ch), before.getchannel(x, y, 0, ch));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, FormatRoundTrip,
    ::testing::Values(FormatCase{"ExrHalfRgba", ".exr", {"R", "G", "B", "A"}, TypeDesc::HALF, true, 0.0},
                      FormatCase{"ExrFloatRgbaDepth", ".exr", {"R", "G", "B", "A", "Z"}, TypeDesc::FLOAT, true, 0.0},
                      FormatCase{"ExrGrey", ".exr", {"Y"}, TypeDesc::HALF, true, 0.0},
                      FormatCase{"ExrTwoChannels", ".exr", {"R", "G"}, TypeDesc::FLOAT, false, 0.0},
                      FormatCase{"Tiff16", ".tif", {"R", "G", "B"}, TypeDesc::UINT16, false, 0.0},
                      FormatCase{"Tiff16GreyAlpha", ".tif", {"Y", "A"}, TypeDesc::UINT16, false, 0.0},
                      FormatCase{"TiffFloatRgba", ".tif", {"R", "G", "B", "A"}, TypeDesc::FLOAT, true, 0.0},
                      FormatCase{"Png8Rgba", ".png", {"R", "G", "B", "A"}, TypeDesc::UINT8, false, 0.0},
                      FormatCase{"PngGrey", ".png", {"Y"}, TypeDesc::UINT8, false, 0.0},
                      FormatCase{"Jpeg", ".jpg", {"R", "G", "B"}, TypeDesc::UINT8, false, 1.0, 0.04},
                      FormatCase{"Dpx16", ".dpx", {"R", "G", "B"}, TypeDesc::UINT16, false, 0.0},
                      FormatCase{"RadianceHdr", ".hdr", {"R", "G", "B"}, TypeDesc::FLOAT, true, 0.0},
                      FormatCase{"PfmRgb", ".pfm", {"R", "G", "B"}, TypeDesc::FLOAT, true, 0.0},
                      FormatCase{"PfmGrey", ".pfm", {"Y"}, TypeDesc::FLOAT, true, 0.0}),
    PrintName);

// One bright pixel in the middle of a dark square, as a half RGBA EXR.
void WriteImpulse(const std::string& path, int size, float aspect = 1.0f)
{
    OIIO::ImageBuf buf(OIIO::ImageSpec(size, size, 4, TypeDesc::FLOAT));
    const float dark[4] = {0, 0, 0, 1}, bright[4] = {100, 100, 100, 1};
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) buf.setpixel(x, y, x == size / 2 && y == size / 2 ? bright : dark);
    if (aspect != 1.0f) buf.specmod().attribute("PixelAspectRatio", aspect);
    WriteFile(buf, path, TypeDesc::FLOAT);
}

float Red(const OIIO::ImageBuf& img, int x, int y) { return img.getchannel(x, y, 0, 0); }

TEST(RenderCommand, PixelAspectRatioNarrowsTheHorizontalBlur)
{
    ScratchFolder dir;
    WriteImpulse(dir / "in.exr", 41, 2.0f);
    const RunResult r = RunLumivane(dir, {"render", "in.exr", "out.exr", "--unit", "absolute", "--size", "17",
                                          "--set", "ScaleBlurAspect=1", "--edges", "black"});
    ASSERT_EQ(r.status, 0) << r.err;
    const OIIO::ImageBuf out = ReadFile(dir / "out.exr");
    int wide = 0, tall = 0;
    for (int i = 0; i < 41; ++i) {
        wide += Red(out, i, 20) > 0.01f;
        tall += Red(out, 20, i) > 0.01f;
    }
    // A 17-pixel disk on pixels twice as wide as tall covers about 8.5 by 17.
    EXPECT_GE(tall, 15);
    EXPECT_LE(wide, 11);
    EXPECT_GE(wide, 7);
}

TEST(RenderCommand, KeyedSizeGrowsAcrossASequence)
{
    ScratchFolder dir;
    for (const char* f : {"plate.0001.exr", "plate.0002.exr", "plate.0003.exr"}) WriteImpulse(dir / f, 33);
    std::ofstream(dir / "keys.json") << R"({"format": "lumivane-flow", "version": 1, "tools": [
        {"class": "tevrinworks.Lumivane2",
         "inputs": {"BlurSizeUnit": 1, "BlurSizeX": {"keys": [[1, 1.0], [3, 9.0]]}},
         "connections": {"input": "plate.####.exr"}}],
      "program": {"output": "out.####.exr", "frames": "1-3"}})";
    const RunResult r = RunLumivane(dir, {"render", "--flow", "keys.json"});
    ASSERT_EQ(r.status, 0) << r.err;
    const float centre[3] = {Red(ReadFile(dir / "out.0001.exr"), 16, 16), Red(ReadFile(dir / "out.0002.exr"), 16, 16),
                             Red(ReadFile(dir / "out.0003.exr"), 16, 16)};
    EXPECT_EQ(centre[0], 100.0f);  // a size of one pixel leaves the image alone
    EXPECT_LT(centre[1], 0.5f * centre[0]);
    EXPECT_LT(centre[2], 0.5f * centre[1]);
    EXPECT_GT(centre[2], 0.0f);
}

TEST(RenderCommand, SavedFlowRendersTheSameImage)
{
    ScratchFolder dir;
    WriteFile(TestPicture(37, 29, {"R", "G", "B", "A"}, true), dir / "in.exr", TypeDesc::HALF);
    std::filesystem::create_directory(dir / "out");
    const RunResult first =
        RunLumivane(dir, {"render", "in.exr", "out/a.exr", "--size", "12", "--style", "polygon", "--sides", "5",
                          "--set", "PerChannel=0", "--set", "BlueBlurSizeX=20", "--edges", "wrap", "--bad-bokeh",
                          "0.3", "--depth", "float", "--save-flow", "look.json"});
    ASSERT_EQ(first.status, 0) << first.err;
    std::filesystem::rename(dir / "out/a.exr", dir / "first.exr");

    const RunResult again = RunLumivane(dir, {"render", "--flow", "look.json"});
    ASSERT_EQ(again.status, 0) << again.err;
    const OIIO::ImageBuf a = ReadFile(dir / "first.exr"), b = ReadFile(dir / "out/a.exr");
    EXPECT_EQ(b.spec().format, TypeDesc::FLOAT);
    const Difference d = Compare(a, b);
    EXPECT_EQ(d.worst, 0.0) << Describe(d);
    // Blue was unlocked and made larger, so it differs from red in the output.
    EXPECT_GT(Compare(ReadFile(dir / "in.exr"), a).worst, 0.0);
}

// A shot folder used from outside it: its flows name its files relative to
// themselves, frames come from a list with a step or from the plates on disk,
// --mkdir makes the output folder, and `flow save` renders nothing.
TEST(RenderCommand, ShotFolderRendersFromElsewhereAfterAMove)
{
    ScratchFolder dir;
    std::filesystem::create_directories(dir / "shot/plates");
    for (const char* f : {"p.0001.exr", "p.0003.exr", "p.0004.exr", "p.0007.exr", "p.12.exr", "p.0002.tif"})
        WriteImpulse(dir / "shot/plates/" + f, 9);
    std::ofstream(dir / "shot/a.flow") << R"({"format": "lumivane-flow", "version": 1, "tools": [
        {"class": "tevrinworks.Lumivane2", "inputs": {"BlurSizeUnit": 1, "BlurSizeX": 9},
         "connections": {"input": "plates/p.####.exr"}}], "program": {"output": "out/o.####.exr"}})";
    const RunResult saved = RunLumivane(dir, {"flow", "save", "shot/b.flow", "--flow", "shot/a.flow", "--frames", "1-7x3"});
    ASSERT_EQ(saved.status, 0) << saved.err;
    EXPECT_EQ(dir.Files("shot"), (std::vector<std::string>{"a.flow", "b.flow", "plates"}));
    std::filesystem::rename(dir / "shot", dir / "moved");

    const RunResult dry = RunLumivane(dir, {"render", "--flow", "moved/b.flow", "--dry-run"});
    ASSERT_EQ(dry.status, 0) << dry.err;
    // A 9-pixel kernel on a 9-pixel image: the transform side is the power of two above 18.
    EXPECT_NE(dry.out.find("blur size in pixels R 9 x 9, G 9 x 9, B 9 x 9; transform size R 32 x 32"), std::string::npos)
        << dry.out;
    EXPECT_NE(dry.out.find("Lumivane2.plugin"), std::string::npos) << dry.out;
    EXPECT_EQ(dir.Files("moved").size(), 3u);

    const std::pair<const char*, std::vector<std::string>> renders[] = {
        {"moved/b.flow", {"o.0001.exr", "o.0004.exr", "o.0007.exr"}},
        {"moved/a.flow", {"o.0001.exr", "o.0003.exr", "o.0004.exr", "o.0007.exr"}}};  // and 3, found on disk
    for (const auto& [flow, written] : renders) {
        ASSERT_EQ(RunLumivane(dir, {"render", "--flow", flow, "--mkdir"}).status, 0) << flow;
        EXPECT_EQ(dir.Files("moved/out"), written) << flow;
    }
    EXPECT_LT(Red(ReadFile(dir / "moved/out/o.0003.exr"), 4, 4), 50.0f);  // blurred
}

}  // namespace
