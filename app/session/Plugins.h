#pragma once
// The plug-in modules and the document the tools live in.
//
// Modules are loaded from the installed plug-in folder found from the program's
// own file (<prefix>/lib/lumivane/plugins beside <prefix>/bin), or in the build
// tree from the folder they are built into, unless folders are
// named on purpose: --plugins DIR, or else LUMIVANE_PLUGIN_PATH (folders
// separated by ':'). The current folder is never searched unless named. A
// module that fails to load, is not a tool or repeats a tool's class is
// reported as a warning. The path is trusted like a library path: a folder or
// module writable by others than its owner is refused (host/PluginLoader.h).
#include "host/FusionDoc.h"
#include "host/PluginLoader.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

// The folders to load from: `option` when given, else the environment, else
// the built-in folder. Empty entries of the environment variable are skipped.
std::vector<std::string> PluginFolders(const std::string& option);
// The same, with `fallback` in place of the built-in folder when it is not
// empty: a host that is not the program (the Python module) finds its
// installed folder from its own file.
std::vector<std::string> PluginFolders(const std::string& option, const std::string& fallback);

class PluginHost {
public:
    // Loads every module of every folder; warnings go to `warn`. Throws a file
    // ProgramError when a folder cannot be read.
    PluginHost(const std::vector<std::string>& folders, const std::function<void(const std::string&)>& warn);
    // The tools go before the modules that made them.
    ~PluginHost();

    FusionDoc& Doc() { return *m_doc; }
    const std::vector<std::string>& Folders() const { return m_folders; }
    const PluginSet& Plugins() const { return m_plugins; }
    // The module file that registered a tool class, or "".
    std::string ModuleOf(const std::string& classId) const;
    // The class ID of the tool the loaded modules provide, as the registry has
    // it. Throws a file ProgramError naming the folders searched when none does,
    // and a usage one naming them when several do.
    std::string ToolClass() const;

private:
    std::vector<std::string> m_folders;
    PluginSet m_plugins;
    std::unique_ptr<FusionDoc> m_doc;
};
