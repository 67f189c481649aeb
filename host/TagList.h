#pragma once
// Host tag lists: ordered (tag, value) pairs. The top hex digit of a tag says what
// its value is: 1 an integer, 2 a double, 3 a string, 6 a pointer, 8 an FuID.
// A tag of 0 (TAG_DONE) ends a list; anything after it is ignored. Tags the host
// does not know are kept, so a tool may pass tags whose meaning is the host's.
#include "host/FuID.h"

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <variant>
#include <vector>

using Tag = std::uint32_t;
constexpr Tag TAG_DONE = 0;

enum class TagKind { Integer = 1, Double = 2, String = 3, Pointer = 6, Id = 8, Unknown = 0 };
TagKind KindOfTag(Tag tag);

class TagItem {
public:
    using Value = std::variant<std::int64_t, double, std::string, const void*, FuID>;

    TagItem(Tag tag);  // only TAG_DONE has no value
    TagItem(Tag tag, int value);
    TagItem(Tag tag, std::int64_t value);
    TagItem(Tag tag, double value);
    TagItem(Tag tag, const char* value);
    TagItem(Tag tag, std::string value);
    TagItem(Tag tag, const void* value);
    TagItem(Tag tag, FuID value);
    // Function pointers travel as pointer values (the registry's hooks and creator).
    template <class R, class... A>
    TagItem(Tag tag, R (*fn)(A...)) : TagItem(tag, reinterpret_cast<const void*>(fn)) {}

    Tag tag() const { return m_tag; }
    const Value& value() const { return m_value; }

private:
    void CheckKind(TagKind given) const;
    Tag m_tag;
    Value m_value;
};

class TagList {
public:
    TagList() = default;
    TagList(std::initializer_list<TagItem> items);

    void Add(const TagItem& item);
    const std::vector<TagItem>& Items() const { return m_items; }
    bool Has(Tag tag) const { return Find(tag) != nullptr; }
    const TagItem* Find(Tag tag) const;  // the first item with this tag

    std::int64_t GetLong(Tag tag, std::int64_t dflt) const;
    double GetDouble(Tag tag, double dflt) const;
    std::string GetString(Tag tag, const std::string& dflt = {}) const;
    const void* GetPtr(Tag tag, const void* dflt = nullptr) const;
    FuID GetId(Tag tag, const FuID& dflt = {}) const;
    // Every value of a repeated tag, in order (the entries of a multi-button).
    std::vector<std::string> GetStrings(Tag tag) const;

private:
    std::vector<TagItem> m_items;
};
