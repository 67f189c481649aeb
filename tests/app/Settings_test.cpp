// The command line's own parsing: frame fields in file names and frame lists;
// control settings by number or name, refusals that say what is accepted, and
// the order they are applied in.
#include "app/ExitCodes.h"
#include "app/FramePattern.h"
#include "app/Settings.h"
#include "host/PluginLoader.h"
#include "support/DocHarness.h"
#include "support/Refusal.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

#include <algorithm>
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

// A tool as the program makes it: from the loaded plug-in, through the registry.
struct LoadedTool : DocHarness {
    LoadedTool() : DocHarness((Plugin(), kToolClass)) {}
    static void Plugin() { static const auto plugin = PluginModule::Load(LUMIVANE_PLUGIN_FILE); }
    const InputDeclaration& Decl(const char* id) const { return In(id)->Decl(); }
};

// The usage error `fn` throws, or "" when it throws none.
template <class F>
std::string UsageMessage(F fn)
{
    try {
        fn();
    } catch (const ProgramError& e) {
        EXPECT_EQ(e.Kind(), Exit::Usage);
        return e.what();
    }
    return "";
}

TEST(ParseSetArgument, SplitsAtTheFirstEquals)
{
    const Setting s = ParseSetArgument("KernelAngle=1=2");
    EXPECT_TRUE(s.id == "KernelAngle" && s.value == "1=2" && s.origin == "--set KernelAngle=1=2");
    for (const char* bad : {"BlurSizeX", "=3", ""})
        EXPECT_NE(UsageMessage([&] { ParseSetArgument(bad); }).find("expected ControlID=VALUE"), std::string::npos)
            << bad;
}

TEST(ResolveNumber, TakesNumbersNamesAndSwitchesAndSaysWhatIsAccepted)
{
    const LoadedTool t;
    const struct { const char* id; const char* text; double value; } accepted[] = {
        {"BlurStyle", "Polygon", 1}, {"BlurStyle", "airy disk", 3}, {"BlurStyle", "AiryDisk", 3},
        {"BlurStyle", "airy", 3},    {"BlurStyle", "4", 4},         {"Edges", "WRAP", 1},
        {"Operation", "d", 1},       {"PerChannel", "off", 0},      {"LockXY", "yes", 1},
        {"BlurSizeX", "2.5", 2.5},   {"BlurSizeX", "1e2", 100},     {"PolygonSideCount", "7", 7}};
    for (const auto& c : accepted) EXPECT_EQ(ResolveNumber(t.Decl(c.id), c.text, "test"), c.value) << c.text;
    EXPECT_EQ(ResolveNumber(t.Decl("BadBokeh"), "3.4e38", "test"), 3.4e38);
    const struct { const char* id; const char* text; const char* message; } refused[] = {
        {"BlurStyle", "hexagon", "0 \"Disk\", 1 \"Polygon\", 2 \"Gaussian\""},
        {"Edges", "3", "3 is not one of 0 \"Duplicate\""}, {"Edges", "1.5", "is not one of"},
        {"Operation", "", "is not one of"}, {"LockXY", "2", "is not 0 (off) or 1 (on)"}, {"LockXY", "maybe", "off/on"},
        {"PolygonSideCount", "4.5", "not a whole number"}, {"BlurSizeX", "-1", "less than the lowest value 0"},
        {"BlurSizeX", "nan", "not a number"}, {"BlurSizeX", "inf", "not a number"}, {"BlurSizeX", " 2", "not a number"},
        {"BlurSizeX", "2px", "not a number"}, {"BlurSizeX", "0x10", "\"0x10\" is not a decimal number"},
        {"BlurSizeX", "1e400", "\"1e400\" is too large"}, {"PolygonSideCount", "1e9", "more than the highest value"},
        // Past the float range a value could only become an infinite kernel or size.
        {"BadBokeh", "1e300", "BadBokeh: 1e+300 is past the largest value a control holds, 3.40282e+38"},
        {"KernelAngle", "-4e38", "KernelAngle: -4e+38 is past the largest value"}};
    for (const auto& c : refused) {
        const std::string message = UsageMessage([&] { ResolveNumber(t.Decl(c.id), c.text, "--opt"); });
        EXPECT_NE(message.find(c.message), std::string::npos) << message;
        EXPECT_EQ(message.rfind("--opt: ", 0), 0u) << message;
    }
}

// Releasing the R/G/B lock copies red's sizes to green and blue, so the order of
// a size and the release decides what green ends up with.
TEST(ApplySettings, NotifiesInTheOrderGivenReplacesKeysAndRefusesWhatIsNotSettable)
{
    const LoadedTool before, after;
    ApplySettings(*before.op, {{"BlurSizeX", "3", "a"}, {"PerChannel", "0", "b"}}, 0.0);
    EXPECT_TRUE(before.Get("GreenBlurSizeX") == 3.0 && before.In("GreenBlurSizeX")->IsVisible());
    ApplySettings(*after.op, {{"PerChannel", "0", "b"}, {"BlurSizeX", "3", "a"}}, 0.0);
    EXPECT_TRUE(after.Get("GreenBlurSizeX") == 0.0 && after.Get("BlurSizeX") == 3.0);
    after.In("KernelAngle")->SetKeys({{0.0, 10.0}, {10.0, 20.0}});
    ApplySettings(*after.op, {{"KernelAngle", "45", "x"}}, 5.0);
    EXPECT_TRUE(!after.In("KernelAngle")->IsAnimated() && after.Get("KernelAngle") == 45.0);

    const std::string unknown = UsageMessage([&] { ApplySettings(*after.op, {{"blursizx", "1", "--set blursizx=1"}}, 0); });
    EXPECT_NE(unknown.find("no control \"blursizx\" (did you mean \"BlurSizeX\"?)"), std::string::npos) << unknown;
    EXPECT_NE(unknown.find("Operation, WienerParam, BlurSizeUnit"), std::string::npos) << unknown;
    for (const auto& c : {std::pair{"kernel", "image input"}, {"CompanyName", "read-only"}})  // no captured bindings in clang 14
        EXPECT_NE(UsageMessage([&] { ApplySettings(*after.op, {{c.first, "x", "o"}}, 0); }).find(c.second), std::string::npos)
            << c.first;
}

TEST(SettingsInCommandLineOrder, InterleavesFriendlyOptionsAndSet)
{
    CLI::App app;
    AddSettingOptions(app);
    std::vector<std::string> args = {"--set", "PerChannel=0", "--size", "3",     "--set",        "GreenBlurSizeX=4",
                                     "--size-y", "2",         "--style", "airy", "--deconvolve", "--set=Edges=1"};
    std::reverse(args.begin(), args.end());  // CLI11 takes them last first
    app.parse(args);
    const std::vector<Setting> s = SettingsInCommandLineOrder(app);
    std::vector<std::string> got;
    for (const Setting& x : s) got.push_back(x.id + "=" + x.value);
    EXPECT_EQ(got, (std::vector<std::string>{"PerChannel=0", "BlurSizeX=3", "GreenBlurSizeX=4", "LockXY=0",
                                             "BlurSizeY=2", "BlurStyle=airy", "Operation=Deconvolve", "Edges=1"}));
    EXPECT_EQ(s[3].origin, "--size-y 2");
}

}  // namespace
