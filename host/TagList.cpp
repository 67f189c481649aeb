#include "host/TagList.h"

#include <sstream>
#include <stdexcept>

namespace {

const char* KindName(TagKind k)
{
    switch (k) {
    case TagKind::Integer: return "an integer";
    case TagKind::Double: return "a double";
    case TagKind::String: return "a string";
    case TagKind::Pointer: return "a pointer";
    case TagKind::Id: return "an FuID";
    default: return "nothing";
    }
}

std::string Hex(Tag tag)
{
    std::ostringstream s;
    s << "0x" << std::hex << tag;
    return s.str();
}

}  // namespace

TagKind KindOfTag(Tag tag)
{
    switch (tag >> 28) {
    case 1: return TagKind::Integer;
    case 2: return TagKind::Double;
    case 3: return TagKind::String;
    case 6: return TagKind::Pointer;
    case 8: return TagKind::Id;
    default: return TagKind::Unknown;
    }
}

void TagItem::CheckKind(TagKind given) const
{
    // A tag whose kind the host does not know keeps whatever it is given.
    if (KindOfTag(m_tag) != given && KindOfTag(m_tag) != TagKind::Unknown)
        throw std::invalid_argument("tag " + Hex(m_tag) + " carries " + KindName(KindOfTag(m_tag)) +
                                    ", not " + KindName(given));
}

TagItem::TagItem(Tag tag) : m_tag(tag), m_value(std::int64_t{0})
{
    if (tag != TAG_DONE) throw std::invalid_argument("tag " + Hex(tag) + " needs a value");
}
TagItem::TagItem(Tag tag, int value) : TagItem(tag, static_cast<std::int64_t>(value)) {}
TagItem::TagItem(Tag tag, std::int64_t value) : m_tag(tag), m_value(value)
{
    // A whole number given for a double tag is taken as that double.
    if (KindOfTag(tag) == TagKind::Double) m_value = static_cast<double>(value);
    CheckKind(std::holds_alternative<double>(m_value) ? TagKind::Double : TagKind::Integer);
}
TagItem::TagItem(Tag tag, double value) : m_tag(tag), m_value(value) { CheckKind(TagKind::Double); }
TagItem::TagItem(Tag tag, const char* value) : TagItem(tag, std::string(value ? value : "")) {}
TagItem::TagItem(Tag tag, std::string value) : m_tag(tag), m_value(std::move(value)) { CheckKind(TagKind::String); }
TagItem::TagItem(Tag tag, const void* value) : m_tag(tag), m_value(value) { CheckKind(TagKind::Pointer); }
TagItem::TagItem(Tag tag, FuID value) : m_tag(tag), m_value(std::move(value)) { CheckKind(TagKind::Id); }

TagList::TagList(std::initializer_list<TagItem> items)
{
    for (const TagItem& item : items) {
        if (item.tag() == TAG_DONE) break;
        m_items.push_back(item);
    }
}

void TagList::Add(const TagItem& item)
{
    if (item.tag() != TAG_DONE) m_items.push_back(item);
}

const TagItem* TagList::Find(Tag tag) const
{
    for (const TagItem& item : m_items)
        if (item.tag() == tag) return &item;
    return nullptr;
}

std::int64_t TagList::GetLong(Tag tag, std::int64_t dflt) const
{
    const TagItem* item = Find(tag);
    return item ? std::get<std::int64_t>(item->value()) : dflt;
}

double TagList::GetDouble(Tag tag, double dflt) const
{
    const TagItem* item = Find(tag);
    return item ? std::get<double>(item->value()) : dflt;
}

std::string TagList::GetString(Tag tag, const std::string& dflt) const
{
    const TagItem* item = Find(tag);
    return item ? std::get<std::string>(item->value()) : dflt;
}

const void* TagList::GetPtr(Tag tag, const void* dflt) const
{
    const TagItem* item = Find(tag);
    return item ? std::get<const void*>(item->value()) : dflt;
}

FuID TagList::GetId(Tag tag, const FuID& dflt) const
{
    const TagItem* item = Find(tag);
    return item ? std::get<FuID>(item->value()) : dflt;
}

std::vector<std::string> TagList::GetStrings(Tag tag) const
{
    std::vector<std::string> out;
    for (const TagItem& item : m_items)
        if (item.tag() == tag) out.push_back(std::get<std::string>(item.value()));
    return out;
}
