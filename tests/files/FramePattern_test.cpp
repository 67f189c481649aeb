// Frame fields in file names and frame lists.
#include "app/files/FramePattern.h"
#include "support/Refusal.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

TEST(FramePattern, ExpandsOneFrameField)
{
    const struct { const char* pattern; int frame; const char* expected; } cases[] = {
        {"plate.####.exr", 7, "plate.0007.exr"},   {"plate.%04d.exr", 12, "plate.0012.exr"},
        {"plate.%d.exr", 12, "plate.12.exr"},      {"plate.#.exr", 1234, "plate.1234.exr"},  // wider than its padding
        {"shots/a#/x.exr", 3, "shots/a3/x.exr"},   // the field may be in a folder
        {"still.exr", 5, "still.exr"},             {"50%%.####.exr", 3, "50%.0003.exr"},
        {"100%.exr", 3, "100%.exr"},               {"a%x.%02d.exr", 4, "a%x.04.exr"},
        {"plate.####.exr", -5, "plate.-005.exr"}};  // the sign counts to the padding, as in printf
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

TEST(FramePattern, ReadsTheFrameBackFromItsOwnNamesOnly)
{
    const FramePattern hashes("a/p.####.exr"), plain("p.%d.exr");
    const struct { const FramePattern& pattern; const char* name; std::optional<int> frame; } cases[] = {
        {hashes, "a/p.0007.exr", 7},          {hashes, "a/p.12345.exr", 12345},  {hashes, "a/p.-005.exr", -5},
        {hashes, "a/p.7.exr", std::nullopt},  {hashes, "a/p.00007.exr", std::nullopt},
        {hashes, "a/p.0007.tif", std::nullopt}, {hashes, "p.0007.exr", std::nullopt}, {hashes, "a/p..exr", std::nullopt},
        {plain, "p.7.exr", 7},                {plain, "p.-7.exr", -7},          {plain, "p.07.exr", std::nullopt},
        {plain, "p.x.exr", std::nullopt}};
    for (const auto& c : cases) EXPECT_EQ(c.pattern.FrameOf(c.name), c.frame) << c.name;
}

TEST(FrameList, ParsesRangesStepsListsAndNegativeFramesAndRefusesTheRest)
{
    const struct { const char* text; std::vector<int> frames; } cases[] = {
        {"7", {7}},           {"5-5", {5}},       {"1-10x3", {1, 4, 7, 10}}, {"1-10x4", {1, 5, 9}},
        {"1,3,7-9", {1, 3, 7, 8, 9}}, {"-5--3", {-5, -4, -3}}, {"-2-1", {-2, -1, 0, 1}}, {"-1", {-1}}, {"9,2", {9, 2}}};
    for (const auto& c : cases) EXPECT_EQ(FrameList::Parse(c.text).Frames(), c.frames) << c.text;
    EXPECT_EQ(FrameList::Parse("1001-1100").Count(), 100);
    for (const char* text : {"", "3-1", "a-b", "1-", "1--3", "1-3x0", "3x2", "1-3x", "1,,2", "1,", " 1-3",
                             "99999999999", "0-999999999"})
        EXPECT_NE(Refusal([&] { FrameList::Parse(text); }).find("expected FIRST-LAST"), std::string::npos) << text;
}

}  // namespace
