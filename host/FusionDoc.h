#pragma once
// A flow document: the tools in it and its console.
#include "host/Operator.h"
#include "host/Request.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// Console sub-IDs tools print with.
constexpr int CONSOLE_Progress = 40;
// Facts about a render (its sizes, the memory it needs), for whoever asks.
constexpr int CONSOLE_Info = 50;
constexpr int CONSOLE_Error = 60;

struct ConsoleLine {
    int SubID;
    std::string Text;
};

class FusionDoc {
public:
    FusionDoc() = default;
    ~FusionDoc();
    FusionDoc(const FusionDoc&) = delete;
    FusionDoc& operator=(const FusionDoc&) = delete;

    // Appends a line to the console; safe from any thread.
    void PrintF(int subId, const char* format, ...) __attribute__((format(printf, 3, 4)));
    std::vector<ConsoleLine> Console() const;
    void ClearConsole();
    // Also called for every new line, on the printing thread.
    void SetConsoleListener(std::function<void(const ConsoleLine&)> listener);

    // Makes a tool of a registered class, named `name` (or its class name and
    // a number), and reports its initial values. Throws std::runtime_error if
    // the class is not registered.
    Operator* AddTool(const FuID& classId, const std::string& name = {});
    // Deletes the tool through its virtual destructor.
    void RemoveTool(Operator* tool);
    const std::vector<std::unique_ptr<Operator>>& Tools() const { return m_tools; }
    Operator* FindTool(const std::string& name) const;

    // Renders `tool` at `time` and hands over what it set on its main output
    // (null when it set nothing, or when `cancel` was raised before the render
    // ended: what a cancelled render made is never handed out).
    Ref<Parameter> Render(Operator* tool, TimeStamp time, const std::atomic<bool>* cancel = nullptr);
    // Asks `tool` what a render at `time` would take, without rendering
    // (Operator::PreCalcProcess). Whatever it finds goes to the console.
    void PreCalc(Operator* tool, TimeStamp time);

private:
    mutable std::mutex m_consoleMutex;
    std::vector<ConsoleLine> m_console;
    std::function<void(const ConsoleLine&)> m_listener;
    std::vector<std::unique_ptr<Operator>> m_tools;
};
