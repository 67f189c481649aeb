#include "python/Sequence.h"

#include "app/files/ExitCodes.h"
#include "app/files/SequencePlan.h"

#include <algorithm>
#include <deque>
#include <future>

namespace {

// The failure of `frame`, prefixed with it, as the exception kind it had.
[[noreturn]] void FailedAt(int frame, const std::exception_ptr& failure)
{
    const std::string at = "frame " + std::to_string(frame) + ": ";
    try {
        std::rethrow_exception(failure);
    } catch (const FrameMemoryError& e) {
        throw FrameMemoryError(at + e.what());
    } catch (const ProgramError& e) {
        throw ProgramError(e.Kind(), at + e.what());
    }
}

}  // namespace

std::vector<std::string> RenderSequence(ToolSession& tool, const SequenceJob& job, std::vector<std::string>& warnings)
{
    if (job.frames.empty()) throw UsageError("frames: give at least one frame");
    if (job.ahead < 1) throw UsageError("threads: " + std::to_string(job.ahead) + " is not at least 1");
    const FramePattern in = PatternOf("input", job.input);
    const FramePattern out = PatternOf("output", job.output);
    if (job.frames.size() > 1 && !out.HasFrameField())
        throw UsageError("output " + job.output + " has no frame field (#### or %04d) but " +
                         std::to_string(job.frames.size()) + " frames are asked for");
    // A frame is written while later ones are still to be read: never over one of them.
    RefuseWritingWhatIsRead({{"output", out}}, {{"input", in}}, job.frames);
    ModuleColourSpaces();  // a bad $OCIO fails here, before any thread starts

    struct Pending {
        int frame;
        std::future<std::vector<std::string>> written;
    };
    std::deque<std::future<PlateImages>> reads;
    std::deque<Pending> writes;
    std::size_t next = 0;  // the next frame to start reading
    const auto readAhead = [&] {
        while (next < job.frames.size() && reads.size() < static_cast<std::size_t>(job.ahead)) {
            const std::string path = in.At(job.frames[next++]);
            reads.push_back(std::async(std::launch::async, [&job, path] { return ReadPlate(path, job.plate); }));
        }
    };
    const auto finishWrite = [&] {
        Pending& oldest = writes.front();
        try {
            for (const std::string& w : oldest.written.get())
                if (std::find(warnings.begin(), warnings.end(), w) == warnings.end()) warnings.push_back(w);
        } catch (...) {
            FailedAt(oldest.frame, std::current_exception());
        }
        writes.pop_front();
    };

    std::vector<std::string> written;
    readAhead();
    for (const int frame : job.frames) {
        PlateImages plate;
        try {
            plate = reads.front().get();
            reads.pop_front();
            readAhead();
            plate.images = tool.RenderSources(plate.images, nullptr, frame);
        } catch (...) {
            FailedAt(frame, std::current_exception());
        }
        if (writes.size() >= static_cast<std::size_t>(job.ahead)) finishWrite();
        const std::string path = out.At(frame);
        writes.push_back({frame, std::async(std::launch::async, [&job, plate = std::move(plate), path] {
                              return WritePlate(plate, path, job.write);
                          })});
        written.push_back(path);
    }
    while (!writes.empty()) finishWrite();
    return written;
}
