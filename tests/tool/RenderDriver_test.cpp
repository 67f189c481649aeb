// What a render does around the filtering: console lines, the pass-through,
// failures, and the planes kept between renders.
#include "fft/FrequencyArray.h"
#include "support/ToolHarness.h"

#include <cmath>
#include <limits>

namespace {

using Lines = std::vector<std::string>;

const Lines kFullRender = {"Lumivane 2: Starting\n", "Lumivane 2: Setup Complete\n",
                           "Lumivane 2: Threads completed\n", "Lumivane 2: Output setting complete\n",
                           "Lumivane 2: Done\n"};
const Lines kPassThrough = {"Lumivane 2: Starting\n", "Lumivane 2: Output setting complete\n",
                            "Lumivane 2: Done\n"};

struct RenderFixture : ::testing::Test {
    ToolHarness h;
    Ref<Image> src{MakeImage(11, 7, [](int x, int y, int c) { return float(x * 3 + y * 5 + c) * 0.1f; }, {"Z"})};

    void SetUp() override
    {
        h.Connect("input", src.get());
        h.Set("BlurSizeUnit", 1);
    }
};

TEST_F(RenderFixture, NormalRenderPrintsEveryStep)
{
    h.Set("BlurSizeX", 3);
    EXPECT_TRUE(h.Render());
    EXPECT_EQ(h.Lines(CONSOLE_Progress), kFullRender);
    EXPECT_TRUE(h.Lines(CONSOLE_Error).empty());
}

TEST_F(RenderFixture, OnePixelKernelsPassTheImageThroughEvenWithAKernelImage)
{
    Ref<Image> kernel(MakeImage(5, 5, [](int, int, int) { return 1.0f; }));
    h.Connect("kernel", kernel.get());
    h.Set("BlurSizeX", 0.4);
    h.Set("GreenBlurSizeX", 9);  // ignored while the channels are locked: only red counts
    Ref<Image> out = h.Render();
    ASSERT_TRUE(out);
    EXPECT_NE(out.get(), src.get());
    for (int y = 0; y < src->Height; ++y)
        for (int x = 0; x < src->Width; ++x)
            for (int c = 0; c < src->PixelStride(); ++c) ASSERT_EQ(Sample(*out, x, y, c), Sample(*src, x, y, c));
    EXPECT_EQ(h.Lines(CONSOLE_Progress), kPassThrough);
}

TEST_F(RenderFixture, UnlockedChannelsCountForThePassThrough)
{
    h.Set("PerChannel", 0);
    h.Set("BlueBlurSizeX", 3);
    EXPECT_TRUE(h.Render());
    EXPECT_EQ(h.Lines(CONSOLE_Progress), kFullRender);
}

TEST_F(RenderFixture, AFailingChunkSetsNoOutput)
{
    h.Set("BlurSizeX", 3);
    h.Set("Edges", 3);
    EXPECT_FALSE(h.Render());
    EXPECT_EQ(h.Lines(CONSOLE_Progress),
              (Lines{"Lumivane 2: Starting\n", "Lumivane 2: Setup Complete\n", "Lumivane 2: Threads completed\n"}));
    EXPECT_EQ(h.Lines(CONSOLE_Error), Lines{"Lumivane 2: Invalid Edge Type\n"});
    // The next good render clears the failure.
    h.doc.ClearConsole();
    h.Set("Edges", 0);
    EXPECT_TRUE(h.Render());
    EXPECT_FALSE(h.tool->errorFlag);
}

TEST_F(RenderFixture, BadInputEndsTheRenderWithAMessage)
{
    struct Case {
        const char* name;
        std::function<void(ToolHarness&)> setup;
        const char* message;
    };
    const Case cases[] = {
        {"no source", [](ToolHarness& t) { t.In("input")->SetSource(nullptr, 0); },
         "Lumivane 2: nothing is connected to the \"input\" input\n"},
        {"kernel black in green",
         [](ToolHarness& t) {
             Ref<Image> k(MakeImage(3, 3, [](int, int, int c) { return c == 1 ? 0.0f : 1.0f; }));
             t.Connect("kernel", k.get());
         },
         nullptr},
        {"two-sided polygon", [](ToolHarness& t) { t.Set("BlurStyle", 1), t.Set("PolygonSideCount", 2); }, nullptr},
        {"unknown style", [](ToolHarness& t) { t.Set("BlurStyle", 7); }, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ToolHarness t;
        t.Connect("input", src.get());
        t.Set("BlurSizeUnit", 1);
        t.Set("BlurSizeX", 3);
        c.setup(t);
        EXPECT_FALSE(t.Render());
        const Lines errors = t.Lines(CONSOLE_Error);
        ASSERT_EQ(errors.size(), 1u);
        if (c.message) {
            EXPECT_EQ(errors[0], c.message);
        }
        EXPECT_EQ(errors[0].rfind("Lumivane 2: ", 0), 0u);
    }
}

TEST_F(RenderFixture, NonFiniteAndEmptyImagesRenderWithoutCrashing)
{
    Ref<Image> nan(MakeImage(9, 9, [](int x, int y, int) {
        return x == 4 && y == 4 ? std::numeric_limits<float>::quiet_NaN() : x == 0 ? INFINITY : 0.5f;
    }));
    h.Connect("input", nan.get());
    h.Set("BlurSizeX", 3);
    Ref<Image> out = h.Render();
    ASSERT_TRUE(out);  // the non-finite values spread through the whole plane they are in
    EXPECT_TRUE(std::isnan(Sample(*out, 8, 8, 0)));

    Ref<Image> empty(new Image(0, 5));
    h.Connect("input", empty.get());
    out = h.Render();
    ASSERT_TRUE(out);
    EXPECT_EQ(out->Width, 0);
}

TEST_F(RenderFixture, PlanesAreKeptByNameAndResizedEachRender)
{
    h.Set("BlurSizeX", 3);
    ASSERT_TRUE(h.Render());
    EXPECT_EQ(h.tool->channelStore.pitch, 12);
    Ref<Image> small(MakeImage(5, 3, [](int, int, int) { return 1.0f; }));
    h.Connect("input", small.get());
    Ref<Image> out = h.Render();
    ASSERT_TRUE(out);
    std::vector<std::string> names;
    for (const auto& p : h.tool->channelStore.planes) names.push_back(p.first);
    EXPECT_EQ(names, (std::vector<std::string>{"AB", "AG", "AR", "B", "G", "R"}));
    EXPECT_EQ(h.tool->channelStore.width, 5);
    EXPECT_EQ(h.tool->channelStore.pitch, 8);
    EXPECT_NEAR(Sample(*out, 2, 1, 0), 1.0f, 1e-6);  // a flat image stays flat with duplicated edges
}

TEST(ImageTransfer, AlphaIsTheLargestOfTheThreeFilteredPlanes)
{
    ToolHarness h;
    Ref<Image> src(MakeImage(3, 1, [](int, int, int c) { return float(c); }, {"Z"}));
    h.tool->sourceImage = src.get();
    h.tool->channelStore.Allocate(3, 1);
    h.tool->ImportSourceImage();
    const float alphas[3][3] = {{0.2f, 0.7f, 0.5f}, {0.9f, 0.1f, 0.3f}, {0.4f, 0.4f, 0.4f}};
    const char* names[3] = {"AR", "AG", "AB"};
    for (int x = 0; x < 3; ++x)
        for (int k = 0; k < 3; ++k) h.tool->channelStore.GetChannel(names[k])[x] = alphas[x][k];
    Ref<Image> out(NewImage({{IMG_Like, static_cast<const void*>(src.get())}}));
    h.tool->outputImage = out.get();
    h.tool->ExportOutputImage();
    h.tool->outputImage = nullptr;
    EXPECT_EQ(Sample(*out, 0, 0, 3), 0.7f);
    EXPECT_EQ(Sample(*out, 1, 0, 3), 0.9f);
    EXPECT_EQ(Sample(*out, 2, 0, 3), 0.4f);
    EXPECT_EQ(Sample(*out, 1, 0, 0), 0.0f);
    EXPECT_EQ(Sample(*out, 1, 0, 2), 2.0f);
    EXPECT_EQ(Sample(*out, 1, 0, 4), 4.0f);
}

TEST(ChannelStore, PitchAndBadChunks)
{
    ToolHarness h;
    ChannelStore& store = h.tool->channelStore;
    for (auto [w, pitch] : {std::pair{5, 8}, {8, 8}, {1, 4}}) {
        store.Allocate(w, 2);
        EXPECT_EQ(store.pitch, pitch) << w;
    }
    store.Allocate(4, 0);
    FrequencyArray none;
    h.tool->ReadStorageChannel(none, 2);  // a zero-height store touches nothing
    h.tool->WriteStorageChannel(none, 2);
    for (int chunk : {6, -1}) {
        try {
            h.tool->ReadStorageChannel(none, chunk);
            ADD_FAILURE() << chunk;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "Unable to access storage channel");
        }
    }
}

}  // namespace
