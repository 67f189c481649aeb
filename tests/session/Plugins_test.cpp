// Where the program's plug-ins come from: a broken module is skipped with a
// warning, a folder without the tool is a file error.
#include "support/ProgramRunner.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;

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
