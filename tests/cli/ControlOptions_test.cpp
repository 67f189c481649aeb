// The control options in the order given on the command line.
#include "app/cli/ControlOptions.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(SettingsInCommandLineOrder, InterleavesFriendlyOptionsAndSet)
{
    CLI::App app;
    AddSettingOptions(app);
    std::vector<std::string> args = {"--set",    "PerChannel=0", "--size",  "3",    "--set",        "GreenBlurSizeX=4",
                                     "--size-y", "2",            "--style", "airy", "--deconvolve", "--key",
                                     "BlurSizeX=7:2",            "--set=Edges=1"};
    std::reverse(args.begin(), args.end());  // CLI11 takes them last first
    app.parse(args);
    const std::vector<Setting> s = SettingsInCommandLineOrder(app);
    std::vector<std::string> got;
    for (const Setting& x : s) got.push_back(x.id + "=" + x.value);
    EXPECT_EQ(got, (std::vector<std::string>{"PerChannel=0", "BlurSizeX=3", "GreenBlurSizeX=4", "LockXY=0",
                                             "BlurSizeY=2", "BlurStyle=airy", "Operation=Deconvolve", "BlurSizeX=2",
                                             "Edges=1"}));
    EXPECT_EQ(s[3].origin, "--size-y 2");
    EXPECT_TRUE(s[7].apply == Setting::Apply::Key && s[7].frame == 7 && s[8].apply == Setting::Apply::Constant);
}

}  // namespace
