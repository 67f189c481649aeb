// Control settings by number or name, refusals that say what is accepted, and
// the order they are applied in.
#include "app/files/ExitCodes.h"
#include "app/session/Settings.h"
#include "host/PluginLoader.h"
#include "support/DocHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>

namespace {

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

TEST(ParseKeyArgument, SplitsAtTheFirstEqualsAndTheColonAfterItAndTakesFiniteFramesOnly)
{
    const Setting s = ParseKeyArgument("BlurStyle=-2.5:airy");
    EXPECT_TRUE(s.id == "BlurStyle" && s.frame == -2.5 && s.value == "airy" && s.apply == Setting::Apply::Key &&
                s.origin == "--key BlurStyle=-2.5:airy");
    const struct { const char* arg; const char* message; } refused[] = {
        {"BlurSizeX=2", "expected ControlID=FRAME:VALUE"}, {"=1:2", "expected ControlID=FRAME:VALUE"},
        {"BlurSizeX:1=2", "expected ControlID=FRAME:VALUE"}, {"BlurSizeX=:2", "the frame \"\" is not"},
        {"BlurSizeX=nan:2", "the frame \"nan\" is not a finite decimal number"}, {"BlurSizeX=inf:2", "\"inf\" is not"},
        {"BlurSizeX=1e999:2", "\"1e999\" is not"}, {"BlurSizeX=0x10:2", "\"0x10\" is not"}, {"BlurSizeX= 1:2", "\" 1\" is not"}};
    for (const auto& c : refused) {
        const std::string message = UsageMessage([&] { ParseKeyArgument(c.arg); });
        EXPECT_EQ(message.rfind(std::string("--key ") + c.arg + ": ", 0), 0u) << message;
        EXPECT_NE(message.find(c.message), std::string::npos) << message;
    }
}

// --key animates a static control with its first key and adds or replaces keys
// after it; --set replaces the animation with its value everywhere; a value at
// a frame (as the live page sets one) keys an animated control there.
TEST(ApplySettings, KeysAddToTheAnimationAndSetReplacesIt)
{
    const LoadedTool t;
    auto key = [](const char* arg) { return ParseKeyArgument(arg); };
    Input* size = t.In("BlurSizeX");
    ApplySettings(*t.op, {ParseSetArgument("BlurSizeX=4"), key("BlurSizeX=1:2"), key("BlurSizeX=3:7"), key("BlurSizeX=3:6")}, 0);
    EXPECT_EQ(size->Keys(), (std::map<double, double>{{1, 2}, {3, 6}}));
    Setting atFrame = ParseSetArgument("BlurSizeX=9");
    atFrame.apply = Setting::Apply::AtTime;
    ApplySettings(*t.op, {atFrame}, 2);
    EXPECT_EQ(size->Keys(), (std::map<double, double>{{1, 2}, {2, 9}, {3, 6}}));
    ApplySettings(*t.op, {ParseSetArgument("BlurSizeX=5")}, 2);
    EXPECT_TRUE(!size->IsAnimated() && t.Get("BlurSizeX") == 5.0);
    ApplySettings(*t.op, {atFrame}, 2);  // static: the value everywhere
    EXPECT_TRUE(!size->IsAnimated() && t.Get("BlurSizeX") == 9.0);

    // The same words as --set for a value, and a key only where keys go.
    const struct { const char* arg; const char* message; } refused[] = {
        {"BlurSizeX=1:-3", "--key BlurSizeX=1:-3: BlurSizeX: -3 is less than the lowest value 0"},
        {"BlurStyle=1:hexagon", "--key BlurStyle=1:hexagon: BlurStyle takes one of 0 \"Disk\""},
        {"CompanyName=1:x", "--key CompanyName=1:x: \"CompanyName\" is read-only"},
        {"kernel=1:x", "--key kernel=1:x: \"kernel\" is an image input"}};
    for (const auto& c : refused) {
        const std::string message = UsageMessage([&] { ApplySettings(*t.op, {key(c.arg)}, 0); });
        EXPECT_EQ(message.rfind(c.message, 0), 0u) << message;
    }
    EXPECT_TRUE(!size->IsAnimated() && t.Get("BlurSizeX") == 9.0);
}

}  // namespace
