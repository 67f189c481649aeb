// Every image format the program reads and writes, end to end on files made
// here and read back with OpenImageIO: the layout and data type kept.
#include "support/ProgramRunner.h"
#include "app/files/PfmFile.h"

#include <OpenImageIO/imagebufalgo.h>
#include <gtest/gtest.h>

namespace {

using OIIO::TypeDesc;

struct FormatCase {
    const char* name;
    const char* ext;
    std::vector<std::string> channels;
    TypeDesc format;
    bool hdr;
    double meanTolerance = 0.0;  // lossy formats: the mean difference allowed; 0: bit for bit (JPEG
                                 // loses chroma detail again on every save)
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
    for (const auto& args : {std::vector<std::string>{"render", in, out},
                             {"render", in, blurred, "--size", "3", "--unit", "absolute"}}) {
        const RunResult r = RunLumivane(dir, args);
        ASSERT_EQ(r.status, 0) << r.err;
    }
    const OIIO::ImageBuf before = ReadFile(in), after = ReadFile(out), result = ReadFile(blurred);
    for (const OIIO::ImageBuf* o : {&after, &result}) {
        EXPECT_EQ(o->spec().channelnames, before.spec().channelnames);
        EXPECT_EQ(o->nativespec().format, before.nativespec().format);
    }
    if (c.meanTolerance > 0.0) {
        EXPECT_LE(OIIO::ImageBufAlgo::compare(before, after, 1.0f, 1.0f).meanerror, c.meanTolerance);
    } else {
        const Difference d = Compare(before, after);
        EXPECT_EQ(d.worst, 0.0) << d;
    }
    if (exr) {
        EXPECT_EQ(after.spec().get_string_attribute("Note"), "kept");
        EXPECT_EQ(after.spec().get_float_attribute("PixelAspectRatio"), 2.0f);
    }
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
    ::testing::Values(FormatCase{"ExrHalfRgba", ".exr", {"R", "G", "B", "A"}, TypeDesc::HALF, true},
                      FormatCase{"ExrFloatRgbaDepth", ".exr", {"R", "G", "B", "A", "Z"}, TypeDesc::FLOAT, true},
                      FormatCase{"ExrGrey", ".exr", {"Y"}, TypeDesc::HALF, true},
                      FormatCase{"ExrTwoChannels", ".exr", {"R", "G"}, TypeDesc::FLOAT, false},
                      FormatCase{"Tiff16", ".tif", {"R", "G", "B"}, TypeDesc::UINT16, false},
                      FormatCase{"Tiff16GreyAlpha", ".tif", {"Y", "A"}, TypeDesc::UINT16, false},
                      FormatCase{"TiffFloatRgba", ".tif", {"R", "G", "B", "A"}, TypeDesc::FLOAT, true},
                      FormatCase{"Png8Rgba", ".png", {"R", "G", "B", "A"}, TypeDesc::UINT8, false},
                      FormatCase{"PngGrey", ".png", {"Y"}, TypeDesc::UINT8, false},
                      FormatCase{"Jpeg", ".jpg", {"R", "G", "B"}, TypeDesc::UINT8, false, 0.04},
                      FormatCase{"Dpx16", ".dpx", {"R", "G", "B"}, TypeDesc::UINT16, false},
                      FormatCase{"RadianceHdr", ".hdr", {"R", "G", "B"}, TypeDesc::FLOAT, true},
                      FormatCase{"PfmRgb", ".pfm", {"R", "G", "B"}, TypeDesc::FLOAT, true},
                      FormatCase{"PfmGrey", ".pfm", {"Y"}, TypeDesc::FLOAT, true}),
    PrintName);

}  // namespace
