// Loading the tool's real plug-in module, and refusing what is not one.
#include "host/FusionDoc.h"
#include "host/PluginLoader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

TEST(PluginLoader, ModuleRegistersItsToolWhileLoaded)
{
    const std::size_t before = ClassRegistry->Count();
    {
        auto module = PluginModule::Load(LUMIVANE_PLUGIN_FILE);
        EXPECT_EQ(module->ToolIDs(), std::vector<std::string>{"tevrinworks.Lumivane2"});
        Registry* reg = ClassRegistry->Find(FuID("tevrinworks.Lumivane2"));
        ASSERT_NE(reg, nullptr);
        EXPECT_EQ(reg->Name(), "Lumivane 2");
        FusionDoc doc;
        Operator* tool = doc.AddTool(FuID("tevrinworks.Lumivane2"));
        EXPECT_EQ(tool->Inputs().size(), 23u);
    }
    EXPECT_EQ(ClassRegistry->Count(), before);
    EXPECT_EQ(ClassRegistry->Find(FuID("tevrinworks.Lumivane2")), nullptr);
}

TEST(PluginLoader, FolderSkipsAndReportsWhatIsNotAToolPlugin)
{
    const fs::path dir = fs::temp_directory_path() / ("lumivane_plugins_" + std::to_string(::getpid()));
    fs::create_directories(dir);
    fs::copy_file(LUMIVANE_PLUGIN_FILE, dir / "Lumivane2.plugin", fs::copy_options::overwrite_existing);
    fs::copy_file(LUMIVANE_EMPTY_MODULE, dir / "empty.plugin", fs::copy_options::overwrite_existing);
    std::ofstream(dir / "text.plugin") << "not a module";
    std::ofstream(dir / "readme.txt") << "ignored";
    {
        PluginSet set;
        const std::vector<std::string> problems = set.LoadFolder(dir.string());
        ASSERT_EQ(problems.size(), 2u);
        EXPECT_NE(problems[0].find("empty.plugin is not a tool plug-in: it registered no tools"), std::string::npos)
            << problems[0];
        EXPECT_NE(problems[1].find("cannot load plug-in " + (dir / "text.plugin").string() + ": "), std::string::npos)
            << problems[1];
        EXPECT_EQ(set.Modules().size(), 1u);
    }
    EXPECT_THROW(PluginSet().LoadFolder((dir / "missing").string()), std::runtime_error);
    fs::remove_all(dir);
}

}  // namespace
