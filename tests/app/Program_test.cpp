// The program end to end, on files made here and read back with OpenImageIO:
// renders; describe, kernel, and where plug-ins come from; and the conditions a
// pipeline throws at it (non-finite pixels, writing over the input, a write that
// fails part way through a sequence).
#include "ProgramRunner.h"
#include "app/PfmFile.h"

#include <OpenImageIO/imagebufalgo.h>
#include <sys/resource.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <tuple>

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

float Red(const OIIO::ImageBuf& img, int x, int y) { return img.getchannel(x, y, 0, 0); }

// One bright pixel in the middle of a dark square.
OIIO::ImageBuf Impulse(int size)
{
    OIIO::ImageBuf plate(OIIO::ImageSpec(size, size, 4, TypeDesc::FLOAT));
    const float dark[4] = {0, 0, 0, 1}, bright[4] = {100, 100, 100, 1};
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) plate.setpixel(x, y, x == size / 2 && y == size / 2 ? bright : dark);
    return plate;
}

// Keys in a flow give each frame its own size, and the file's pixel aspect ratio
// narrows it horizontally; the options given with the flow, keys and all, saved
// with --save-flow render the same frames again.
TEST(RenderCommand, KeyedSizeGrowsAcrossASequenceAndASavedFlowRendersItAgain)
{
    ScratchFolder dir;
    OIIO::ImageBuf plate = Impulse(33);
    plate.specmod().attribute("PixelAspectRatio", 2.0f);
    for (const char* f : {"plate.0001.exr", "plate.0002.exr", "plate.0003.exr"}) WriteFile(plate, dir / f, TypeDesc::FLOAT);
    std::ofstream(dir / "keys.json") << R"({"format": "lumivane-flow", "version": 1, "tools": [
        {"class": "tevrinworks.Lumivane2",
         "inputs": {"BlurSizeUnit": 1, "BlurSizeX": {"keys": [[1, 1.0], [3, 9.0]]}},
         "connections": {"input": "plate.####.exr"}}],
      "program": {"output": "out.####.exr", "frames": "1-3"}})";
    const RunResult r = RunLumivane(dir, {"render", "--flow", "keys.json", "--style", "polygon", "--sides", "5",
                                          "--set", "PerChannel=0", "--set", "BlueBlurSizeX=20", "--edges", "wrap",
                                          "--bad-bokeh", "0.3", "--depth", "half", "--set", "ScaleBlurAspect=1",
                                          "--compression", "PIZ", "--save-flow", "look.json"});
    ASSERT_EQ(r.status, 0) << r.err;
    const float centre[3] = {Red(ReadFile(dir / "out.0001.exr"), 16, 16), Red(ReadFile(dir / "out.0002.exr"), 16, 16),
                             Red(ReadFile(dir / "out.0003.exr"), 16, 16)};
    EXPECT_EQ(centre[0], 100.0f);  // a size of one pixel leaves red alone
    EXPECT_LT(centre[1], 0.5f * centre[0]);
    EXPECT_LT(centre[2], 0.5f * centre[1]);
    EXPECT_GT(centre[2], 0.0f);
    const OIIO::ImageBuf last = ReadFile(dir / "out.0003.exr");
    int wide = 0, tall = 0;
    for (int i = 0; i < 33; ++i) wide += Red(last, i, 16) > 0.01f, tall += Red(last, 16, i) > 0.01f;
    EXPECT_TRUE(wide == 5 && tall == 9) << wide << " by " << tall;  // the pixels are twice as wide as tall

    std::filesystem::rename(dir / "out.0002.exr", dir / "first.exr");
    const RunResult again = RunLumivane(dir, {"render", "--flow", "look.json"});
    ASSERT_EQ(again.status, 0) << again.err;
    const OIIO::ImageBuf a = ReadFile(dir / "first.exr"), b = ReadFile(dir / "out.0002.exr");
    EXPECT_EQ(b.nativespec().format, TypeDesc::HALF);
    EXPECT_EQ(b.nativespec().get_string_attribute("compression"), "piz");
    const Difference d = Compare(a, b);
    EXPECT_EQ(d.worst, 0.0) << d;

    // --skip-existing leaves the frames on disk alone and writes the missing one.
    const auto kept = std::filesystem::last_write_time(dir / "out.0001.exr");
    std::filesystem::remove(dir / "out.0003.exr");
    const RunResult resumed = RunLumivane(dir, {"render", "--flow", "look.json", "--skip-existing"});
    ASSERT_EQ(resumed.status, 0) << resumed.err;
    EXPECT_NE(resumed.out.find("skipping 2 of 3 frames"), std::string::npos) << resumed.out;
    EXPECT_EQ(std::filesystem::last_write_time(dir / "out.0001.exr"), kept);
    EXPECT_TRUE(std::filesystem::exists(dir / "out.0003.exr"));
}

// The output keeps the input's compression unless --compression names another.
TEST(RenderCommand, WritesTheCompressionAsked)
{
    ScratchFolder dir;
    OIIO::ImageBuf plate = TestPicture(40, 40, {"R", "G", "B", "A"}, true);
    plate.specmod().attribute("compression", "rle");
    WriteFile(plate, dir / "in.exr", TypeDesc::HALF);
    for (const char* codec : {"", "none", "zips:2", "b44a", "dwaa:90"}) {
        const std::string out = std::string("out") + codec + ".exr";  // a name each: OpenImageIO caches files
        std::vector<std::string> args = {"render", "in.exr", out, "--size", "2"};
        if (*codec) args.insert(args.end(), {"--compression", codec});
        const RunResult r = RunLumivane(dir, args);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::string want = *codec ? std::string(codec).substr(0, std::string(codec).find(':')) : "rle";
        const std::string got = ReadFile(dir / out).nativespec().get_string_attribute("compression");
        EXPECT_EQ(got.substr(0, got.find(':')), want) << "asked for " << codec;
    }
}

// A shot folder used from outside it: its flows name its files relative to
// themselves, frames come from a list with a step or from the plates on disk
// (first to last: the frames missing between fail, -k renders the others),
// --mkdir makes the output folder, and `flow save` renders nothing.
TEST(RenderCommand, ShotFolderRendersFromElsewhereAfterAMove)
{
    ScratchFolder dir;
    std::filesystem::create_directories(dir / "shot/plates");
    for (const char* f : {"p.0001.exr", "p.0003.exr", "p.0004.exr", "p.0007.exr", "p.12.exr", "p.0002.tif"})
        WriteFile(Impulse(9), dir / "shot/plates/" + f, TypeDesc::FLOAT);
    std::ofstream(dir / "shot/a.flow") << R"({"format": "lumivane-flow", "version": 1, "tools": [
        {"class": "tevrinworks.Lumivane2", "inputs": {"BlurSizeUnit": 1, "BlurSizeX": 9},
         "connections": {"input": "plates/p.####.exr"}}], "program": {"output": "out/o.####.exr"}})";
    const RunResult saved = RunLumivane(dir, {"flow", "save", "shot/b.flow", "--flow", "shot/a.flow", "--frames", "1-7x3"});
    ASSERT_EQ(saved.status, 0) << saved.err;
    EXPECT_EQ(dir.Files("shot"), (std::vector<std::string>{"a.flow", "b.flow", "plates"}));
    std::filesystem::rename(dir / "shot", dir / "moved");

    const RunResult dry = RunLumivane(dir, {"render", "--flow", "moved/b.flow", "--dry-run", "--mkdir"});
    ASSERT_EQ(dry.status, 0) << dry.err;
    // A 9-pixel kernel on a 9-pixel image: the transform side is the power of two above 18.
    EXPECT_NE(dry.out.find("blur size in pixels R 9 x 9, G 9 x 9, B 9 x 9; transform size R 32 x 32"), std::string::npos)
        << dry.out;
    EXPECT_NE(dry.out.find("Lumivane2.plugin"), std::string::npos) << dry.out;
    // 20 = 2 x 2 x 5 is the smallest even side above 18 with no prime factor above 7.
    const RunResult fast = RunLumivane(dir, {"render", "--fast-sizes", "--flow", "moved/b.flow", "--dry-run", "--mkdir"});
    ASSERT_EQ(fast.status, 0) << fast.err;
    EXPECT_NE(fast.out.find("transform size R 20 x 20"), std::string::npos) << fast.out;
    EXPECT_EQ(dir.Files("moved").size(), 3u);

    const std::tuple<const char*, std::vector<std::string>, int> renders[] = {
        {"moved/b.flow", {"o.0001.exr", "o.0004.exr", "o.0007.exr"}, 0},
        {"moved/a.flow", {"o.0001.exr", "o.0003.exr", "o.0004.exr", "o.0007.exr"}, 3}};  // and 3; 2, 5, 6 missing
    for (const auto& [flow, written, status] : renders) {
        EXPECT_EQ(RunLumivane(dir, {"render", "--flow", flow, "--mkdir", "-k"}).status, status) << flow;
        EXPECT_EQ(dir.Files("moved/out"), written) << flow;
    }
    EXPECT_LT(Red(ReadFile(dir / "moved/out/o.0003.exr"), 4, 4), 50.0f);  // blurred
}

namespace fs = std::filesystem;

TEST(DescribeCommand, ListsTheToolAsTheHostHoldsIt)
{
    ScratchFolder dir;
    const RunResult text = RunLumivane(dir, {"describe"});
    ASSERT_EQ(text.status, 0) << text.err;
    for (const char* part : {"Lumivane 2 (tevrinworks.Lumivane2)", "category:    Nimbrel", "Page \"Info\"",
                             "PolygonSideCount", "m_outImageput"})
        EXPECT_NE(text.out.find(part), std::string::npos) << part;

    const RunResult js = RunLumivane(dir, {"describe", "--json"});
    ASSERT_EQ(js.status, 0) << js.err;
    const auto doc = nlohmann::json::parse(js.out);
    ASSERT_EQ(doc["tools"].size(), 1u);
    const auto& controls = doc["tools"][0]["pages"][0]["controls"];
    ASSERT_EQ(controls.size(), 17u);
    EXPECT_EQ(controls[13]["entries"][3], "Airy Disk");  // BlurStyle
    EXPECT_EQ(controls[15]["min"], 3.0);                 // PolygonSideCount
    EXPECT_EQ(controls[8]["visible"], false);  // GreenBlurSizeY while the R/G/B lock is on
}

TEST(KernelCommand, WritesTheKernelOfEachColour)
{
    ScratchFolder dir;
    const RunResult r = RunLumivane(dir, {"kernel", "k.exr", "--unit", "absolute", "--size", "7", "--set",
                                          "PerChannel=0", "--set", "BlueBlurSizeX=11", "--style", "gaussian"});
    ASSERT_EQ(r.status, 0) << r.err;
    const OIIO::ImageBuf k = ReadFile(dir / "k.exr");
    // As large as the largest kernel, blue's: 11 by 11, since with X and Y
    // locked each colour's Y size is its X size.
    ASSERT_EQ(k.spec().width, 11);
    EXPECT_EQ(k.spec().height, 11);
    for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(k.getchannel(5, 5, 0, c), 1.0f) << "channel " << c;
    EXPECT_EQ(k.getchannel(0, 5, 0, 0), 0.0f);  // red is 7 wide, centred in 11
    EXPECT_GT(k.getchannel(0, 5, 0, 2), 0.0f);  // blue fills the width

    // Relative sizes are percent of --width: 5% of 200 pixels is 10, whose kernel is 11 wide.
    const RunResult rel = RunLumivane(dir, {"kernel", "r.exr", "--width", "200", "--size", "5"});
    ASSERT_EQ(rel.status, 0) << rel.err;
    EXPECT_EQ(ReadFile(dir / "r.exr").spec().width, 11);
}

TEST(Plugins, ABrokenModuleIsSkippedWithAWarningAndAFolderWithoutTheToolIsAFileError)
{
    ScratchFolder dir;
    fs::create_directory(dir / "plugins");
    fs::create_directory(dir / "empty");
    fs::copy_file(fs::path(LUMIVANE_PLUGIN_FOLDER_FOR_TESTS) / "Lumivane2.plugin", dir / "plugins/Lumivane2.plugin");
    std::ofstream(dir / "plugins/Broken.plugin") << "not a module";
    WriteFile(TestPicture(8, 8, {"R", "G", "B"}, false), dir / "in.exr", OIIO::TypeDesc::HALF);
    const RunResult r = RunLumivane(dir, {"--plugins", "plugins", "render", "in.exr", "out.exr", "--size", "30"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("warning: cannot load plug-in"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("Broken.plugin"), std::string::npos) << r.err;
    EXPECT_TRUE(fs::exists(dir / "out.exr"));
    const RunResult none = RunLumivane(dir, {"render", "in.exr", "out2.exr", "--plugins", "empty"});
    EXPECT_EQ(none.status, 3) << none.err;
    EXPECT_NE(none.err.find("no plug-in module provides a tool (searched: empty"), std::string::npos) << none.err;
}

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

TEST(Reliability, AnOutputIsReplacedThroughItsLinkKeepingItsBits)
{
    ScratchFolder dir;
    const OIIO::ImageBuf picture = TestPicture(20, 12, {"R", "G", "B", "A"}, true);
    WriteFile(picture, dir / "in.exr", OIIO::TypeDesc::HALF);
    WriteFile(picture, dir / "shot.exr", OIIO::TypeDesc::HALF);

    // Replacing keeps the file's permission bits; a link is written through.
    namespace fs = std::filesystem;
    fs::permissions(dir / "shot.exr", fs::perms(0640));
    fs::create_symlink("shot.exr", dir / "link.exr");
    const RunResult again = RunLumivane(dir, {"render", "in.exr", "link.exr", "--size", "10"});
    ASSERT_EQ(again.status, 0) << again.err;
    EXPECT_TRUE(fs::is_symlink(dir / "link.exr"));
    EXPECT_GT(Compare(picture, ReadFile(dir / "shot.exr")).worst, 0.1);
    EXPECT_EQ(fs::status(dir / "shot.exr").permissions(), fs::perms(0640));

    // A file the user may not write is not replaced, though its folder is writable.
    // The superuser may write anything, so then the program runs as nobody.
    fs::permissions(dir / "shot.exr", fs::perms(0444));
    fs::permissions(dir.Path(), fs::perms::all);
    const RunResult refused = RunLumivane(dir, {"render", "in.exr", "shot.exr", "--size", "10"}, {},
                                          ::geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups" : "");
    EXPECT_EQ(refused.status, 3) << refused.err;
    EXPECT_NE(refused.err.find("cannot write shot.exr: the file exists and may not be written by this user"),
              std::string::npos)
        << refused.err;
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

    // On a full disk (a small file system of its own, in a namespace of the
    // test's own), including a writer that does not see its write fail (PNG).
    if (std::system("unshare -rm true 2>/dev/null") != 0) GTEST_SKIP() << "no user namespaces to mount a small disk in";
    for (const char* name : {"out/o.exr", "out/o.png"}) {
        const RunResult full = RunLumivane(dir, {"render", "f.0002.exr", name, "--size", "2"}, {},
                                           "unshare -rm sh -c 'mount -t tmpfs -o size=16k none out && exec \"$0\" \"$@\"'");
        EXPECT_EQ(full.status, 3) << full.err;
        EXPECT_NE(full.err.find(std::string("cannot write ") + name + ": "), std::string::npos) << full.err;
        EXPECT_NE(full.err.find("No space left on device"), std::string::npos) << full.err;
        EXPECT_EQ(full.err.find(".tmp"), std::string::npos) << full.err;
    }
}

// Past a file-size limit every writer's file is found cut short: libjpeg would
// end the process, libpng and FFTW would not notice, libtiff and OpenEXR might.
class SizeLimit : public ::testing::TestWithParam<const char*> {};

TEST_P(SizeLimit, FailsTheWriteWithNoFileLeft)
{
    ScratchFolder dir;
    WriteFile(TestPicture(400, 300, {"R", "G", "B", "A"}, true), dir / "in.exr", OIIO::TypeDesc::FLOAT);
    std::filesystem::create_directory(dir / "out");
    const std::string out = std::string("out/o.") + GetParam();
    const RunResult r = RunLumivane(dir, {"render", "in.exr", out, "--size", "2"}, "ulimit -f 16");
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_NE(r.err.find("cannot write " + out + ": "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("File too large"), std::string::npos) << r.err;
    EXPECT_EQ(dir.Files("out"), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Reliability, SizeLimit, ::testing::Values("exr", "jpg", "png", "tif"));

// `render -v | head -1`: the reader of standard output goes away early.
TEST(Reliability, AReaderThatGoesAwayLeavesTheRenderRunning)
{
    ScratchFolder dir;
    WriteFile(TestPicture(64, 48, {"R", "G", "B", "A"}, true), dir / "in.exr", OIIO::TypeDesc::HALF);
    ASSERT_EQ(RunLumivane(dir, {"render", "in.exr", "quiet.exr", "--size", "5"}).status, 0);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);  // every write to the pipe fails
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::chdir(dir.Path().c_str()) != 0 || ::dup2(ends[1], STDOUT_FILENO) < 0 || ::dup2(ends[1], STDERR_FILENO) < 0)
            ::_exit(99);
        ::unsetenv("LUMIVANE_PLUGIN_PATH");
        ::execl(LUMIVANE_EXE, "lumivane", "render", "in.exr", "piped.exr", "--size", "5", "-v",
                static_cast<char*>(nullptr));
        ::_exit(98);
    }
    ::close(ends[1]);
    int raw = 0;
    ASSERT_EQ(::waitpid(pid, &raw, 0), pid);
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 0) << "status " << raw;
    EXPECT_EQ(Compare(ReadFile(dir / "quiet.exr"), ReadFile(dir / "piped.exr")).worst, 0.0);
}

#if !defined(LUMIVANE_SANITIZED)  // the sanitizers' own memory would swamp the figures
TEST(Reliability, AFrameUnderTheMemoryLimitStaysUnderIt)
{
    ScratchFolder dir;
    WriteFile(TestPicture(1280, 720, {"R", "G", "B", "A"}, true), dir / "in.exr", OIIO::TypeDesc::HALF);
    // The frame's estimate, then a limit 1 MiB above it: the frame renders, and
    // the process's peak resident memory stays below that limit.
    const RunResult figures = RunLumivane(dir, {"render", "in.exr", "o.exr", "--size", "20", "--dry-run"});
    const std::size_t at = figures.out.find("memory about ");
    ASSERT_NE(at, std::string::npos) << figures.out;
    const long mib = std::stol(figures.out.substr(at + 13));
    ASSERT_NE(figures.out.find(std::to_string(mib) + " MiB", at), std::string::npos) << figures.out;
    const std::string cap = std::to_string(mib + 1) + "M";
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::chdir(dir.Path().c_str()) != 0) ::_exit(99);
        std::freopen("/dev/null", "w", stdout);
        ::setenv("LUMIVANE_THREADS", "2", 1);
        ::unsetenv("LUMIVANE_PLUGIN_PATH");
        ::execl(LUMIVANE_EXE, "lumivane", "--max-memory", cap.c_str(), "render", "in.exr", "o.exr", "--size", "20",
                static_cast<char*>(nullptr));
        ::_exit(98);
    }
    int raw = 0;
    struct rusage usage {};
    ASSERT_EQ(::wait4(pid, &raw, 0, &usage), pid);
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 0) << "under --max-memory " << cap;
    EXPECT_LE(usage.ru_maxrss, (mib + 1) * 1024) << "KiB at the peak under --max-memory " << cap;
}
#endif

}  // namespace
