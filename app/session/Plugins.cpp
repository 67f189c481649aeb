#include "app/session/Plugins.h"

#include "app/files/ExitCodes.h"
#include "host/Registry.h"
#include "host/Tags.h"
#include "util/OwnFile.h"
#include "util/Text.h"

#include <cstdlib>
#include <sstream>
#include <stdexcept>

#ifndef LUMIVANE_PLUGIN_FOLDER
#error "LUMIVANE_PLUGIN_FOLDER must name the folder the plug-in modules are built into"
#endif
#ifndef LUMIVANE_PLUGIN_FOLDER_FROM_PROGRAM
#error "LUMIVANE_PLUGIN_FOLDER_FROM_PROGRAM must name the installed plug-in folder relative to the program's"
#endif

namespace {

constexpr const char* kPathVariable = "LUMIVANE_PLUGIN_PATH";

// An installed program finds its plug-ins beside itself, wherever the install
// was moved; one in the build tree has no such folder and uses the build's.
std::string DefaultPluginFolder()
{
    return BesideOwnFile(nullptr, LUMIVANE_PLUGIN_FOLDER_FROM_PROGRAM, Beside::Folder, LUMIVANE_PLUGIN_FOLDER);
}

}  // namespace

std::vector<std::string> PluginFolders(const std::string& option) { return PluginFolders(option, {}); }

std::vector<std::string> PluginFolders(const std::string& option, const std::string& fallback)
{
    if (!option.empty()) return {option};
    if (const char* env = std::getenv(kPathVariable); env && *env) {
        std::vector<std::string> folders;
        std::stringstream list(env);
        for (std::string f; std::getline(list, f, ':');)
            if (!f.empty()) folders.push_back(f);
        if (!folders.empty()) return folders;
    }
    return {fallback.empty() ? DefaultPluginFolder() : fallback};
}

PluginHost::PluginHost(const std::vector<std::string>& folders, const std::function<void(const std::string&)>& warn)
    : m_folders(folders)
{
    for (const std::string& folder : folders) {
        std::vector<std::string> problems;
        try {
            problems = m_plugins.LoadFolder(folder);
        } catch (const std::exception& e) {
            throw FileError(e.what());
        }
        for (const std::string& p : problems) warn(p);
    }
    m_doc = std::make_unique<FusionDoc>();
}

PluginHost::~PluginHost() { m_doc.reset(); }

std::string PluginHost::ModuleOf(const std::string& classId) const
{
    for (const auto& m : m_plugins.Modules())
        for (const std::string& id : m->ToolIDs())
            if (id == classId) return m->Path();
    return {};
}

std::string PluginHost::ToolClass() const
{
    std::vector<std::string> tools;
    for (Registry* reg : ClassRegistry->Entries())
        if (reg->Tags().GetLong(REGI_ClassType, 0) == CT_Tool) tools.push_back(reg->ID().str());
    if (tools.size() == 1) return tools.front();
    if (tools.empty())
        throw FileError("no plug-in module provides a tool (searched: " + Join(m_folders) +
                        "; give a folder with --plugins DIR or " + kPathVariable + ")");
    throw UsageError("the plug-in folders (" + Join(m_folders) + ") provide several tools (" + Join(tools) +
                     "): name the one to use with --plugins DIR, or render a flow of it");
}
