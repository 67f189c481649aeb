#include "app/FramePattern.h"

#include <gtest/gtest.h>

namespace {

struct PatternCase {
    const char* pattern;
    int frame;
    const char* expected;
    bool hasField;
};

void PrintTo(const PatternCase& c, std::ostream* os) { *os << c.pattern << " @" << c.frame; }

class FramePatternNames : public ::testing::TestWithParam<PatternCase> {};

TEST_P(FramePatternNames, ExpandsTheFrameField)
{
    const PatternCase& c = GetParam();
    const FramePattern p(c.pattern);
    EXPECT_EQ(p.At(c.frame), c.expected);
    EXPECT_EQ(p.HasFrameField(), c.hasField);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, FramePatternNames,
    ::testing::Values(PatternCase{"plate.####.exr", 7, "plate.0007.exr", true},
                      PatternCase{"plate.%04d.exr", 12, "plate.0012.exr", true},
                      PatternCase{"plate.%d.exr", 12, "plate.12.exr", true},
                      PatternCase{"plate.#.exr", 1234, "plate.1234.exr", true},  // wider than its padding
                      PatternCase{"shots/a#/x.exr", 3, "shots/a3/x.exr", true},  // the field may be in a folder
                      PatternCase{"still.exr", 5, "still.exr", false},
                      PatternCase{"50%%.####.exr", 3, "50%.0003.exr", true},
                      PatternCase{"100%.exr", 3, "100%.exr", false},
                      PatternCase{"a%x.%02d.exr", 4, "a%x.04.exr", true}));

TEST(FramePattern, RefusesTwoFrameFields)
{
    for (const char* text : {"a.##.b.##.exr", "a.%04d.#.exr", "a.%d%d.exr"}) {
        try {
            FramePattern p(text);
            ADD_FAILURE() << text << " was accepted";
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find("more than one frame field"), std::string::npos) << e.what();
            EXPECT_NE(std::string(e.what()).find(text), std::string::npos) << e.what();
        }
    }
}

TEST(FrameRange, ParsesRangesAndSingleFrames)
{
    const FrameRange r = FrameRange::Parse("1001-1100");
    EXPECT_EQ(r.first, 1001);
    EXPECT_EQ(r.last, 1100);
    EXPECT_EQ(r.Count(), 100);
    const FrameRange one = FrameRange::Parse("7");
    EXPECT_EQ(one.first, 7);
    EXPECT_EQ(one.Count(), 1);
    EXPECT_EQ(one.ToString(), "7");
    EXPECT_EQ(FrameRange::Parse("0-3").ToString(), "0-3");
}

TEST(FrameRange, RefusesWhatIsNotARange)
{
    for (const char* text : {"", "3-1", "a-b", "-1", "1-", "1--3", "1-3x2", " 1-3", "99999999999"}) {
        try {
            FrameRange::Parse(text);
            ADD_FAILURE() << "\"" << text << "\" was accepted";
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find("expected FIRST-LAST"), std::string::npos) << e.what();
        }
    }
}

}  // namespace
