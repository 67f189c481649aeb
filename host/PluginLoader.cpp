#include "host/PluginLoader.h"

#include "host/Registry.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>

namespace fs = std::filesystem;

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

    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* why = dlerror();
        throw std::runtime_error("cannot load plug-in " + path + ": " + (why ? why : "unknown loader error"));
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
        throw std::runtime_error("plug-in " + path + " is not a tool plug-in: it registered no tools");
    }
    return std::unique_ptr<PluginModule>(new PluginModule(path, handle, std::move(ids)));
}

std::vector<std::string> PluginSet::LoadFolder(const std::string& folder)
{
    std::error_code ec;
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder, ec))
        if (entry.path().extension() == kPluginExtension) files.push_back(entry.path());
    if (ec) throw std::runtime_error("cannot read plug-in folder " + folder + ": " + ec.message());
    std::sort(files.begin(), files.end());

    std::vector<std::string> problems;
    for (const fs::path& file : files) {
        try {
            m_modules.push_back(PluginModule::Load(fs::absolute(file).string()));
        } catch (const std::exception& e) {
            problems.emplace_back(e.what());
        }
    }
    return problems;
}

PluginSet::~PluginSet()
{
    while (!m_modules.empty()) m_modules.pop_back();
}
