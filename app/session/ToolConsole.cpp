#include "app/session/ToolConsole.h"

#include "host/Tags.h"

void FrameConsole::Clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_failures.clear();
}

void FrameConsole::Add(const ConsoleLine& line)
{
    if (line.SubID != CONSOLE_Error) return;
    std::string text = line.Text;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_failures.push_back(text);
}

bool FrameConsole::HasFailure() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_failures.empty();
}

std::string FrameConsole::Why() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_failures.empty()) return "the tool set no output and gave no reason";
    return "the tool set no output: " + m_failures.back();
}
