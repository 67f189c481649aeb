#pragma once
// Loading tool plug-ins: shared modules whose static objects register their
// tools in ClassRegistry while dlopen runs, and take them out again when the
// module is unloaded.
#include <memory>
#include <string>
#include <vector>

// Plug-in modules are files with this extension.
constexpr const char* kPluginExtension = ".plugin";

class PluginModule {
public:
    // Loads one module. Throws std::runtime_error naming the file with the
    // loader's own message, saying that it is refused (see PluginSet), or that
    // the module registered no tools (it is then unloaded again).
    static std::unique_ptr<PluginModule> Load(const std::string& path);
    ~PluginModule();
    PluginModule(const PluginModule&) = delete;
    PluginModule& operator=(const PluginModule&) = delete;

    const std::string& Path() const { return m_path; }
    const std::vector<std::string>& ToolIDs() const { return m_toolIds; }

private:
    PluginModule(std::string path, void* handle, std::vector<std::string> ids);
    std::string m_path;
    void* m_handle;
    std::vector<std::string> m_toolIds;
};

// The modules loaded from plug-in folders. Modules are unloaded in reverse
// order of loading; every tool made from them must be gone by then.
class PluginSet {
public:
    // Loads every module in `folder` in name order. A module that cannot be
    // loaded, registers no tool, or registers a class ID a module loaded before
    // it registered (the first is kept), is reported in the returned messages.
    // A module or folder that others than its owner may write, or that belongs
    // to another user than this one or root, is refused: loading runs a
    // module's code. Throws if the folder cannot be read or is refused.
    std::vector<std::string> LoadFolder(const std::string& folder);
    const std::vector<std::unique_ptr<PluginModule>>& Modules() const { return m_modules; }
    ~PluginSet();

private:
    // The first of `ids` a loaded module registered, with that module, or "".
    std::string Registered(const std::vector<std::string>& ids) const;
    std::vector<std::unique_ptr<PluginModule>> m_modules;
};
