#pragma once
// A tool in a flow: its control pages, inputs and outputs, the notifications
// the host sends it and the render entry point.
#include "host/FuID.h"
#include "host/Input.h"
#include "host/Object.h"
#include "host/Registry.h"
#include "host/Request.h"
#include "host/TagList.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class FusionDoc;

class Operator : public Object {
public:
    // `tags` may carry OBJP_Document, the document the tool belongs to.
    Operator(Registry* reg, const ScriptVal& table, const TagList& tags);
    ~Operator() override;

    // Hooks for a tool's registry entry (REGP_RegInit, REGP_RegCleanup).
    static bool RegInit(Registry* reg);
    static void RegCleanup(Registry* reg);

    void AddControlPage(const char* name, Tag firstTag = TAG_DONE);
    void AddControlPage(const char* name, const TagList& tags);
    Input* AddInput(const FuID& label, const FuID& id, const TagList& tags);
    Output* AddOutput(const FuID& label, const FuID& id, const TagList& tags);

    // Called by the host after a control created with the notify tag changed.
    virtual void NotifyChanged(Input* in, Parameter* param, TimeStamp time, const TagList* tags);
    // Called by the host once per render request.
    virtual void Process(Request* req);
    // Called instead of Process when the host wants to know what a render
    // would take (image sizes, memory) without its pixels. Does nothing
    // unless the tool says otherwise.
    virtual void PreCalcProcess(Request* req);

    // Right after construction the host reports the value of every control
    // created with INP_InitialNotify through NotifyChanged, in creation order.
    void ReportInitialValues();

    Registry* Reg() const { return m_reg; }
    FusionDoc* Document() const { return m_doc; }
    const std::string& Name() const { return m_name; }
    void SetName(std::string name) { m_name = std::move(name); }

    const std::vector<std::string>& Pages() const { return m_pages; }
    // In creation order: the order is part of the tool's interface.
    const std::vector<std::unique_ptr<Input>>& Inputs() const { return m_inputs; }
    const std::vector<std::unique_ptr<Output>>& Outputs() const { return m_outputs; }
    Input* FindInput(const std::string& id) const;
    Output* FindOutput(const std::string& id) const;
    Output* MainOutput() const { return m_outputs.empty() ? nullptr : m_outputs.front().get(); }

private:
    Registry* m_reg;
    FusionDoc* m_doc;
    std::string m_name;
    std::vector<std::string> m_pages;
    std::vector<std::unique_ptr<Input>> m_inputs;
    std::map<std::string, Input*> m_inputsById;
    std::vector<std::unique_ptr<Output>> m_outputs;
};
