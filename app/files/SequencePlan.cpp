#include "app/files/SequencePlan.h"

#include "app/files/ExitCodes.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

FramePattern PatternOf(const std::string& what, const std::string& text)
{
    try {
        return FramePattern(text);
    } catch (const std::invalid_argument& e) {
        throw UsageError(what + ": " + e.what());
    }
}

std::optional<FrameList> FramesToRender(const std::string& frames, const FramePattern& input)
{
    if (!frames.empty()) {
        try {
            return FrameList::Parse(frames);
        } catch (const std::invalid_argument& e) {
            throw UsageError(std::string("--frames: ") + e.what());
        }
    }
    if (!input.HasFrameField()) return std::nullopt;
    std::vector<int> found;
    try {
        found = FramesOnDisk(input);
    } catch (const std::invalid_argument& e) {
        throw UsageError(std::string("INPUT ") + e.what() + ": say which with --frames");
    }
    if (found.empty())
        throw FileError("no file matches INPUT " + input.Text() + " (looked for " + input.At(1) +
                        " and the like); say which frames with --frames");
    return FrameList::Of(std::move(found));
}

void MakeOutputFolder(const std::string& output)
{
    const fs::path folder = fs::path(output).parent_path();
    if (folder.empty()) return;
    std::error_code ec;
    fs::create_directories(folder, ec);
    if (ec) throw FileError("cannot make folder " + folder.string() + " for " + output + ": " + ec.message());
}
