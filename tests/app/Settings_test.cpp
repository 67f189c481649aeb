#include "app/ExitCodes.h"
#include "app/Settings.h"
#include "host/PluginLoader.h"
#include "support/DocHarness.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

#include <memory>

namespace {

// A tool as the program makes it: from the loaded plug-in, through the registry.
std::unique_ptr<DocHarness> NewHarness()
{
    static const auto plugin = PluginModule::Load(LUMIVANE_PLUGIN_FILE);
    return std::make_unique<DocHarness>();
}

double ValueOf(Operator& tool, const char* id)
{
    Ref<Parameter> v(tool.FindInput(id)->GetSource(0.0));
    return static_cast<Number&>(*v).Value();
}

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
    EXPECT_EQ(s.id, "KernelAngle");
    EXPECT_EQ(s.value, "1=2");
    EXPECT_EQ(s.origin, "--set KernelAngle=1=2");
    for (const char* bad : {"BlurSizeX", "=3", ""})
        EXPECT_NE(UsageMessage([&] { ParseSetArgument(bad); }).find("expected ControlID=VALUE"), std::string::npos)
            << bad;
}

struct ValueCase {
    const char* id;
    const char* text;
    double expected;
};

void PrintTo(const ValueCase& c, std::ostream* os) { *os << c.id << "=" << c.text; }

class ResolveAccepted : public ::testing::TestWithParam<ValueCase> {};

TEST_P(ResolveAccepted, GivesTheNumber)
{
    const auto toolDoc = NewHarness();
    Operator* tool = toolDoc->op;
    const ValueCase& c = GetParam();
    EXPECT_EQ(ResolveNumber(tool->FindInput(c.id)->Decl(), c.text, "test"), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Values, ResolveAccepted,
                         ::testing::Values(ValueCase{"BlurStyle", "Polygon", 1}, ValueCase{"BlurStyle", "airy disk", 3},
                                           ValueCase{"BlurStyle", "AiryDisk", 3}, ValueCase{"BlurStyle", "airy", 3},
                                           ValueCase{"BlurStyle", "4", 4}, ValueCase{"Edges", "WRAP", 1},
                                           ValueCase{"Operation", "d", 1}, ValueCase{"PerChannel", "off", 0},
                                           ValueCase{"LockXY", "yes", 1}, ValueCase{"BlurSizeX", "2.5", 2.5},
                                           ValueCase{"BlurSizeX", "1e2", 100}, ValueCase{"PolygonSideCount", "7", 7}));

struct RefusedCase {
    const char* id;
    const char* text;
    const char* expected;  // part of the message
};

void PrintTo(const RefusedCase& c, std::ostream* os) { *os << c.id << "=" << c.text; }

class ResolveRefused : public ::testing::TestWithParam<RefusedCase> {};

TEST_P(ResolveRefused, SaysWhatIsAccepted)
{
    const auto toolDoc = NewHarness();
    Operator* tool = toolDoc->op;
    const RefusedCase& c = GetParam();
    const std::string message = UsageMessage([&] { ResolveNumber(tool->FindInput(c.id)->Decl(), c.text, "--opt"); });
    EXPECT_NE(message.find(c.expected), std::string::npos) << message;
    EXPECT_EQ(message.rfind("--opt: ", 0), 0u) << message;
}

INSTANTIATE_TEST_SUITE_P(
    Values, ResolveRefused,
    ::testing::Values(RefusedCase{"BlurStyle", "hexagon", "0 \"Disk\", 1 \"Polygon\", 2 \"Gaussian\""},
                      RefusedCase{"Edges", "3", "3 is not one of 0 \"Duplicate\""},
                      RefusedCase{"Edges", "1.5", "is not one of"},
                      RefusedCase{"Operation", "", "is not one of"},
                      RefusedCase{"LockXY", "2", "is not 0 (off) or 1 (on)"},
                      RefusedCase{"LockXY", "maybe", "off/on"},
                      RefusedCase{"PolygonSideCount", "4.5", "not a whole number"},
                      RefusedCase{"BlurSizeX", "-1", "less than the lowest value 0"},
                      RefusedCase{"BlurSizeX", "nan", "not a number"},
                      RefusedCase{"BlurSizeX", "inf", "not a number"},
                      RefusedCase{"BlurSizeX", " 2", "not a number"},
                      RefusedCase{"BlurSizeX", "2px", "not a number"}));

TEST(ApplySettings, NotifiesInTheOrderGiven)
{
    // Releasing the R/G/B lock copies red's sizes to green and blue, so the
    // order of a size and the release decides what green ends up with.
    const auto beforeDoc = NewHarness();
    Operator* before = beforeDoc->op;
    ApplySettings(*before, {{"BlurSizeX", "3", "a"}, {"PerChannel", "0", "b"}}, 0.0);
    EXPECT_EQ(ValueOf(*before, "GreenBlurSizeX"), 3.0);
    EXPECT_TRUE(before->FindInput("GreenBlurSizeX")->IsVisible());

    const auto afterDoc = NewHarness();
    Operator* after = afterDoc->op;
    ApplySettings(*after, {{"PerChannel", "0", "b"}, {"BlurSizeX", "3", "a"}}, 0.0);
    EXPECT_EQ(ValueOf(*after, "GreenBlurSizeX"), 0.0);
    EXPECT_EQ(ValueOf(*after, "BlurSizeX"), 3.0);
}

TEST(ApplySettings, ReplacesKeysWithTheValue)
{
    const auto toolDoc = NewHarness();
    Operator* tool = toolDoc->op;
    tool->FindInput("KernelAngle")->SetKeys({{0.0, 10.0}, {10.0, 20.0}});
    ApplySettings(*tool, {{"KernelAngle", "45", "x"}}, 5.0);
    EXPECT_FALSE(tool->FindInput("KernelAngle")->IsAnimated());
    EXPECT_EQ(ValueOf(*tool, "KernelAngle"), 45.0);
}

TEST(ApplySettings, RefusesWhatIsNotASettableControl)
{
    const auto toolDoc = NewHarness();
    Operator* tool = toolDoc->op;
    const std::string unknown = UsageMessage([&] { ApplySettings(*tool, {{"blursizex", "1", "--set blursizex=1"}}, 0); });
    EXPECT_NE(unknown.find("no control \"blursizex\" (did you mean \"BlurSizeX\"?)"), std::string::npos) << unknown;
    EXPECT_NE(unknown.find("Operation, WienerParam, BlurSizeUnit"), std::string::npos) << unknown;
    EXPECT_NE(UsageMessage([&] { ApplySettings(*tool, {{"kernel", "k.exr", "o"}}, 0); }).find("image input"),
              std::string::npos);
    EXPECT_NE(UsageMessage([&] { ApplySettings(*tool, {{"CompanyName", "x", "o"}}, 0); }).find("read-only"),
              std::string::npos);
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
