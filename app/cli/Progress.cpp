#include "app/cli/Progress.h"

#include <cmath>
#include <unistd.h>

namespace {

constexpr int kBarWidth = 24;
constexpr const char* kProgram = "lumivane";

std::string Trimmed(std::string s)
{
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
    return s;
}

std::string Duration(double seconds)
{
    char text[32];
    if (seconds < 60.0) {
        std::snprintf(text, sizeof text, "%.2f s", seconds);
    } else {
        const long s = std::lround(seconds);
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", s / 3600, (s / 60) % 60, s % 60);
    }
    return text;
}

}  // namespace

Progress::Progress(bool quiet, bool verbose) : Progress(quiet, verbose, ::isatty(STDOUT_FILENO) == 1) {}

Progress::Progress(bool quiet, bool verbose, bool bar) : m_quiet(quiet), m_verbose(verbose), m_bar(bar && !quiet) {}

void Progress::Begin(int frames, bool sequence)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_total = frames;
    m_sequence = sequence;
    m_begin = Clock::now();
}

void Progress::FrameStarted(int frame)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_frame = frame;
    m_frameBegin = Clock::now();
    if (m_bar) DrawBar();
}

void Progress::FrameDone(int frame, const std::string& output)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const double seconds = std::chrono::duration<double>(Clock::now() - m_frameBegin).count();
    ++m_done;
    m_renderSeconds += seconds;
    if (m_quiet) return;
    if (m_bar) {
        DrawBar();
        return;
    }
    if (m_sequence)
        std::printf("frame %d [%d/%d]: wrote %s in %s\n", frame, m_done, m_total, output.c_str(),
                    Duration(seconds).c_str());
    else
        std::printf("wrote %s in %s\n", output.c_str(), Duration(seconds).c_str());
    std::fflush(stdout);
}

void Progress::FrameFailed(int frame, const std::string& message)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ClearBar();
    if (m_sequence)
        std::fprintf(stderr, "%s: error: frame %d: %s\n", kProgram, frame, message.c_str());
    else
        std::fprintf(stderr, "%s: error: %s\n", kProgram, message.c_str());
    std::fflush(stderr);
}

void Progress::ToolLine(const ConsoleLine& line)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (line.SubID == CONSOLE_Error) {
        ClearBar();
        std::fprintf(stderr, "%s%s\n", FramePrefix().c_str(), Trimmed(line.Text).c_str());
        std::fflush(stderr);
    } else if (m_verbose && !m_quiet) {
        ClearBar();
        std::printf("%s%s\n", FramePrefix().c_str(), Trimmed(line.Text).c_str());
        std::fflush(stdout);
    }
}

void Progress::Warning(const std::string& message)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ClearBar();
    std::fprintf(stderr, "%s: warning: %s\n", kProgram, message.c_str());
    std::fflush(stderr);
}

void Progress::Error(const std::string& message)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ClearBar();
    std::fprintf(stderr, "%s: error: %s\n", kProgram, message.c_str());
    std::fflush(stderr);
}

void Progress::Info(const std::string& message)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_quiet) return;
    ClearBar();
    std::printf("%s\n", message.c_str());
    std::fflush(stdout);
}

void Progress::Finish(int rendered, const std::vector<std::string>& failures, bool interrupted)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ClearBar();
    const double total = std::chrono::duration<double>(Clock::now() - m_begin).count();
    if (!m_quiet) {
        std::printf("%s: %d of %d frame%s rendered in %s", kProgram, rendered, m_total, m_total == 1 ? "" : "s",
                    Duration(total).c_str());
        if (rendered > 0) std::printf(" (%s per frame)", Duration(SecondsPerFrame()).c_str());
        std::printf("\n");
        std::fflush(stdout);
    }
    if (!failures.empty() && m_total > 1) {
        std::fprintf(stderr, "%s: %zu frame%s failed:\n", kProgram, failures.size(), failures.size() == 1 ? "" : "s");
        for (const std::string& f : failures) std::fprintf(stderr, "  %s\n", f.c_str());
    }
    if (interrupted) std::fprintf(stderr, "%s: interrupted; %d frame%s not rendered\n", kProgram,
                                  m_total - rendered - static_cast<int>(failures.size()),
                                  m_total - rendered - static_cast<int>(failures.size()) == 1 ? "" : "s");
    std::fflush(stderr);
}

void Progress::ClearBar()
{
    if (!m_barShown) return;
    std::printf("\r\033[K");
    std::fflush(stdout);
    m_barShown = false;
}

void Progress::DrawBar()
{
    const int filled = m_total > 0 ? kBarWidth * m_done / m_total : 0;
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.resize(kBarWidth, '.');
    std::string timing;
    if (m_done > 0) {
        timing = "  " + Duration(SecondsPerFrame()) + "/frame  " +
                 Duration(SecondsPerFrame() * (m_total - m_done)) + " left";
    }
    std::printf("\r[%s] frame %d  %d/%d%s\033[K", bar.c_str(), m_frame, m_done, m_total, timing.c_str());
    std::fflush(stdout);
    m_barShown = true;
}

std::string Progress::FramePrefix() const { return m_sequence ? "frame " + std::to_string(m_frame) + ": " : ""; }

double Progress::SecondsPerFrame() const { return m_done > 0 ? m_renderSeconds / m_done : 0.0; }
