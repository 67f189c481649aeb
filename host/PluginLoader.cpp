#include "host/PluginLoader.h"

#include "host/Registry.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

// A module runs its code in this process the moment it is loaded, before it can
// be told whether it is a tool, so the plug-in path is trusted like a library
// path: a folder or module that someone other than its owner could change, or
// that belongs to another user than us or root, is not loaded. Returns why
// `path` is not to be trusted, or "".
std::string Untrusted(const std::string& path)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return {};  // left to the reader's or loader's own message
    if (st.st_uid != ::geteuid() && st.st_uid != 0)
        return "it belongs to user " + std::to_string(st.st_uid) + ", who is neither this user nor root";
    if (st.st_mode & (S_IWGRP | S_IWOTH)) {
        char mode[8];
        std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(st.st_mode & 07777));
        return std::string("its group or others may write to it (mode ") + mode + "; chmod go-w " + path + ")";
    }
    return {};
}

}  // namespace

PluginModule::PluginModule(std::string path, void* handle, std::vector<std::string> ids)
    : m_path(std::move(path)), m_handle(handle), m_toolIds(std::move(ids))
{
}

PluginModule::~PluginModule()
{
    if (m_handle) dlclose(m_handle);
}

std::unique_ptr<PluginModule> PluginModule::Load(const std::string& path)
{
    std::set<Registry*> before;
    for (Registry* r : ClassRegistry->Entries()) before.insert(r);

    if (const std::string why = Untrusted(path); !why.empty())
        throw std::runtime_error("refused plug-in " + path + ": " + why + "; a plug-in runs its code when loaded");
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* why = dlerror();
        throw std::runtime_error("cannot load plug-in " + path + ": " + (why ? why : "unknown loader error") +
                                 " (skipped)");
    }
    std::vector<std::string> ids;
    for (Registry* r : ClassRegistry->Entries())
        if (!before.count(r)) {
            if (!r->Initialised()) {
                dlclose(handle);
                throw std::runtime_error("plug-in " + path + ": the tool \"" + r->ID().str() +
                                         "\" failed to register (its entry has no creation function)");
            }
            ids.push_back(r->ID().str());
        }
    if (ids.empty()) {
        dlclose(handle);
        throw std::runtime_error("plug-in " + path + " loaded, not a tool plug-in: it registered no tools");
    }
    return std::unique_ptr<PluginModule>(new PluginModule(path, handle, std::move(ids)));
}

std::vector<std::string> PluginSet::LoadFolder(const std::string& folder)
{
    if (const std::string why = Untrusted(folder); !why.empty())
        throw std::runtime_error("refused plug-in folder " + folder + ": " + why +
                                 "; a plug-in runs its code when loaded");
    std::error_code ec;
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder, ec))
        if (entry.path().extension() == kPluginExtension) files.push_back(entry.path());
    if (ec) throw std::runtime_error("cannot read plug-in folder " + folder + ": " + ec.message());
    std::sort(files.begin(), files.end());

    std::vector<std::string> problems;
    for (const fs::path& file : files) {
        try {
            auto module = PluginModule::Load(fs::absolute(file).string());
            if (const std::string first = Registered(module->ToolIDs()); !first.empty()) {
                problems.push_back("plug-in " + module->Path() + " registers a tool class that " + first +
                                   " registered already: the first is used, this one unloaded");
                continue;
            }
            m_modules.push_back(std::move(module));
        } catch (const std::exception& e) {
            problems.emplace_back(e.what());
        }
    }
    return problems;
}

std::string PluginSet::Registered(const std::vector<std::string>& ids) const
{
    for (const auto& m : m_modules)
        for (const std::string& id : ids)
            if (std::find(m->ToolIDs().begin(), m->ToolIDs().end(), id) != m->ToolIDs().end())
                return "\"" + id + "\" of " + m->Path();
    return {};
}

PluginSet::~PluginSet()
{
    while (!m_modules.empty()) m_modules.pop_back();
}
