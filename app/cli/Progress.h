#pragma once
// What the user sees while frames render. On a terminal, a bar on standard
// output (frame, frames done, time per frame, time left); otherwise one plain
// line per frame. The tool's failure lines (console sub-ID 60) and every error
// go to standard error whatever the options; its progress lines (sub-ID 40) to
// standard output with --verbose. --quiet leaves only the errors.
#include "host/FusionDoc.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

class Progress {
public:
    Progress(bool quiet, bool verbose);
    // For tests: force the bar on or off instead of asking the terminal.
    Progress(bool quiet, bool verbose, bool bar);

    // `sequence`: lines name their frame.
    void Begin(int frames, bool sequence);
    void FrameStarted(int frame);
    void FrameDone(int frame, const std::string& output);
    void FrameFailed(int frame, const std::string& message);
    void ToolLine(const ConsoleLine& line);
    void Warning(const std::string& message);
    void Error(const std::string& message);
    void Info(const std::string& message);
    // The closing summary. `failures` holds one line per failed frame.
    void Finish(int rendered, const std::vector<std::string>& failures, bool interrupted);

private:
    using Clock = std::chrono::steady_clock;
    void ClearBar();
    void DrawBar();
    std::string FramePrefix() const;
    double SecondsPerFrame() const;

    std::mutex m_mutex;
    bool m_quiet;
    bool m_verbose;
    bool m_bar;
    bool m_barShown = false;
    bool m_sequence = false;
    int m_total = 0;
    int m_done = 0;
    int m_frame = 0;
    Clock::time_point m_begin;
    Clock::time_point m_frameBegin;
    double m_renderSeconds = 0.0;  // over the frames done
};
