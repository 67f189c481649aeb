// What the program does with the conditions a pipeline throws at it:
// non-finite pixels, writing over the input, and a write that fails part way
// through a sequence.
#include "ProgramRunner.h"

#include <gtest/gtest.h>

namespace {

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
