// Frames too large for the machine fail at once with a message; long runs do
// not grow.
#include "host/EngineSettings.h"
#include "support/ToolHarness.h"

#include <fstream>

namespace {

struct LimitFixture : ::testing::Test {
    ToolHarness h;
    Ref<Image> src{MakeImage(64, 48, [](int x, int y, int) { return float((x + y) % 5); })};
    void SetUp() override
    {
        h.Connect("input", src.get());
        h.Set("BlurSizeUnit", 1);
        h.Set("BlurSizeX", 5);
    }
    void TearDown() override { SetMemoryLimit(0); }
    std::string Error() const
    {
        const auto lines = h.Lines(CONSOLE_Error);
        return lines.empty() ? std::string() : lines.back();
    }
};

TEST_F(LimitFixture, AFrameOverTheMemoryLimitFailsBeforeAllocating)
{
    SetMemoryLimit(ParseMemorySize("200K"));
    EXPECT_FALSE(h.Render());
    EXPECT_NE(Error().find("the frame needs about 1 MiB"), std::string::npos) << Error();
    EXPECT_NE(Error().find("but the memory limit is 1 MiB"), std::string::npos) << Error();
    EXPECT_TRUE(h.tool->channelStore.planes.empty());
    SetMemoryLimit(ParseMemorySize("1G"));
    EXPECT_TRUE(h.Render());
}

TEST_F(LimitFixture, ABlurPastTheLargestTransformIsRefused)
{
    h.Set("BlurSizeX", 3e9);
    EXPECT_FALSE(h.Render());
    // Each colour's chunks fail alike; the last to report names its colour.
    EXPECT_NE(Error().find(" blur size of 3000000000.000000 pixels passes the largest kernel of 1073741824 pixels\n"),
              std::string::npos)
        << Error();
    h.Set("BlurSizeX", 1073741800);
    EXPECT_FALSE(h.Render());
    EXPECT_EQ(Error(), "Lumivane 2: the transform width for image plus kernel of 1073741865 pixels would pass the "
                       "largest side of 1073741824\n");
    h.Set("BlurSizeX", 1073741000);  // fits a transform side, but not the machine
    EXPECT_FALSE(h.Render());
    EXPECT_NE(Error().find("transform arrays 8589934640.0 GiB"), std::string::npos) << Error();
}

TEST(MemorySize, ParsesWhatAFarmWouldWrite)
{
    EXPECT_EQ(ParseMemorySize("512M"), 512ull << 20);
    EXPECT_EQ(ParseMemorySize("1.5G"), 3ull << 29);
    EXPECT_EQ(ParseMemorySize("4096"), 4096u);
    for (const char* bad : {"", "lots", "-1G", "2X", "0"}) EXPECT_THROW(ParseMemorySize(bad), std::invalid_argument) << bad;
}

long ResidentKiB()
{
    std::ifstream status("/proc/self/status");
    std::string key;
    long value = 0;
    while (status >> key) {
        if (key == "VmRSS:") {
            status >> value;
            return value;
        }
        status.ignore(1 << 12, '\n');
    }
    return 0;
}

TEST_F(LimitFixture, TwoHundredFramesKeepMemoryFlat)
{
    h.In("BlurSizeX")->SetKeys({{0, 2.0}, {199, 9.0}});
    const long images = Image::LiveCount();
    [[maybe_unused]] long settled = 0;
    for (int frame = 0; frame < 200; ++frame) {
        Ref<Image> out = h.Render(frame);
        ASSERT_TRUE(out) << frame;
        if (frame == 20) settled = ResidentKiB();
        h.doc.ClearConsole();
    }
    EXPECT_EQ(Image::LiveCount(), images + 0);
#if !defined(__SANITIZE_ADDRESS__)
    // Sizes vary, so plans for a few more transform sizes may be made; frames
    // must not add up.
    EXPECT_LT(ResidentKiB() - settled, 8 * 1024) << "resident memory grew from " << settled << " KiB";
#endif
}

}  // namespace
