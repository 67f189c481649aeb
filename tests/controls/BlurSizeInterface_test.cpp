// Blur size labels, visibility, lock copies and the conversion to pixels.
#include "support/ToolHarness.h"

namespace {

struct LockState {
    bool xy, rgb;
    const char* redX;
    const char* redY;
    bool redYShown;
    const char* greenX;
    bool greenXShown, greenYShown;
    const char* blueX;
    bool blueXShown, blueYShown;
};

TEST(BlurSizeControls, LabelsAndVisibilityFollowTheLocks)
{
    const LockState states[] = {
        {true, true, "Blur Size", "Blur Size Y", false, "Green Blur Size", false, false, "Blue Blur Size", false, false},
        {false, true, "Blur Size X", "Blur Size Y", true, "Green Blur Size X", false, false, "Blue Blur Size X", false,
         false},
        {true, false, "Red Blur Size", "Red Blur Size Y", false, "Green Blur Size", true, false, "Blue Blur Size", true,
         false},
        {false, false, "Red Blur Size X", "Red Blur Size Y", true, "Green Blur Size X", true, true, "Blue Blur Size X",
         true, true},
    };
    ToolHarness h;
    for (const LockState& s : states) {
        SCOPED_TRACE(std::string("xy ") + (s.xy ? "on" : "off") + ", rgb " + (s.rgb ? "on" : "off"));
        h.Set("LockXY", s.xy);
        h.Set("PerChannel", s.rgb);
        EXPECT_EQ(h.In("BlurSizeX")->GetLabel(), s.redX);
        EXPECT_EQ(h.In("BlurSizeY")->GetLabel(), s.redY);
        EXPECT_EQ(h.In("BlurSizeY")->IsVisible(), s.redYShown);
        EXPECT_EQ(h.In("GreenBlurSizeX")->GetLabel(), s.greenX);
        EXPECT_EQ(h.In("GreenBlurSizeX")->IsVisible(), s.greenXShown);
        EXPECT_EQ(h.In("GreenBlurSizeY")->IsVisible(), s.greenYShown);
        EXPECT_EQ(h.In("BlueBlurSizeX")->GetLabel(), s.blueX);
        EXPECT_EQ(h.In("BlueBlurSizeX")->IsVisible(), s.blueXShown);
        EXPECT_EQ(h.In("BlueBlurSizeY")->IsVisible(), s.blueYShown);
        EXPECT_EQ(h.In("GreenBlurSizeY")->GetLabel(), "Green Blur Size Y");
        EXPECT_EQ(h.In("BlueBlurSizeY")->GetLabel(), "Blue Blur Size Y");
    }
}

TEST(BlurSizeControls, InitialReportLocksTheChannelsOnce)
{
    ToolHarness h;
    EXPECT_TRUE(h.tool->channelsLocked);
    EXPECT_FALSE(h.tool->xyLocked);  // the X/Y flag waits for a change of its control
    // A repeated report with the same value copies nothing but re-applies the labels.
    h.Set("BlurSizeX", 4);
    h.In("BlurSizeX")->SetAttrs({{LINKS_Name, "stale"}});
    h.Set("PerChannel", 1);
    EXPECT_EQ(h.Get("GreenBlurSizeX"), 0.0);
    EXPECT_EQ(h.In("BlurSizeX")->GetLabel(), "Blur Size X");
}

TEST(BlurSizeControls, ReleasingALockCopiesTheSizesItHid)
{
    ToolHarness h;
    h.Set("LockXY", 1);
    h.Set("BlurSizeX", 3);
    h.Set("BlurSizeY", 9);
    h.Set("GreenBlurSizeX", 5);
    h.Set("LockXY", 0);  // green stays locked to red: only red's Y is copied
    EXPECT_EQ(h.Get("BlurSizeY"), 3);
    EXPECT_EQ(h.Get("GreenBlurSizeY"), 0);

    h.Set("BlurSizeY", 7);
    h.Set("LockXY", 1);  // locking copies nothing
    EXPECT_EQ(h.Get("BlurSizeY"), 7);

    h.Set("PerChannel", 0);  // released while X/Y is locked: still copies X and Y
    for (const char* id : {"GreenBlurSizeX", "BlueBlurSizeX"}) EXPECT_EQ(h.Get(id), 3) << id;
    for (const char* id : {"GreenBlurSizeY", "BlueBlurSizeY"}) EXPECT_EQ(h.Get(id), 7) << id;

    h.Set("GreenBlurSizeX", 6);
    h.Set("BlueBlurSizeX", 8);
    h.Set("LockXY", 0);  // now the channels are free: each Y starts from its X
    EXPECT_EQ(h.Get("BlurSizeY"), 3);
    EXPECT_EQ(h.Get("GreenBlurSizeY"), 6);
    EXPECT_EQ(h.Get("BlueBlurSizeY"), 8);

    h.Set("GreenBlurSizeX", 2);
    h.Set("PerChannel", 1);  // locking again copies nothing
    EXPECT_EQ(h.Get("GreenBlurSizeX"), 2);
}

TEST(BlurSizeControls, ReleasingALockCopiesTheValueAtThatTime)
{
    ToolHarness h;
    h.In("BlurSizeX")->SetKeys({{0.0, 2.0}, {10.0, 4.0}});
    h.Set("LockXY", 1);
    h.Set("LockXY", 0, 5.0);
    EXPECT_EQ(h.Get("BlurSizeY"), 3.0);
}

struct SizeCase {
    const char* name;
    int width, height;
    double xScale, yScale;
    double unit, aspect, lockXY;
    double x, y;
    double wantX, wantY;
};

TEST(BlurSizeControls, ReadBlurSizesConvertsToPixels)
{
    const SizeCase cases[] = {
        {"relative 2.5 of 1920", 1920, 1080, 1, 1, 0, 0, 1, 2.5, 0, 48.0, 48.0},
        {"absolute 0.3 rises to a pixel", 64, 64, 1, 1, 1, 0, 1, 0.3, 0, 1.0, 1.0},
        {"absolute 10, aspect 2:1", 64, 64, 2, 1, 1, 1, 1, 10, 0, 5.0, 10.0},
        {"relative scales Y by the width", 200, 100, 1, 1, 0, 0, 1, 10, 0, 20.0, 20.0},
        {"relative below a pixel", 50, 50, 1, 1, 0, 0, 1, 0.01, 0, 1.0, 1.0},
        {"unlocked axes", 100, 100, 1, 1, 1, 0, 0, 6, 3, 6.0, 3.0},
        {"negative typed past the limit", 100, 100, 1, 1, 1, 0, 0, -4, 0, 1.0, 1.0},
    };
    for (const SizeCase& c : cases) {
        SCOPED_TRACE(c.name);
        ToolHarness h;
        h.Set("BlurSizeUnit", c.unit);
        h.Set("ScaleBlurAspect", c.aspect);
        h.Set("LockXY", c.lockXY);
        h.Set("BlurSizeX", c.x);
        h.Set("BlurSizeY", c.y);
        Ref<Image> img(new Image(c.width, c.height));
        img->XScale = c.xScale;
        img->YScale = c.yScale;
        Request req(0.0);
        h.tool->ReadBlurSizes(&req, img.get());
        for (int ch = 0; ch < 3; ++ch) {
            EXPECT_DOUBLE_EQ(h.tool->blurSizeX[ch], c.wantX);
            EXPECT_DOUBLE_EQ(h.tool->blurSizeY[ch], c.wantY);
        }
    }
}

TEST(BlurSizeControls, ChannelsReadTheirOwnSizesUntilTheLockIsReported)
{
    // Made without the host's initial report, the R/G/B flag is still off.
    Lumivane2 tool(nullptr, ScriptVal{}, TagList{});
    Ref<Number> red(new Number(5));
    tool.FindInput("BlurSizeUnit")->SetSource(Ref<Number>(new Number(1)).get(), 0);
    tool.FindInput("BlurSizeX")->SetSource(red.get(), 0);
    Ref<Image> img(new Image(8, 8));
    Request req(0.0);
    tool.ReadBlurSizes(&req, img.get());
    EXPECT_EQ(tool.blurSizeX[0], 5.0);
    EXPECT_EQ(tool.blurSizeX[1], 1.0);
    EXPECT_EQ(tool.blurSizeX[2], 1.0);
}

}  // namespace
