#include "app/SubmitWait.h"

#include "app/ExitCodes.h"
#include "app/Interrupt.h"
#include "app/Scheduler.h"
#include "app/SubmitPlan.h"

#include <chrono>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

constexpr auto kPollInterval = std::chrono::seconds(1);
constexpr std::size_t kLogLines = 6;

// Sleeps one poll interval; false when an interrupt came in meanwhile.
bool Pause()
{
    const auto until = std::chrono::steady_clock::now() + kPollInterval;
    while (std::chrono::steady_clock::now() < until) {
        if (InterruptRequested()) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return !InterruptRequested();
}

}  // namespace

std::vector<std::string> LastLines(const std::string& path, std::size_t count)
{
    std::ifstream file(path);
    std::deque<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
        if (lines.size() > count) lines.pop_front();
    }
    return {lines.begin(), lines.end()};
}

int WaitForJob(const Scheduler& scheduler, const std::string& jobId, const std::string& folder,
               const FramePattern& output, const std::vector<std::vector<int>>& tasks)
{
    const InterruptsWait looked;  // between polls
    std::printf("waiting for job %s\n", jobId.c_str());
    std::fflush(stdout);
    while (scheduler.Active(jobId)) {
        if (!Pause()) {
            std::fprintf(stderr, "lumivane: stopped waiting; job %s goes on (%s cancels it)\n", jobId.c_str(),
                         scheduler.CancelCommand(jobId).c_str());
            return ExitStatus(InterruptKind());
        }
    }
    int written = 0, total = 0;
    std::vector<int> failed;
    std::string why;
    for (std::size_t t = 0; t < tasks.size(); ++t) {
        std::vector<int> missing;
        for (const int frame : tasks[t])
            if (!std::filesystem::exists(output.At(frame))) missing.push_back(frame);
        total += static_cast<int>(tasks[t].size());
        written += static_cast<int>(tasks[t].size() - missing.size());
        if (missing.empty()) continue;
        failed.insert(failed.end(), missing.begin(), missing.end());
        const std::string log = TaskLogPath(folder, static_cast<int>(t) + 1);
        why += "task " + std::to_string(t + 1) + " did not write " + (missing.size() == 1 ? "frame " : "frames ") +
               FrameListText(missing) + "; the end of " + log + ":\n";
        const std::vector<std::string> lines = LastLines(log, kLogLines);
        if (lines.empty()) why += "    (no log: the task never ran, or was cancelled before it started)\n";
        for (const std::string& line : lines) why += "    " + line + "\n";
    }
    std::printf("job %s finished: %d of %d frames written\n", jobId.c_str(), written, total);
    if (failed.empty()) return ExitStatus(Exit::Success);
    std::fprintf(stderr, "lumivane: error: %s %s not written\n%s", failed.size() == 1 ? "frame" : "frames",
                 (FrameListText(failed) + (failed.size() == 1 ? " was" : " were")).c_str(), why.c_str());
    return ExitStatus(Exit::Render);
}
