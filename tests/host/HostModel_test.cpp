// The host model's own behaviour that tools rely on: typed tag lists, inputs
// with keyframes and notifications, images, and the worker pool.
#include "host/FusionDoc.h"
#include "host/Image.h"
#include "host/Tags.h"
#include "host/ThreadedOperator.h"
#include "host/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <chrono>
#include <set>
#include <thread>

namespace {

TEST(TagList, ValuesFollowTheKindOfTheirTag)
{
    TagList t{{0x10000001, 7}, {0x20000001, 3}, {0x38040000, "a"}, {0x38040000, "b"}, {0x7abc0000, 5},
              {TAG_DONE}, {0x10000009, 1}};
    EXPECT_EQ(t.Items().size(), 5u);  // everything up to TAG_DONE, the unknown tag kept
    EXPECT_EQ(t.GetLong(0x10000001, 0), 7);
    EXPECT_EQ(t.GetDouble(0x20000001, 0), 3.0);  // a whole number given for a double tag
    EXPECT_EQ(t.GetStrings(0x38040000), (std::vector<std::string>{"a", "b"}));
    EXPECT_FALSE(t.Has(0x10000009));
    try {
        TagItem bad(0x10000001, 2.5);
        FAIL();
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "tag 0x10000001 carries an integer, not a double");
    }
    EXPECT_THROW(TagItem(0x30000001, 1), std::invalid_argument);
}

struct Recorder : ThreadedOperator {
    using ThreadedOperator::ThreadedOperator;
    std::vector<std::pair<std::string, double>> notes;
    std::atomic<int> running{0}, peak{0};
    std::set<int> chunks;
    std::mutex m;

    void NotifyChanged(Input* in, Parameter* p, TimeStamp t, const TagList*) override
    {
        notes.emplace_back(in->ID().str() + "@" + std::to_string(int(t)), *static_cast<Number*>(p));
    }
    void ProcessChunk(Request*, std::int32_t chunk) override
    {
        const int now = ++running;
        peak = std::max(peak.load(), now);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        {
            std::lock_guard<std::mutex> lock(m);
            chunks.insert(chunk);
        }
        --running;
        if (chunk == 3) throw std::runtime_error("chunk 3");
    }
};

Input* AddNumber(Operator& op, const char* id, TagList extra = {})
{
    TagList tags{{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, SliderControlID}};
    for (const TagItem& i : extra.Items()) tags.Add(i);
    return op.AddInput(id, id, tags);
}

TEST(Input, NotifiesOnlyWhenAskedAndInTheOrderGiven)
{
    Recorder op(nullptr, ScriptVal{}, TagList{});
    Input* quiet = AddNumber(op, "Quiet");
    Input* loud = AddNumber(op, "Loud", {{INP_DoNotifyChanged, 1}, {INP_Default, 4.0}});
    AddNumber(op, "First", {{INP_InitialNotify, 1}, {INP_Default, 1.0}});
    op.ReportInitialValues();
    Ref<Number> two(new Number(2)), three(new Number(3));
    quiet->SetSource(two.get(), 0);
    loud->SetSource(two.get(), 1);
    loud->SetSource(three.get(), 2);
    EXPECT_EQ(op.notes, (std::vector<std::pair<std::string, double>>{{"First@0", 1}, {"Loud@1", 2}, {"Loud@2", 3}}));
    EXPECT_FALSE(loud->SetSource(Ref<Text>(new Text("x")).get(), 0));  // wrong data type
}

TEST(Input, KeyframesAreLinearBetweenAndConstantBeyond)
{
    Recorder op(nullptr, ScriptVal{}, TagList{});
    Input* in = AddNumber(op, "Size");
    in->SetKeys({{10, 2.0}, {20, 6.0}});
    auto at = [&](double t) {
        Ref<Parameter> p(in->GetSource(t));
        return static_cast<Number&>(*p).Value();
    };
    EXPECT_EQ(at(0), 2.0);
    EXPECT_EQ(at(15), 4.0);
    EXPECT_EQ(at(30), 6.0);
    in->SetSource(Ref<Number>(new Number(10)).get(), 30);  // a value on an animated control is a key
    EXPECT_EQ(in->Keys().size(), 3u);
    EXPECT_EQ(at(25), 8.0);
    Request req(15);
    EXPECT_EQ(static_cast<Number&>(*in->GetValue(&req)).Value(), 4.0);
}

TEST(Input, CheckNumberSaysWhatIsAccepted)
{
    Recorder op(nullptr, ScriptVal{}, TagList{});
    Input* style = op.AddInput("S", "S", {{INPID_InputControl, MultiButtonControlID}, {MBTNC_AddButton, "Disk"},
                                          {MBTNC_AddButton, "Polygon"}});
    Input* sides = AddNumber(op, "N", {{INP_MinAllowed, 3.0}, {INP_Integer, 1}});
    EXPECT_EQ(style->Decl().CheckNumber(2), "2 is not one of 0 \"Disk\", 1 \"Polygon\"");
    EXPECT_EQ(style->Decl().CheckNumber(1), "");
    EXPECT_EQ(sides->Decl().CheckNumber(2), "2 is less than the lowest value 3");
    EXPECT_EQ(sides->Decl().CheckNumber(4.5), "4.5 is not a whole number");
    EXPECT_EQ(sides->Decl().CheckNumber(std::nan("")), "nan is not a finite number");
}

TEST(ThreadedOperator, RunsEveryChunkOnTheWorkersAndReportsFailures)
{
    Recorder op(nullptr, ScriptVal{}, TagList{});
    Request req(0);
    EXPECT_THROW(op.DoMultiProcess(&req, 6), std::runtime_error);
    EXPECT_EQ(op.chunks, (std::set<int>{0, 1, 2, 3, 4, 5}));
    if (WorkerPool::Shared().ThreadCount() > 1) {
        EXPECT_GT(op.peak.load(), 1);
    }
}

TEST(Image, ResizeAveragesWhenShrinkingAndCopiesAtTheSameSize)
{
    Ref<Image> img(new Image(4, 2, IMDP_Float16, {"Z"}));
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x)
            for (int c = 0; c < 5; ++c) img->Pixel(x, y)[c] = float(x + 4 * y + c);
    img->XScale = 2.0;
    Ref<Image> same(img->ResizeOfImage({{RSZ_Width, 4}, {RSZ_Height, 2}, {RSZ_Filter, 7}}));
    for (int c = 0; c < 5; ++c) EXPECT_EQ(same->Pixel(3, 1)[c], img->Pixel(3, 1)[c]);
    Ref<Image> half(img->ResizeOfImage({{RSZ_Width, 2}, {RSZ_Height, 1}, {RSZ_Filter, 7}}));
    EXPECT_FLOAT_EQ(half->Pixel(0, 0)[0], (0 + 1 + 4 + 5) / 4.0f);
    EXPECT_FLOAT_EQ(half->Pixel(1, 0)[4], (2 + 3 + 6 + 7) / 4.0f + 4);
    EXPECT_EQ(half->Depth, IMDP_Float16);
    EXPECT_EQ(half->XScale, 2.0);
    Ref<Image> thirds(img->ResizeOfImage({{RSZ_Width, 3}, {RSZ_Height, 2}, {RSZ_Filter, 7}}));
    EXPECT_FLOAT_EQ(thirds->Pixel(1, 0)[0], 1.5f);  // covers two thirds of pixels 1 and 2
    Ref<Image> up(img->ResizeOfImage({{RSZ_Width, 8}, {RSZ_Height, 2}, {RSZ_Filter, 7}}));
    EXPECT_FLOAT_EQ(up->Pixel(1, 0)[0], 0.25f);  // a quarter of the way from pixel 0 to pixel 1
    EXPECT_THROW(img->ResizeOfImage({{RSZ_Width, 3}, {RSZ_Filter, 2}}), std::invalid_argument);
}

TEST(Image, PixelAccessCarriesExtraChannels)
{
    Ref<Image> a(new Image(2, 1, IMDP_Float32, {"Z", "id"}));
    Ref<Image> b(NewImage({{IMG_Width, 2}, {IMG_Height, 1}}));
    Ref<Image> like(NewImage({{IMG_Like, static_cast<const void*>(a.get())}}));
    EXPECT_EQ(like->ExtraChannels(), a->ExtraChannels());
    EXPECT_EQ(b->PixelStride(), 4);
    for (int c = 0; c < 6; ++c) a->Pixel(1, 0)[c] = float(c + 1);
    PixPtr in(a.get()), out(like.get());
    FltPixel p;
    in.GotoXY(1, 0);
    in.GetNextPixel(p);
    EXPECT_EQ(p.R, 3.0f);
    EXPECT_EQ(p.B, 1.0f);
    p.R = 9;
    out.GotoXY(1, 0);
    out.PutNextPixel(p);
    EXPECT_EQ(like->Pixel(1, 0)[2], 9.0f);
    EXPECT_EQ(like->Pixel(1, 0)[5], 6.0f);
}

}  // namespace
