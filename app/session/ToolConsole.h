#pragma once
// The tool's console lines of the render under way: why it set no output.
#include "host/FusionDoc.h"

#include <mutex>
#include <string>
#include <vector>

class FrameConsole {
public:
    void Clear();
    // Keeps the line when it reports a failure.
    void Add(const ConsoleLine& line);
    bool HasFailure() const;
    // "the tool set no output: " and the last failure line.
    std::string Why() const;

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_failures;
};

