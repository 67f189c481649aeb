#include "host/Registry.h"

#include "host/Tags.h"

#include <algorithm>
#include <stdexcept>

namespace {

// Functions travel in tag lists as pointer values.
template <class Function>
Function FunctionTag(const TagList& tags, Tag tag)
{
    return reinterpret_cast<Function>(const_cast<void*>(tags.GetPtr(tag)));
}

RegistryList& TheClassRegistry()
{
    static RegistryList list;
    return list;
}

}  // namespace

RegistryList* ClassRegistry = &TheClassRegistry();

void RegistryList::Add(Registry* reg)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.push_back(reg);
}

void RegistryList::Remove(Registry* reg)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.erase(std::remove(m_entries.begin(), m_entries.end(), reg), m_entries.end());
}

Registry* RegistryList::Find(const FuID& id) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (Registry* reg : m_entries)
        if (reg->ID() == id) return reg;
    return nullptr;
}

std::vector<Registry*> RegistryList::Entries() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries;
}

std::size_t RegistryList::Count() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries.size();
}

Registry::Registry(RegistryList** parent, const FuID& id, const TagList& tags)
    : m_parent(parent && *parent ? *parent : &TheClassRegistry()), m_id(id), m_tags(tags)
{
    m_parent->Add(this);
    if (auto init = FunctionTag<RegHookInit>(m_tags, REGP_RegInit)) m_initialised = init(this);
}

Registry::~Registry()
{
    if (auto cleanup = FunctionTag<RegHookCleanup>(m_tags, REGP_RegCleanup)) cleanup(this);
    m_parent->Remove(this);
}

std::string Registry::Name() const { return m_tags.GetString(REGS_Name, m_id.str()); }

Object* Registry::New(const ScriptVal& table, const TagList& tags)
{
    auto create = FunctionTag<CreateFunc>(m_tags, REGP_CreateFunc);
    if (!create) throw std::runtime_error("registry entry \"" + m_id.str() + "\" has no creation function");
    Object* obj = create(this, table, tags);
    if (!obj) throw std::runtime_error("creating \"" + m_id.str() + "\" failed: out of memory");
    return obj;
}
