// Frame fields in file names and frame ranges.
#include "app/FramePattern.h"
#include "support/Refusal.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

TEST(FramePattern, ExpandsOneFrameField)
{
    const struct { const char* pattern; int frame; const char* expected; } cases[] = {
        {"plate.####.exr", 7, "plate.0007.exr"},   {"plate.%04d.exr", 12, "plate.0012.exr"},
        {"plate.%d.exr", 12, "plate.12.exr"},      {"plate.#.exr", 1234, "plate.1234.exr"},  // wider than its padding
        {"shots/a#/x.exr", 3, "shots/a3/x.exr"},   // the field may be in a folder
        {"still.exr", 5, "still.exr"},             {"50%%.####.exr", 3, "50%.0003.exr"},
        {"100%.exr", 3, "100%.exr"},               {"a%x.%02d.exr", 4, "a%x.04.exr"}};
    for (const auto& c : cases) {
        const FramePattern p(c.pattern);
        EXPECT_EQ(p.At(c.frame), c.expected);
        EXPECT_EQ(p.HasFrameField(), c.expected != std::string(c.pattern)) << c.pattern;
    }
    for (const char* text : {"a.##.b.##.exr", "a.%04d.#.exr", "a.%d%d.exr"}) {
        const std::string why = Refusal([&] { FramePattern p(text); });
        EXPECT_NE(why.find("more than one frame field"), std::string::npos) << why;
        EXPECT_NE(why.find(text), std::string::npos) << why;
    }
}

TEST(FrameRange, ParsesRangesAndSingleFramesAndRefusesTheRest)
{
    const FrameRange r = FrameRange::Parse("1001-1100");
    EXPECT_TRUE(r.first == 1001 && r.last == 1100 && r.Count() == 100);
    const FrameRange one = FrameRange::Parse("7");
    EXPECT_TRUE(one.first == 7 && one.Count() == 1 && one.ToString() == "7");
    EXPECT_EQ(FrameRange::Parse("5-5").Count(), 1);
    EXPECT_EQ(FrameRange::Parse("0-3").ToString(), "0-3");
    for (const char* text : {"", "3-1", "a-b", "-1", "1-", "1--3", "1-3x2", " 1-3", "99999999999"})
        EXPECT_NE(Refusal([&] { FrameRange::Parse(text); }).find("expected FIRST-LAST"), std::string::npos) << text;
}

}  // namespace
