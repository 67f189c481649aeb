#pragma once
// A host identifier: the name by which the host knows a class, a data type or a
// control kind. Compared by its text.
#include <functional>
#include <string>

class FuID {
public:
    FuID() = default;
    // The second argument mirrors the SDK's "copy the string" flag; the text is
    // always copied here, so it has no effect.
    FuID(const char* id, bool copy = false) : m_id(id ? id : "") { (void)copy; }
    FuID(std::string id) : m_id(std::move(id)) {}

    const std::string& str() const { return m_id; }
    const char* c_str() const { return m_id.c_str(); }
    bool IsEmpty() const { return m_id.empty(); }

    bool operator==(const FuID& o) const { return m_id == o.m_id; }
    bool operator!=(const FuID& o) const { return m_id != o.m_id; }
    bool operator<(const FuID& o) const { return m_id < o.m_id; }

private:
    std::string m_id;
};

// Data types and control kinds the host knows.
extern const FuID CLSID_DataType_Number;
extern const FuID CLSID_DataType_Text;
extern const FuID CLSID_DataType_Image;
extern const FuID MultiButtonControlID;
extern const FuID SliderControlID;
extern const FuID CheckboxControlID;
extern const FuID TextEditControlID;
