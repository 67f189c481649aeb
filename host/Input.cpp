#include "host/Input.h"

#include "host/Operator.h"
#include "host/Tags.h"
#include "util/Text.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <sstream>

InputDeclaration InputDeclaration::FromTags(const FuID& label, const FuID& id, const std::string& page,
                                            const TagList& tags)
{
    InputDeclaration d;
    d.ID = id;
    d.Label = label.str();
    d.Page = page;
    d.DataType = tags.GetId(LINKID_DataType, CLSID_DataType_Number);
    d.Control = tags.GetId(INPID_InputControl);
    d.Entries = tags.GetStrings(MBTNC_AddButton);
    if (tags.Has(INP_MinAllowed)) d.MinAllowed = tags.GetDouble(INP_MinAllowed, 0.0);
    if (tags.Has(INP_MaxAllowed)) d.MaxAllowed = tags.GetDouble(INP_MaxAllowed, 0.0);
    if (tags.Has(INP_MaxScale)) d.SliderTop = tags.GetDouble(INP_MaxScale, 1.0);
    d.Default = tags.GetDouble(INP_Default, 0.0);
    d.DefaultText = tags.GetString(INP_DefaultText);
    d.Integer = tags.GetLong(INP_Integer, 0) != 0;
    d.ReadOnly = tags.GetLong(TEC_ReadOnly, 0) != 0;
    d.Notify = tags.GetLong(INP_DoNotifyChanged, 0) != 0;
    d.InitialNotify = tags.GetLong(INP_InitialNotify, 0) != 0;
    d.Visible = tags.GetLong(IC_Visible, 1) != 0;
    d.LinkNumber = tags.GetLong(LINK_Main, 0);
    d.Required = tags.GetLong(INP_Required, 1) != 0;
    d.Tags = tags;
    return d;
}

std::string InputDeclaration::CheckNumber(double v) const
{
    if (!IsNumber()) return "it is not a number control";
    if (!std::isfinite(v)) return FormatNumber(v) + " is not a finite number";
    // Pixels and kernels are 32-bit floats: a value past their range could only
    // turn into infinity on its way into one.
    constexpr double kLargest = std::numeric_limits<float>::max();
    if (std::abs(v) > kLargest) return FormatNumber(v) + " is past the largest value a control holds, " + FormatNumber(kLargest);
    if (Control == MultiButtonControlID) {
        if (v != std::floor(v) || v < 0 || v >= static_cast<double>(Entries.size())) {
            std::string accepted;
            for (std::size_t i = 0; i < Entries.size(); ++i)
                accepted += (i ? ", " : "") + std::to_string(i) + " \"" + Entries[i] + "\"";
            return FormatNumber(v) + " is not one of " + accepted;
        }
        return {};
    }
    if (Control == CheckboxControlID) return (v == 0.0 || v == 1.0) ? std::string() : FormatNumber(v) + " is not 0 (off) or 1 (on)";
    if (MinAllowed && v < *MinAllowed) return FormatNumber(v) + " is less than the lowest value " + FormatNumber(*MinAllowed);
    if (MaxAllowed && v > *MaxAllowed) return FormatNumber(v) + " is more than the highest value " + FormatNumber(*MaxAllowed);
    if (Integer && v != std::floor(v)) return FormatNumber(v) + " is not a whole number";
    return {};
}

namespace {

std::string Normalised(const std::string& s)
{
    std::string out;
    for (char c : s)
        if (!std::isspace(static_cast<unsigned char>(c))) out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// The entry `text` names: exactly (any case, spaces ignored) or by a beginning
// that only one entry has. -1 when none or several.
int EntryNamed(const std::vector<std::string>& entries, const std::string& text)
{
    const std::string want = Normalised(text);
    if (want.empty()) return -1;
    int prefixMatch = -1, prefixCount = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::string e = Normalised(entries[i]);
        if (e == want) return static_cast<int>(i);
        if (e.compare(0, want.size(), want) == 0) {
            prefixMatch = static_cast<int>(i);
            ++prefixCount;
        }
    }
    return prefixCount == 1 ? prefixMatch : -1;
}

enum class Parsed { Number, NotANumber, Hexadecimal, TooLarge };

Parsed ParseDecimal(const std::string& text, double& out)
{
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return Parsed::NotANumber;
    char* end = nullptr;
    errno = 0;
    out = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size()) return Parsed::NotANumber;
    // strtod reads "0x10" as 16; on a control that is far more likely a typo.
    if (text.find_first_of("xX") != std::string::npos) return Parsed::Hexadecimal;
    if (errno == ERANGE && std::isinf(out)) return Parsed::TooLarge;
    // A value too close to zero comes back as zero or a subnormal: keep it.
    return std::isfinite(out) ? Parsed::Number : Parsed::NotANumber;
}

}  // namespace

std::string InputDeclaration::AcceptedValues() const
{
    if (IsText()) return "text";
    if (IsImage()) return "an image file";
    if (Control == MultiButtonControlID) {
        std::string s = "one of ";
        for (std::size_t i = 0; i < Entries.size(); ++i)
            s += (i ? ", " : "") + std::to_string(i) + " \"" + Entries[i] + "\"";
        return s + " (number or name)";
    }
    if (Control == CheckboxControlID) return "0 or 1 (off/on, false/true, no/yes)";
    std::string s = Integer ? "a whole number" : "a number";
    if (MinAllowed && MaxAllowed) s += " from " + FormatNumber(*MinAllowed) + " to " + FormatNumber(*MaxAllowed);
    else if (MinAllowed) s += " from " + FormatNumber(*MinAllowed);
    else if (MaxAllowed) s += " up to " + FormatNumber(*MaxAllowed);
    if (SliderTop) s += " (slider " + FormatNumber(MinAllowed.value_or(0.0)) + " to " + FormatNumber(*SliderTop) + ")";
    return s;
}

std::string InputDeclaration::RefuseTyped(const std::string& text, double& out) const
{
    const std::string where = ID.str() + " takes " + AcceptedValues();
    switch (ParseDecimal(text, out)) {
    case Parsed::Number: return RefuseNumber(out);
    case Parsed::Hexadecimal: return where + "; \"" + text + "\" is not a decimal number";
    case Parsed::TooLarge: return where + "; \"" + text + "\" is too large";
    case Parsed::NotANumber: break;
    }
    if (Control == MultiButtonControlID) {
        const int entry = EntryNamed(Entries, text);
        if (entry < 0) return where + "; \"" + text + "\" is not one of them";
        out = entry;
    } else if (Control == CheckboxControlID) {
        static const std::map<std::string, double> kWords = {{"on", 1}, {"off", 0}, {"true", 1},
                                                             {"false", 0}, {"yes", 1}, {"no", 0}};
        const auto it = kWords.find(Normalised(text));
        if (it == kWords.end()) return where + "; \"" + text + "\" is not one of them";
        out = it->second;
    } else {
        return where + "; \"" + text + "\" is not a number";
    }
    return RefuseNumber(out);
}

std::string InputDeclaration::RefuseNumber(double v) const
{
    if (ReadOnly) return "\"" + ID.str() + "\" is read-only";
    const std::string why = CheckNumber(v);
    if (why.empty()) return {};
    // A multi-button's reason lists its entries already.
    const bool listed = Control == MultiButtonControlID;
    return ID.str() + ": " + why + (listed ? "" : " (it takes " + AcceptedValues() + ")");
}

Input::Input(Operator* owner, InputDeclaration decl) : m_owner(owner), m_decl(std::move(decl))
{
    InitAttrs(m_decl.Label, m_decl.Visible);
    if (m_decl.IsNumber()) m_constant = Ref<Parameter>(new Number(m_decl.Default));
    else if (m_decl.IsText()) m_constant = Ref<Parameter>(new Text(m_decl.DefaultText));
}

double Input::NumberAt(TimeStamp time) const
{
    if (m_keys.empty()) return m_constant ? static_cast<const Number&>(*m_constant).Value() : 0.0;
    auto after = m_keys.lower_bound(time);
    if (after == m_keys.begin()) return after->second;
    if (after == m_keys.end()) return std::prev(after)->second;
    if (after->first == time) return after->second;
    auto before = std::prev(after);
    const double f = (time - before->first) / (after->first - before->first);
    return before->second + f * (after->second - before->second);
}

Parameter* Input::GetSource(TimeStamp time, const TagList* /*tags*/)
{
    if (m_decl.IsNumber()) return new Number(NumberAt(time));
    if (!m_constant) return nullptr;
    m_constant->Use();
    return m_constant.get();
}

Parameter* Input::GetValue(Request* req, int /*flags*/)
{
    Parameter* p = GetSource(req->Time);
    return p ? req->Keep(p) : nullptr;
}

bool Input::SetSource(Parameter* param, TimeStamp time, int /*flags*/, const TagList* /*tags*/)
{
    if (param && param->DataType() != m_decl.DataType) return false;
    if (param && m_decl.IsNumber() && IsAnimated()) {
        m_keys[time] = static_cast<Number&>(*param).Value();
    } else {
        if (param) param->Use();
        m_constant = Ref<Parameter>(param);
    }
    if (m_decl.Notify && m_owner) m_owner->NotifyChanged(this, param, time, nullptr);
    return true;
}

void Input::SetKeys(std::map<double, double> keys)
{
    if (keys.empty() && !m_keys.empty()) m_constant = Ref<Parameter>(new Number(NumberAt(m_keys.begin()->first)));
    m_keys = std::move(keys);
}

void Output::Set(Request* /*req*/, Parameter* value, const TagList* /*tags*/) { m_value = Ref<Parameter>(value); }
