#include "app/SubmitPlan.h"

#include "app/Subprocess.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

constexpr double kSecondsPerTask = 60.0;
constexpr std::uint64_t kMiB = 1u << 20;
// Beside the tool's estimate, a render holds the program, its libraries and
// OpenImageIO's caches (about 136 MiB with a small frame), and the input frame
// several times over: as read from the file, as the host image, and on its way
// to the output file. Peak resident memory of 1920x1080 and 3840x2160 frames
// was 3.4 to 4.2 input frames (as floats) above the estimate plus that base.
constexpr std::uint64_t kProgramOverhead = 192 * kMiB;
constexpr int kInputCopies = 4;

}  // namespace

std::string FrameListText(const std::vector<int>& frames)
{
    std::string text;
    std::size_t i = 0;
    while (i < frames.size()) {
        // The longest run from frames[i] with one positive step.
        std::size_t end = i + 1;
        const long long step = end < frames.size() ? static_cast<long long>(frames[end]) - frames[i] : 0;
        if (step > 0)
            while (end < frames.size() && static_cast<long long>(frames[end]) - frames[end - 1] == step) ++end;
        // A run of two with a gap is clearer as two frames.
        if (step <= 0 || (end - i == 2 && step > 1)) end = i + 1;
        if (!text.empty()) text += ',';
        text += std::to_string(frames[i]);
        if (end - i > 1) {
            text += '-' + std::to_string(frames[end - 1]);
            if (step > 1) text += 'x' + std::to_string(step);
        }
        i = end;
    }
    return text;
}

std::vector<std::vector<int>> SplitFrames(const std::vector<int>& frames, int perTask)
{
    std::vector<std::vector<int>> tasks;
    const std::size_t n = static_cast<std::size_t>(std::max(perTask, 1));
    for (std::size_t i = 0; i < frames.size(); i += n)
        tasks.emplace_back(frames.begin() + i, frames.begin() + std::min(frames.size(), i + n));
    return tasks;
}

int DefaultFramesPerTask(int frames, double secondsPerFrame)
{
    const double perMinute = kSecondsPerTask / std::max(secondsPerFrame, 1e-3);
    const int byTime = static_cast<int>(std::clamp(std::floor(perMinute), 1.0, static_cast<double>(frames)));
    const int byCount = (frames + kMaxTasks - 1) / kMaxTasks;
    return std::max({byTime, byCount, 1});
}

std::uint64_t ReportedFrameMemory(const std::string& renderOutput)
{
    constexpr const char* kFigure = "memory about ";
    const std::size_t at = renderOutput.find(kFigure);
    if (at == std::string::npos) return 0;
    const char* number = renderOutput.c_str() + at + std::strlen(kFigure);
    char* unit = nullptr;
    const double value = std::strtod(number, &unit);
    if (unit == number) return 0;
    // GiB figures are rounded to a tenth: count the tenth in full. Small
    // figures come in KiB or bytes.
    const double mib = std::strncmp(unit, " GiB", 4) == 0   ? (value + 0.1) * 1024.0
                       : std::strncmp(unit, " KiB", 4) == 0 ? value / 1024.0
                       : std::strncmp(unit, " byte", 5) == 0 ? value / 1048576.0
                                                             : value;
    return static_cast<std::uint64_t>(std::ceil(mib)) * kMiB;
}

std::uint64_t TaskMemoryMiB(std::uint64_t frameEstimate, std::uint64_t inputBytes)
{
    const std::uint64_t bytes = frameEstimate + kProgramOverhead + kInputCopies * inputBytes;
    return (bytes + kMiB - 1) / kMiB;
}

std::string TaskBody(const std::vector<std::vector<int>>& tasks, const std::vector<std::string>& render)
{
    std::string body = "case \"$task\" in\n";
    for (std::size_t t = 0; t < tasks.size(); ++t)
        body += "  " + std::to_string(t + 1) + ") frames=" + FrameListText(tasks[t]) + " ;;\n";
    body += "  *) echo \"lumivane: this job has no task $task\" >&2; exit 2 ;;\n"
            "esac\n"
            "exec " + ShellCommand(render) + " --frames \"$frames\"\n";
    return body;
}
