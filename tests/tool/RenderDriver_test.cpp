// What a render does around the filtering: console lines, the pass-through and
// failures.
#include "support/ToolHarness.h"

#include <tuple>

namespace {

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

TEST(RenderDriver, BadInputEndsTheRenderWithAMessage)
{
    // What is wrong, how it is made, and the message exactly where one is given.
    const std::tuple<const char*, std::function<void(ToolHarness&)>, const char*> cases[] = {
        {"no source", [](ToolHarness& t) { t.In("input")->SetSource(nullptr, 0); },
         "Lumivane 2: nothing is connected to the \"input\" input\n"},
        {"kernel black in green", [](ToolHarness& t) {
             t.Connect("kernel", Ref<Image>(MakeImage(3, 3, [](int, int, int c) { return float(c != 1); })).get());
         }, nullptr},
        {"two-sided polygon", [](ToolHarness& t) { t.Set("BlurStyle", 1), t.Set("PolygonSideCount", 2); }, nullptr},
        {"unknown style", [](ToolHarness& t) { t.Set("BlurStyle", 7); }, nullptr},
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

// Non-finite pixels are followed through a render in test_app (Reliability).
TEST(RenderDriver, AnEmptyImageRendersToAnEmptyOutput)
{
    Rig h(3);
    Ref<Image> empty(new Image(0, 5));
    h.Connect("input", empty.get());
    Ref<Image> out = h.Render();
    ASSERT_TRUE(out);
    EXPECT_EQ(out->Width, 0);
}

}  // namespace
