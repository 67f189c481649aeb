// `lumivane kernel`: the kernels of each colour, drawn by the loaded tool.
#include "support/ProgramRunner.h"

#include <gtest/gtest.h>

namespace {

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

}  // namespace
