#include "host/FusionDoc.h"

#include "host/Tags.h"
#include "util/Text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

FusionDoc::~FusionDoc()
{
    // Later tools may refer to earlier ones; remove them newest first.
    while (!m_tools.empty()) m_tools.pop_back();
}

void FusionDoc::PrintF(int subId, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(n > 0 ? static_cast<std::size_t>(n) : 0, '\0');
    if (n > 0) std::vsnprintf(text.data(), text.size() + 1, format, args);
    va_end(args);

    ConsoleLine line{subId, std::move(text)};
    std::function<void(const ConsoleLine&)> listener;
    {
        std::lock_guard<std::mutex> lock(m_consoleMutex);
        m_console.push_back(line);
        listener = m_listener;
    }
    if (listener) listener(line);
}

std::vector<ConsoleLine> FusionDoc::Console() const
{
    std::lock_guard<std::mutex> lock(m_consoleMutex);
    return m_console;
}

void FusionDoc::ClearConsole()
{
    std::lock_guard<std::mutex> lock(m_consoleMutex);
    m_console.clear();
}

void FusionDoc::SetConsoleListener(std::function<void(const ConsoleLine&)> listener)
{
    std::lock_guard<std::mutex> lock(m_consoleMutex);
    m_listener = std::move(listener);
}

Operator* FusionDoc::AddTool(const FuID& classId, const std::string& name)
{
    Registry* reg = ClassRegistry->Find(classId);
    if (!reg) {
        std::vector<std::string> ids;
        for (Registry* r : ClassRegistry->Entries()) ids.push_back(r->ID().str());
        const std::string known = Join(ids);
        throw std::runtime_error("no tool class \"" + classId.str() + "\" is loaded (loaded: " +
                                 (known.empty() ? "none" : known) + ")");
    }
    Object* obj = reg->New(ScriptVal{}, TagList{{OBJP_Document, static_cast<const void*>(this)}});
    auto* tool = dynamic_cast<Operator*>(obj);
    if (!tool) {
        delete obj;
        throw std::runtime_error("registry entry \"" + classId.str() + "\" did not make a tool");
    }
    m_tools.emplace_back(tool);
    std::string toolName = name;
    if (toolName.empty()) {
        std::string base = reg->ID().str();
        base = base.substr(base.find_last_of('.') + 1);
        for (int i = 1; toolName.empty() || FindTool(toolName); ++i) toolName = base + "_" + std::to_string(i);
    } else if (FindTool(toolName)) {
        m_tools.pop_back();
        throw std::runtime_error("a tool named \"" + toolName + "\" is already in the flow");
    }
    tool->SetName(toolName);
    tool->ReportInitialValues();
    return tool;
}

void FusionDoc::RemoveTool(Operator* tool)
{
    m_tools.erase(std::remove_if(m_tools.begin(), m_tools.end(), [&](const auto& t) { return t.get() == tool; }),
                  m_tools.end());
}

Operator* FusionDoc::FindTool(const std::string& name) const
{
    for (const auto& t : m_tools)
        if (t->Name() == name) return t.get();
    return nullptr;
}

Ref<Parameter> FusionDoc::Render(Operator* tool, TimeStamp time, const std::atomic<bool>* cancel)
{
    Output* out = tool->MainOutput();
    if (out) out->Clear();
    Request req(time, cancel);
    tool->Process(&req);
    Ref<Parameter> result = out ? out->Take() : Ref<Parameter>();
    if (req.IsCancelled()) return {};
    return result;
}

void FusionDoc::PreCalc(Operator* tool, TimeStamp time)
{
    Request req(time);
    tool->PreCalcProcess(&req);
}
