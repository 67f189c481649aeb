// `lumivane render` end to end: keyed flows over a sequence, the compression
// asked, and a shot folder rendered after a move.
#include "support/ProgramRunner.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>

namespace {

using OIIO::TypeDesc;

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

}  // namespace
