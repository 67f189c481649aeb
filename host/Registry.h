#pragma once
// The host's class registry. A plug-in module registers its tools by
// constructing static Registry objects when it is loaded; their destructors
// take the entries out again when it is unloaded.
#include "host/FuID.h"
#include "host/TagList.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

class Object;
class Registry;

// The table of values a script passes to a tool's creation; read-only here.
struct ScriptVal {
    std::map<std::string, std::string> Table;
};

using CreateFunc = Object* (*)(Registry* reg, const ScriptVal& table, const TagList& tags);
using RegHookInit = bool (*)(Registry* reg);
using RegHookCleanup = void (*)(Registry* reg);

class RegistryList {
public:
    void Add(Registry* reg);
    void Remove(Registry* reg);
    // The first entry with this class ID, or null.
    Registry* Find(const FuID& id) const;
    std::vector<Registry*> Entries() const;
    std::size_t Count() const;

private:
    mutable std::mutex m_mutex;
    std::vector<Registry*> m_entries;
};

// Every tool class known to the host.
extern RegistryList* ClassRegistry;

class Registry {
public:
    // Adds itself to *parent and runs the entry's REGP_RegInit hook.
    Registry(RegistryList** parent, const FuID& id, const TagList& tags);
    // Runs the REGP_RegCleanup hook and leaves the list.
    ~Registry();
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    const FuID& ID() const { return m_id; }
    const TagList& Tags() const { return m_tags; }
    std::string Name() const;  // REGS_Name, or the ID
    bool Initialised() const { return m_initialised; }

    // Makes a new instance through the entry's creation function. Throws
    // std::runtime_error when the entry has none or it returns null.
    Object* New(const ScriptVal& table, const TagList& tags);

private:
    RegistryList* m_parent;
    FuID m_id;
    TagList m_tags;
    bool m_initialised = false;
};
