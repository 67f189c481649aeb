#include "host/Input.h"

#include "host/Operator.h"
#include "host/Tags.h"
#include "util/Text.h"

#include <cmath>
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
    if (tags.Has(INP_MaxScale)) d.SliderTop = tags.GetDouble(INP_MaxScale, 1.0);
    d.Default = tags.GetDouble(INP_Default, 0.0);
    d.DefaultText = tags.GetString(INP_DefaultText);
    d.Integer = tags.GetLong(INP_Integer, 0) != 0;
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
    if (Integer && v != std::floor(v)) return FormatNumber(v) + " is not a whole number";
    return {};
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
