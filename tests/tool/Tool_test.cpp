// What changing the tool's controls does, and what a render does around the
// filtering: console lines, the pass-through and failures. Frames too large for
// the machine fail at once with a message; long runs and many tools leave
// nothing behind.
#include "host/EngineSettings.h"
#include "support/ToolHarness.h"

#include <cstring>
#include <fstream>
#include <tuple>

namespace {

TEST(ControlSet, ChoicesShowTheControlsTheyUse)
{
    ToolHarness h;
    for (double v : {1.0, 0.0, 0.5, 0.49}) {
        h.Set("Operation", v);
        EXPECT_EQ(h.tool->convolve, v < 0.5) << v;
        EXPECT_EQ(h.In("WienerParam")->IsVisible(), v >= 0.5) << v;
    }
    // Bad Bokeh, Kernel Angle and Polygon Side Count shown for each style.
    for (const auto& [style, want] : {std::pair{2.0, "000"}, {0.0, "100"}, {1.0, "111"}, {3.0, "000"}, {4.0, "000"},
                                      {1.9, "111"}}) {
        h.Set("BlurStyle", style);
        std::string shown;
        for (const char* id : {"BadBokeh", "KernelAngle", "PolygonSideCount"})
            shown += h.In(id)->IsVisible() ? '1' : '0';
        EXPECT_EQ(shown, want) << style;
    }
    h.tool->shapeControlsEnabled = false;
    h.Set("BlurStyle", 1);
    EXPECT_FALSE(h.In("BadBokeh")->IsVisible() || h.In("KernelAngle")->IsVisible());
}


using Lines = std::vector<std::string>;

const Lines kFullRender = {"Lumivane 2: Starting\n", "Lumivane 2: Setup Complete\n", "Lumivane 2: Threads completed\n",
                           "Lumivane 2: Output setting complete\n", "Lumivane 2: Done\n"};
const Lines kPassThrough = {"Lumivane 2: Starting\n", "Lumivane 2: Output setting complete\n", "Lumivane 2: Done\n"};

// The tool on an 11 x 7 image with a depth channel, blur sizes in pixels.
struct Rig : ToolHarness {
    Ref<Image> src{MakeImage(11, 7, [](int x, int y, int c) { return float(x * 3 + y * 5 + c) * 0.1f; }, {"Z"})};
    explicit Rig(double size = 0) { Connect("input", src.get()), Set("BlurSizeUnit", 1), Set("BlurSizeX", size); }
};

TEST(RenderDriver, NormalRenderPrintsEveryStepAndOnePixelKernelsPassTheImageThrough)
{
    Rig h(3);
    EXPECT_TRUE(h.Render());
    EXPECT_EQ(h.Lines(CONSOLE_Progress), kFullRender);
    EXPECT_TRUE(h.Lines(CONSOLE_Error).empty());
    // Red alone would pass through, but an unlocked blue channel is filtered.
    Rig unlocked(0.4);
    unlocked.Set("PerChannel", 0);
    unlocked.Set("BlueBlurSizeX", 3);
    EXPECT_TRUE(unlocked.Render());
    EXPECT_EQ(unlocked.Lines(CONSOLE_Progress), kFullRender);
    // Locked, green's size is ignored: a copy even with a kernel image.
    Rig one(0.4);
    Ref<Image> kernel(MakeImage(5, 5, [](int, int, int) { return 1.0f; }));
    one.Connect("kernel", kernel.get());
    one.Set("GreenBlurSizeX", 9);
    Ref<Image> out = one.Render();
    ASSERT_TRUE(out);
    EXPECT_NE(out.get(), one.src.get());
    for (int y = 0; y < one.src->Height; ++y)
        for (int x = 0; x < one.src->Width; ++x)
            for (int c = 0; c < one.src->PixelStride(); ++c) ASSERT_EQ(Sample(*out, x, y, c), Sample(*one.src, x, y, c));
    EXPECT_EQ(one.Lines(CONSOLE_Progress), kPassThrough);
}

TEST(RenderDriver, AFailingChunkSetsNoOutput)
{
    Rig h(3);
    h.Set("Edges", 3);
    EXPECT_FALSE(h.Render());
    EXPECT_EQ(h.Lines(CONSOLE_Progress),
              (Lines{"Lumivane 2: Starting\n", "Lumivane 2: Setup Complete\n", "Lumivane 2: Threads completed\n"}));
    EXPECT_EQ(h.Lines(CONSOLE_Error), Lines{"Lumivane 2: Invalid Edge Type\n"});
    h.Set("Edges", 0);  // the next good render clears the failure
    EXPECT_TRUE(h.Render());
    EXPECT_FALSE(h.tool->errorFlag);
}

// Cancelled once set up, a render stops there and hands over nothing; with its
// flag down it gives the very pixels of a render without one.
TEST(RenderDriver, ACancelledRenderStopsAndSetsNoOutput)
{
    Rig h(3);
    const Ref<Image> plain = h.Render();
    std::atomic<bool> cancel{false};
    const Ref<Parameter> kept = h.doc.Render(h.op, 0, &cancel);
    ASSERT_TRUE(plain && kept);
    const std::size_t bytes = sizeof(float) * 11 * 7 * plain->PixelStride();
    EXPECT_EQ(std::memcmp(plain->Pixel(0, 0), static_cast<const Image&>(*kept).Pixel(0, 0), bytes), 0) << "changed";
    h.doc.ClearConsole();
    h.doc.SetConsoleListener([&](const ConsoleLine& l) { cancel = cancel || l.Text == "Lumivane 2: Setup Complete\n"; });
    EXPECT_FALSE(h.doc.Render(h.op, 0, &cancel));
    EXPECT_EQ(h.Lines(CONSOLE_Progress), (Lines{"Lumivane 2: Starting\n", "Lumivane 2: Setup Complete\n"}));
}

TEST(RenderDriver, BadInputEndsTheRenderWithAMessage)
{
    // What is wrong, how it is made, and the message exactly where one is given.
    const std::tuple<const char*, std::function<void(ToolHarness&)>, const char*> cases[] = {
        {"no source", [](ToolHarness& t) { t.In("input")->SetSource(nullptr, 0); },
         "Lumivane 2: nothing is connected to the \"input\" input\n"},
        {"kernel black in green", [](ToolHarness& t) {
             t.Connect("kernel", Ref<Image>(MakeImage(3, 3, [](int, int, int c) { return float(c != 1); })).get());
         }, "Lumivane 2: The kernel is black in the green channel: it has no weight to normalise\n"},
        // Chunks place their kernels at once; the first black channel is named.
        {"kernel black in red and green", [](ToolHarness& t) {
             t.Connect("kernel", Ref<Image>(MakeImage(3, 3, [](int, int, int c) { return float(c > 1); })).get());
         }, "Lumivane 2: The kernel is black in the red channel: it has no weight to normalise\n"},
        {"kernel not finite", [](ToolHarness& t) {
             t.Connect("kernel", Ref<Image>(MakeImage(3, 2, [](int x, int y, int c) {
                 return x == 2 && y == 1 && c == 1 ? INFINITY : x == 1 && y == 1 && c == 2 ? NAN : 1.0f;
             })).get());
         }, "Lumivane 2: The kernel image has NaN in the blue channel at pixel 1, 1: every output pixel of that channel "
            "would be lost; clean the kernel image first\n"},
        {"two-sided polygon", [](ToolHarness& t) { t.Set("BlurStyle", 1), t.Set("PolygonSideCount", 2); }, nullptr},
        {"unknown style", [](ToolHarness& t) { t.Set("BlurStyle", 7); }, nullptr},
        // A script may set what the host refuses from a user; the conversion to a
        // whole number clamps first, so the tool's own checks see the size of it.
        {"side count past 32 bits", [](ToolHarness& t) { t.Set("BlurStyle", 1), t.Set("PolygonSideCount", 1e10); },
         "Lumivane 2: Polygon Side Count 2147483647 is above 1000, the most sides a polygon takes\n"},
        {"style not a number", [](ToolHarness& t) { t.Set("BlurStyle", std::nan("")); },
         "Lumivane 2: Blur Style is not a finite number\n"},
    };
    for (const auto& [name, setup, message] : cases) {
        SCOPED_TRACE(name);
        Rig t(3);
        setup(t);
        EXPECT_FALSE(t.Render());
        const Lines errors = t.Lines(CONSOLE_Error);
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_EQ(errors[0], message ? message : errors[0]);
        EXPECT_EQ(errors[0].rfind("Lumivane 2: ", 0), 0u);
    }
}

// Non-finite pixels are followed through a render in test_cli (Reliability).
TEST(RenderDriver, AnEmptyImageRendersToAnEmptyOutput)
{
    Rig h(3);
    Ref<Image> empty(new Image(0, 5));
    h.Connect("input", empty.get());
    Ref<Image> out = h.Render();
    ASSERT_TRUE(out);
    EXPECT_EQ(out->Width, 0);
}


struct LimitFixture : ::testing::Test {
    ToolHarness h;
    Ref<Image> src{MakeImage(64, 48, [](int x, int y, int) { return float((x + y) % 5); })};
    LimitFixture() { h.Connect("input", src.get()), h.Set("BlurSizeUnit", 1), h.Set("BlurSizeX", 5); }
    void TearDown() override { SetMemoryLimit(0); }
    std::string Error() const { return h.Lines(CONSOLE_Error).empty() ? "" : h.Lines(CONSOLE_Error).back(); }
};

TEST_F(LimitFixture, FramesOverTheLimitOrTheMachineFailBeforeAllocating)
{
    h.Set("BlurSizeX", 1073741000);  // fits a transform but not the machine
    EXPECT_FALSE(h.Render());
    EXPECT_NE(Error().find("transform arrays 8589934640.0 GiB"), std::string::npos) << Error();
    h.Set("BlurSizeX", 5);
    SetMemoryLimit(ParseMemorySize("200K"));
    EXPECT_FALSE(h.Render());
    // Below a MiB the figures keep their size: 64 x 48 pixels of four floats are 48 KiB.
    EXPECT_NE(Error().find("KiB (the input images 48 KiB"), std::string::npos) << Error();
    EXPECT_NE(Error().find("but the memory limit is 200 KiB"), std::string::npos) << Error();
    EXPECT_TRUE(h.tool->channelStore.planes.empty());
    SetMemoryLimit(ParseMemorySize("1G"));
    EXPECT_TRUE(h.Render());
}

long ResidentKiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return 0;
}

TEST_F(LimitFixture, TwoHundredFramesKeepMemoryFlat)
{
    h.In("BlurSizeX")->SetKeys({{0, 2.0}, {199, 9.0}});
    const long images = Image::LiveCount();
    [[maybe_unused]] long settled = 0;
    for (int frame = 0; frame < 200; ++frame) {
        ASSERT_TRUE(h.Render(frame)) << frame;
        if (frame == 20) settled = ResidentKiB();
        h.doc.ClearConsole();
    }
    EXPECT_EQ(Image::LiveCount(), images + 0);
#if !defined(LUMIVANE_SANITIZED)
    // Sizes vary, so plans for a few more transform sizes may be made; frames
    // must not add up.
    EXPECT_LT(ResidentKiB() - settled, 8 * 1024) << "resident memory grew from " << settled << " KiB";
#endif
}

TEST(Registration, ManyInstancesLeaveNothingBehind)
{
    const long imagesBefore = Image::LiveCount();
    {
        FusionDoc doc;
        Lumivane2Registry();
        for (int i = 0; i < 50; ++i)
            if (Operator* t = doc.AddTool(FuID("tevrinworks.Lumivane2")); i % 2) doc.RemoveTool(t);
        EXPECT_EQ(doc.Tools().size(), 25u);
        Ref<Image> img(MakeImage(9, 7, [](int x, int, int) { return float(x); }));
        for (const auto& t : doc.Tools()) {
            t->FindInput("input")->SetSource(img.get(), 0);
            for (const auto& [id, v] : {std::pair{"BlurSizeUnit", 1.0}, {"BlurSizeX", 3.0}})
                t->FindInput(id)->SetSource(Ref<Number>(new Number(v)).get(), 0);
            EXPECT_TRUE(doc.Render(t.get(), 0));
        }
    }
    EXPECT_EQ(Image::LiveCount(), imagesBefore);
}

}  // namespace
