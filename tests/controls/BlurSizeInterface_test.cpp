// Blur size labels, visibility, lock copies and the conversion to pixels.
#include "controls/BlurSizeInterface.h"
#include "host/Image.h"
#include "host/Operator.h"
#include "host/Tags.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace {

using V = std::vector<double>;

// An operator with the per-channel blur size controls, told of their changes as
// a tool is; `reported` says whether the host has told it the initial values.
class SizeTool : public Operator, public blur_size_interface {
public:
    explicit SizeTool(bool reported = true) : Operator(nullptr, ScriptVal{}, TagList{})
    {
        CreateBlurSizeControls(this, 10.0, true);
        if (reported) ReportInitialValues();
    }
    void NotifyChanged(Input* in, Parameter* value, TimeStamp time, const TagList*) override
    {
        UpdateBlurSizeControls(in, value, time);
    }
    void Set(std::initializer_list<std::pair<const char*, double>> values, TimeStamp t = 0.0) const
    {
        for (const auto& [id, v] : values) FindInput(id)->SetSource(Ref<Number>(new Number(v)).get(), t);
    }
    V Get(std::initializer_list<const char*> ids) const
    {
        V values;
        for (const char* id : ids) values.push_back(static_cast<Number&>(*Ref<Parameter>(FindInput(id)->GetSource(0.0))));
        return values;
    }
};

TEST(BlurSizeControls, LabelsAndVisibilityFollowTheLocks)
{
    // Labels of red, green and blue X then Y, hidden ones in brackets.
    const std::tuple<bool, bool, std::string> states[] = {
        {true, true, "Blur Size, [Green Blur Size], [Blue Blur Size], [Blur Size Y], [Green Blur Size Y], "
                     "[Blue Blur Size Y]"},
        {false, true, "Blur Size X, [Green Blur Size X], [Blue Blur Size X], Blur Size Y, [Green Blur Size Y], "
                      "[Blue Blur Size Y]"},
        {true, false, "Red Blur Size, Green Blur Size, Blue Blur Size, [Red Blur Size Y], [Green Blur Size Y], "
                      "[Blue Blur Size Y]"},
        {false, false, "Red Blur Size X, Green Blur Size X, Blue Blur Size X, Red Blur Size Y, Green Blur Size Y, "
                       "Blue Blur Size Y"},
    };
    SizeTool h;
    for (const auto& [xy, rgb, want] : states) {
        h.Set({{"LockXY", xy}, {"PerChannel", rgb}});
        std::string got;
        for (const char* id : {"BlurSizeX", "GreenBlurSizeX", "BlueBlurSizeX", "BlurSizeY", "GreenBlurSizeY",
                               "BlueBlurSizeY"}) {
            const Input* in = h.FindInput(id);
            got += (got.empty() ? "" : ", ") + (in->IsVisible() ? in->GetLabel() : "[" + in->GetLabel() + "]");
        }
        EXPECT_EQ(got, want) << "xy " << xy << ", rgb " << rgb;
    }
}

TEST(BlurSizeControls, InitialReportLocksTheChannelsOnce)
{
    SizeTool h;
    EXPECT_TRUE(h.channelsLocked);
    EXPECT_FALSE(h.xyLocked);  // the X/Y flag waits for a change of its control
    // A repeated report with the same value copies nothing but re-applies the labels.
    h.Set({{"BlurSizeX", 4}});
    h.FindInput("BlurSizeX")->SetAttrs({{LINKS_Name, "stale"}});
    h.Set({{"PerChannel", 1}});
    EXPECT_EQ(h.Get({"GreenBlurSizeX"}), V{0});
    EXPECT_EQ(h.FindInput("BlurSizeX")->GetLabel(), "Blur Size X");
    // Releasing a lock over a keyed size copies its keys, not the value at that
    // time, so the copy follows it over the shot; for either lock.
    const std::map<double, double> keys{{0.0, 2.0}, {10.0, 4.0}};
    h.FindInput("BlurSizeX")->SetKeys(keys);
    h.Set({{"LockXY", 1}});
    h.Set({{"LockXY", 0}}, 5.0);
    h.Set({{"PerChannel", 0}}, 5.0);
    for (const char* id : {"BlurSizeY", "GreenBlurSizeX", "GreenBlurSizeY", "BlueBlurSizeY"})
        EXPECT_EQ(h.FindInput(id)->Keys(), keys) << id;
}

TEST(BlurSizeControls, ReleasingALockCopiesTheSizesItHid)
{
    SizeTool h;
    h.Set({{"LockXY", 1}, {"BlurSizeX", 3}, {"BlurSizeY", 9}, {"GreenBlurSizeX", 5}});
    h.Set({{"LockXY", 0}});  // green stays locked to red: only red's Y is copied
    EXPECT_EQ(h.Get({"BlurSizeY", "GreenBlurSizeY"}), (V{3, 0}));

    h.Set({{"BlurSizeY", 7}, {"LockXY", 1}});  // locking copies nothing
    EXPECT_EQ(h.Get({"BlurSizeY"}), V{7});

    h.Set({{"PerChannel", 0}});  // released while X/Y is locked: still copies X and Y
    EXPECT_EQ(h.Get({"GreenBlurSizeX", "BlueBlurSizeX", "GreenBlurSizeY", "BlueBlurSizeY"}), (V{3, 3, 7, 7}));

    h.Set({{"GreenBlurSizeX", 6}, {"BlueBlurSizeX", 8}, {"LockXY", 0}});  // channels free: each Y starts from its X
    EXPECT_EQ(h.Get({"BlurSizeY", "GreenBlurSizeY", "BlueBlurSizeY"}), (V{3, 6, 8}));

    h.Set({{"GreenBlurSizeX", 2}, {"PerChannel", 1}});  // locking again copies nothing
    EXPECT_EQ(h.Get({"GreenBlurSizeX"}), V{2});
}

TEST(BlurSizeControls, ReadBlurSizesConvertsToPixels)
{
    struct SizeCase { const char* name; int width, height; double xScale, unit, aspect, lockXY, x, y, wantX, wantY; };
    const SizeCase cases[] = {
        {"relative 2.5 of 1920", 1920, 1080, 1, 0, 0, 1, 2.5, 0, 48.0, 48.0},
        {"absolute 0.3 rises to a pixel", 64, 64, 1, 1, 0, 1, 0.3, 0, 1.0, 1.0},
        {"absolute 10, aspect 2:1", 64, 64, 2, 1, 1, 1, 10, 0, 5.0, 10.0},
        {"relative scales Y by the width", 200, 100, 1, 0, 0, 1, 10, 0, 20.0, 20.0},
        {"relative below a pixel", 50, 50, 1, 0, 0, 1, 0.01, 0, 1.0, 1.0},
        {"unlocked axes", 100, 100, 1, 1, 0, 0, 6, 3, 6.0, 3.0},
        {"negative typed past the limit", 100, 100, 1, 1, 0, 0, -4, 0, 1.0, 1.0},
    };
    for (const SizeCase& c : cases) {
        SCOPED_TRACE(c.name);
        SizeTool h;
        h.Set({{"BlurSizeUnit", c.unit}, {"ScaleBlurAspect", c.aspect}, {"LockXY", c.lockXY}, {"BlurSizeX", c.x},
               {"BlurSizeY", c.y}});
        Ref<Image> img(new Image(c.width, c.height));
        img->XScale = c.xScale;
        Request req(0.0);
        h.ReadBlurSizes(&req, img.get());
        for (int ch = 0; ch < 3; ++ch) EXPECT_TRUE(h.blurSizeX[ch] == c.wantX && h.blurSizeY[ch] == c.wantY) << ch;
    }
    // Made without the host's initial report, the R/G/B flag is still off and
    // each channel reads its own sizes.
    SizeTool unreported(false);
    unreported.Set({{"BlurSizeUnit", 1}, {"BlurSizeX", 5}});
    Request req(0.0);
    unreported.ReadBlurSizes(&req, Ref<Image>(new Image(8, 8)).get());
    EXPECT_EQ(V(unreported.blurSizeX, unreported.blurSizeX + 3), (V{5, 1, 1}));
}

}  // namespace
