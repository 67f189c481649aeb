// The host model's own behaviour that tools rely on: inputs with keyframes and
// notifications, images, the worker pool, and the engine settings (what a program
// sets wins over the environment, and a malformed value is refused with the
// variable or value named, never ignored).
#include "host/EngineSettings.h"
#include "host/FusionDoc.h"
#include "host/Image.h"
#include "host/Tags.h"
#include "host/ThreadedOperator.h"
#include "host/WorkerPool.h"
#include "support/Refusal.h"

#include <gtest/gtest.h>

#include <fstream>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <thread>

namespace {

struct Recorder : ThreadedOperator {
    Recorder() : ThreadedOperator(nullptr, ScriptVal{}, TagList{}) {}
    std::vector<std::pair<std::string, double>> notes;
    std::atomic<int> running{0}, peak{0};
    std::atomic<unsigned> chunks{0};  // one bit per chunk run
    std::atomic<bool>* raise = nullptr;  // raised as each chunk ends

    void NotifyChanged(Input* in, Parameter* p, TimeStamp t, const TagList*) override
    {
        notes.emplace_back(in->ID().str() + "@" + std::to_string(int(t)), *static_cast<Number*>(p));
    }
    void ProcessChunk(Request*, std::int32_t chunk) override
    {
        peak = std::max(peak.load(), ++running);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        chunks |= 1u << chunk;
        --running;
        if (raise) *raise = true;
        if (chunk == 3) throw std::runtime_error("chunk 3");
    }
    Input* AddNumber(const char* id, TagList extra = {})
    {
        TagList tags{{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, SliderControlID}};
        for (const TagItem& i : extra.Items()) tags.Add(i);
        return AddInput(id, id, tags);
    }
};

TEST(Input, NotifiesOnlyWhenAskedAndInterpolatesKeyframes)
{
    Recorder op;
    Input* quiet = op.AddNumber("Quiet");
    Input* loud = op.AddNumber("Loud", {{INP_DoNotifyChanged, 1}, {INP_Default, 4.0}});
    op.AddNumber("First", {{INP_InitialNotify, 1}, {INP_Default, 1.0}});
    op.ReportInitialValues();
    Ref<Number> two(new Number(2)), three(new Number(3));
    quiet->SetSource(two.get(), 0);
    loud->SetSource(two.get(), 1);
    loud->SetSource(three.get(), 2);
    EXPECT_EQ(op.notes, (std::vector<std::pair<std::string, double>>{{"First@0", 1}, {"Loud@1", 2}, {"Loud@2", 3}}));
    EXPECT_FALSE(loud->SetSource(Ref<Text>(new Text("x")).get(), 0));  // wrong data type

    // Keyframes are linear between and constant beyond.
    Input* in = quiet;
    in->SetKeys({{10, 2.0}, {20, 6.0}});
    auto at = [&](double t) { return static_cast<Number&>(*Ref<Parameter>(in->GetSource(t))).Value(); };
    EXPECT_EQ(std::vector<double>({at(0), at(15), at(30)}), std::vector<double>({2, 4, 6}));
    in->SetSource(Ref<Number>(new Number(12)).get(), 30);  // a value on an animated control is a key
    EXPECT_EQ(in->Keys().size(), 3u);
    EXPECT_EQ(std::vector<double>({at(20), at(25)}), std::vector<double>({6, 9}));  // at and past the middle key
    Request req(15);
    EXPECT_EQ(static_cast<Number&>(*in->GetValue(&req)).Value(), 4.0);
}

// A user's animation verbs: a value set on an animated control keys it and keeps
// the other keys; Animate keys what is there; deleting the last key or removing
// the animation leaves the value the control had at that frame.
TEST(Input, AnimationVerbsKeepKeysAndValuesAsACompositorDoes)
{
    Recorder op;
    Input* in = op.AddNumber("Size", {{INP_DoNotifyChanged, 1}, {INP_Default, 2.0}});
    auto at = [&](double t) { return static_cast<Number&>(*Ref<Parameter>(in->GetSource(t))).Value(); };
    auto set = [&](double v, double t) { in->SetSource(Ref<Number>(new Number(v)).get(), t); };
    using Keys = std::map<double, double>;

    in->Animate(1);
    EXPECT_EQ(in->Keys(), (Keys{{1, 2}}));
    set(6, 1);
    set(6, 3);
    set(10, 3);  // replaces the key at 3
    EXPECT_EQ(in->Keys(), (Keys{{1, 6}, {3, 10}}));
    // Between frames: a quarter of the way from 1 to 3 is a quarter of the way from 6 to 10.
    EXPECT_EQ((std::vector<double>{at(0), at(1.5), at(2.5), at(4)}), (std::vector<double>{6, 7, 9, 10}));
    in->Animate(2);  // keys the value there; nothing moves
    EXPECT_EQ(in->Keys(), (Keys{{1, 6}, {2, 8}, {3, 10}}));
    in->DeleteKey(2);
    in->DeleteKey(3);  // frame 3 falls back to 6: the tool hears of it
    EXPECT_EQ(at(3), 6.0);
    in->DeleteKey(1);
    EXPECT_TRUE(!in->IsAnimated() && at(7) == 6.0);
    EXPECT_EQ(op.notes, (std::vector<std::pair<std::string, double>>{
                            {"Size@1", 6}, {"Size@3", 6}, {"Size@3", 10}, {"Size@3", 6}}));

    in->SetKeys({{0, 0}, {10, 20}});
    in->RemoveAnimation(2.5);
    EXPECT_TRUE(!in->IsAnimated() && at(0) == 5.0 && at(10) == 5.0);
    set(7, 4);  // static: the value everywhere
    EXPECT_TRUE(!in->IsAnimated() && at(0) == 7.0);

    Input* text = op.AddInput("Note", "Note", {{LINKID_DataType, CLSID_DataType_Text}});
    Input* fixed = op.AddNumber("Fixed", {{TEC_ReadOnly, 1}});
    Input* plain = op.AddNumber("Plain");
    in->SetKeys({{1, 2}, {3, 4}});
    const struct { std::function<void()> verb; const char* message; } refused[] = {
        {[&] { text->Animate(1); }, "\"Note\" is not a number control; only numbers take keys"},
        {[&] { fixed->RemoveAnimation(1); }, "\"Fixed\" is read-only"},
        {[&] { in->Animate(std::nan("")); }, "\"Size\": frame nan is not a finite number"},
        {[&] { in->DeleteKey(2); }, "\"Size\" has no key at frame 2 (its keys are at 1, 3)"},
        {[&] { fixed->DeleteKey(1); }, "\"Fixed\" is read-only"},
        {[&] { plain->DeleteKey(1); }, "\"Plain\" is not animated"}};
    for (const auto& r : refused) EXPECT_EQ(Refusal<ValueRefused>(r.verb), r.message);
    EXPECT_EQ(in->Keys(), (Keys{{1, 2}, {3, 4}}));
}

TEST(ThreadedOperator, RunsEveryChunkOnTheWorkersAndReportsFailures)
{
    Recorder op;
    Request req(0);
    EXPECT_THROW(op.DoMultiProcess(&req, 6), std::runtime_error);
    EXPECT_EQ(op.chunks, 0x3fu);
    EXPECT_TRUE(WorkerPool::Shared().ThreadCount() <= 1 || op.peak > 1) << op.peak;
    // Each chunk raises the flag as it ends, so a worker's second finds it
    // raised: no more chunks run than there are workers.
    std::atomic<bool> cancel{false};
    op.chunks = 0, op.raise = &cancel;
    Request stopped(0, &cancel);
    op.DoMultiProcess(&stopped, 3);
    EXPECT_LE(unsigned(__builtin_popcount(op.chunks)), WorkerPool::Shared().ThreadCount()) << op.chunks;
}

TEST(Image, ResizeAveragesWhenShrinkingAndCopiesAtTheSameSize)
{
    Ref<Image> img(new Image(4, 2, IMDP_Float16, {"Z"}));
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x)
            for (int c = 0; c < 5; ++c) img->Pixel(x, y)[c] = float(x + 4 * y + c);
    img->XScale = 2.0;
    auto resize = [&](int w, int h) {
        return Ref<Image>(img->ResizeOfImage({{RSZ_Width, w}, {RSZ_Height, h}, {RSZ_Filter, 7}}));
    };
    Ref<Image> same = resize(4, 2), half = resize(2, 1);
    for (int c = 0; c < 5; ++c) EXPECT_EQ(same->Pixel(3, 1)[c], img->Pixel(3, 1)[c]);
    EXPECT_FLOAT_EQ(half->Pixel(0, 0)[0], (0 + 1 + 4 + 5) / 4.0f);
    EXPECT_FLOAT_EQ(half->Pixel(1, 0)[4], (2 + 3 + 6 + 7) / 4.0f + 4);
    EXPECT_TRUE(half->Depth == IMDP_Float16 && half->XScale == 2.0);
    EXPECT_FLOAT_EQ(resize(3, 2)->Pixel(1, 0)[0], 1.5f);  // covers two thirds of pixels 1 and 2
    EXPECT_FLOAT_EQ(resize(8, 2)->Pixel(1, 0)[0], 0.25f);  // a quarter of the way from pixel 0 to pixel 1
    EXPECT_THROW(img->ResizeOfImage({{RSZ_Width, 3}, {RSZ_Filter, 2}}), std::invalid_argument);
}

// Large pixel buffers go back to a pool and come out again for the next image of
// their size (the same memory, so a sequence does not fault fresh pages in), but
// a new image still starts at 0, and an image of another size takes no stale one.
TEST(Image, ANewImageStartsAtZeroWhenItReusesAReleasedImagesMemory)
{
    constexpr int w = 512, h = 300;  // 2.4 MB: pooled
    const float* first = nullptr;
    {
        Ref<Image> img(NewImage({{IMG_Width, w}, {IMG_Height, h}, {TAG_DONE}}));
        first = img->Pixel(0, 0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) std::fill_n(img->Pixel(x, y), 4, 7.0f);
    }
    Ref<Image> again(NewImage({{IMG_Width, w}, {IMG_Height, h}, {TAG_DONE}}));
    EXPECT_EQ(again->Pixel(0, 0), first);
    Ref<Image> other(new Image(w, h + 1, IMDP_Float32, {"Z"}));
    for (const Image* img : {again.get(), other.get()})
        for (int y = 0; y < img->Height; ++y)
            for (int x = 0; x < img->Width; ++x)
                for (int c = 0; c < img->PixelStride(); ++c)
                    ASSERT_EQ(img->Pixel(x, y)[c], 0.0f) << x << "," << y << " channel " << c;
}

struct Variable {
    const char* name;
    Variable(const char* n, const char* value) : name(n) { setenv(name, value, 1); }
    ~Variable() { unsetenv(name); }
};

TEST(EngineSettings, ValuesParseAsAFarmWouldWriteThemAndTheProgramsValueWinsOverTheEnvironment)
{
    EXPECT_EQ((std::vector<std::uint64_t>{ParseMemorySize("512M"), ParseMemorySize("1.5G"), ParseMemorySize("4096")}),
              (std::vector<std::uint64_t>{512ull << 20, 3ull << 29, 4096}));
    EXPECT_TRUE(ParseThreads("3") == 3u && ParseFftPlanning("measure") == FftEffort::Measure &&
                ParseTransformSizes("smooth") == TransformSizes::Smooth);
    for (const char* bad : {"", "lots", "-1G", "2X", "0", "20KB"})
        EXPECT_THROW(ParseMemorySize(bad), std::invalid_argument) << bad;
    for (const char* bad : {"257", "-2", "2.5", "x", ""}) EXPECT_THROW(ParseThreads(bad), std::invalid_argument) << bad;
    EXPECT_EQ(Refusal([] { ParseThreads("0"); }), "\"0\" is not a whole number of threads from 1 to 256");

    // What the program sets wins over the environment, which is checked.
    ResetEngineSettings();
    {
        Variable memory("LUMIVANE_MAX_MEMORY", "2G"), sizes("LUMIVANE_TRANSFORM_SIZES", "smooth");
        EXPECT_TRUE(MemoryLimit() == 2ull << 30 && MemoryLimitSource() == "LUMIVANE_MAX_MEMORY");
        EXPECT_EQ(EngineTransformSizes(), TransformSizes::Smooth);
        SetMemoryLimit(1 << 20);
        EXPECT_TRUE(MemoryLimit() == 1u << 20 && MemoryLimitSource() == "the memory limit");
        ResetEngineSettings();
    }
    EXPECT_EQ(EngineTransformSizes(), TransformSizes::PowersOfTwo);
    // By default a frame may take what the machine has available, but never
    // more than three quarters of its memory, and the message says which.
    std::ifstream info("/proc/meminfo");
    std::uint64_t total = 0, available = 0, kib = 0;
    for (std::string key, unit; info >> key >> kib >> unit;)
        (key == "MemTotal:" ? total : key == "MemAvailable:" ? available : kib) = kib << 10;
    EXPECT_LE(MemoryLimit(), total / 4 * 3);
    EXPECT_GE(MemoryLimit(), std::min(available, total / 4 * 3) / 10 * 9);
    EXPECT_EQ(MemoryLimitSource(), available > total / 4 * 3 ? "75% of the machine's memory" : "the memory available");
    for (const auto& [name, value] : {std::pair{"LUMIVANE_MAX_MEMORY", "20KB"}, {"LUMIVANE_THREADS", "0"},
                                      {"LUMIVANE_FFT_PLANNING", "Measure"}, {"LUMIVANE_TRANSFORM_SIZES", "Smooth"}}) {
        Variable v(name, value);
        EXPECT_EQ(Refusal(CheckEngineEnvironment).rfind(std::string(name) + ": \"" + value + "\" is not ", 0), 0u) << name;
        if (name == std::string("LUMIVANE_MAX_MEMORY")) { EXPECT_NE(Refusal([] { MemoryLimit(); }), "accepted"); }
    }
}

}  // namespace
