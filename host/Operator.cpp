#include "host/Operator.h"

#include "host/FusionDoc.h"
#include "host/Tags.h"

#include <stdexcept>

Operator::Operator(Registry* reg, const ScriptVal& /*table*/, const TagList& tags)
    : m_reg(reg), m_doc(static_cast<FusionDoc*>(const_cast<void*>(tags.GetPtr(OBJP_Document))))
{
}

Operator::~Operator() = default;

bool Operator::RegInit(Registry* reg) { return reg->Tags().Has(REGP_CreateFunc); }

void Operator::RegCleanup(Registry* /*reg*/) {}

void Operator::AddControlPage(const char* name, Tag /*firstTag*/) { m_pages.emplace_back(name); }

void Operator::AddControlPage(const char* name, const TagList& /*tags*/) { m_pages.emplace_back(name); }

Input* Operator::AddInput(const FuID& label, const FuID& id, const TagList& tags)
{
    if (m_inputsById.count(id.str())) throw std::invalid_argument("input \"" + id.str() + "\" is added twice");
    const std::string page = m_pages.empty() ? std::string() : m_pages.back();
    m_inputs.push_back(std::make_unique<Input>(this, InputDeclaration::FromTags(label, id, page, tags)));
    m_inputsById[id.str()] = m_inputs.back().get();
    return m_inputs.back().get();
}

Output* Operator::AddOutput(const FuID& label, const FuID& id, const TagList& tags)
{
    m_outputs.push_back(std::make_unique<Output>(this, InputDeclaration::FromTags(label, id, {}, tags)));
    return m_outputs.back().get();
}

void Operator::NotifyChanged(Input*, Parameter*, TimeStamp, const TagList*) {}

void Operator::Process(Request*)
{
    throw std::runtime_error("the tool \"" + (m_reg ? m_reg->Name() : m_name) + "\" cannot render");
}

void Operator::PreCalcProcess(Request*) {}

void Operator::ReportInitialValues()
{
    for (const auto& in : m_inputs) {
        if (!in->Decl().InitialNotify) continue;
        Ref<Parameter> value(in->GetSource(0.0));
        NotifyChanged(in.get(), value.get(), 0.0, nullptr);
    }
}

Input* Operator::FindInput(const std::string& id) const
{
    auto it = m_inputsById.find(id);
    return it == m_inputsById.end() ? nullptr : it->second;
}

Output* Operator::FindOutput(const std::string& id) const
{
    for (const auto& out : m_outputs)
        if (out->ID().str() == id) return out.get();
    return nullptr;
}
