// describe, kernel, and where plug-ins come from.
#include "ProgramRunner.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;

TEST(DescribeCommand, ListsTheToolAsTheHostHoldsIt)
{
    ScratchFolder dir;
    const RunResult text = RunLumivane(dir, {"describe"});
    ASSERT_EQ(text.status, 0) << text.err;
    for (const char* part : {"Lumivane 2 (tevrinworks.Lumivane2)", "category:    Nimbrel", "Page \"Info\"",
                             "PolygonSideCount", "m_outImageput"})
        EXPECT_NE(text.out.find(part), std::string::npos) << part;

    const RunResult js = RunLumivane(dir, {"describe", "--json"});
    ASSERT_EQ(js.status, 0) << js.err;
    const auto doc = nlohmann::json::parse(js.out);
    ASSERT_EQ(doc["tools"].size(), 1u);
    const auto& controls = doc["tools"][0]["pages"][0]["controls"];
    ASSERT_EQ(controls.size(), 17u);
    EXPECT_EQ(controls[13]["entries"][3], "Airy Disk");  // BlurStyle
    EXPECT_EQ(controls[15]["min"], 3.0);                 // PolygonSideCount
    EXPECT_EQ(controls[8]["visible"], false);  // GreenBlurSizeY while the R/G/B lock is on
}

TEST(KernelCommand, WritesTheKernelOfEachColour)
{
    ScratchFolder dir;
    const RunResult r = RunLumivane(dir, {"kernel", "k.exr", "--unit", "absolute", "--size", "7", "--set",
                                          "PerChannel=0", "--set", "BlueBlurSizeX=11", "--style", "gaussian"});
    ASSERT_EQ(r.status, 0) << r.err;
    const OIIO::ImageBuf k = ReadFile(dir / "k.exr");
    // As large as the largest kernel, blue's: 11 by 11, since with X and Y
    // locked each colour's Y size is its X size.
    ASSERT_EQ(k.spec().width, 11);
    EXPECT_EQ(k.spec().height, 11);
    for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(k.getchannel(5, 5, 0, c), 1.0f) << "channel " << c;
    EXPECT_EQ(k.getchannel(0, 5, 0, 0), 0.0f);  // red is 7 wide, centred in 11
    EXPECT_GT(k.getchannel(0, 5, 0, 2), 0.0f);  // blue fills the width

    // Relative sizes are percent of --width: 5% of 200 pixels is 10, whose kernel is 11 wide.
    const RunResult rel = RunLumivane(dir, {"kernel", "r.exr", "--width", "200", "--size", "5"});
    ASSERT_EQ(rel.status, 0) << rel.err;
    EXPECT_EQ(ReadFile(dir / "r.exr").spec().width, 11);
}

TEST(Plugins, ABrokenModuleIsSkippedWithAWarningAndAFolderWithoutTheToolIsAFileError)
{
    ScratchFolder dir;
    fs::create_directory(dir / "plugins");
    fs::create_directory(dir / "empty");
    fs::copy_file(fs::path(LUMIVANE_PLUGIN_FOLDER_FOR_TESTS) / "Lumivane2.plugin", dir / "plugins/Lumivane2.plugin");
    std::ofstream(dir / "plugins/Broken.plugin") << "not a module";
    WriteFile(TestPicture(8, 8, {"R", "G", "B"}, false), dir / "in.exr", OIIO::TypeDesc::HALF);
    const RunResult r = RunLumivane(dir, {"--plugins", "plugins", "render", "in.exr", "out.exr", "--size", "30"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("warning: cannot load plug-in"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("Broken.plugin"), std::string::npos) << r.err;
    EXPECT_TRUE(fs::exists(dir / "out.exr"));
    const RunResult none = RunLumivane(dir, {"render", "in.exr", "out2.exr", "--plugins", "empty"});
    EXPECT_EQ(none.status, 3) << none.err;
    EXPECT_NE(none.err.find("no plug-in module provides a tool (searched: empty"), std::string::npos) << none.err;
}

}  // namespace
