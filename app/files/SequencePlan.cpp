#include "app/files/SequencePlan.h"

#include "app/files/ExitCodes.h"
#include "util/FileIdentity.h"


#include <filesystem>
#include <map>
#include <numeric>
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
    int step = 0;
    for (std::size_t i = 1; i < found.size(); ++i) step = std::gcd(step, found[i] - found[i - 1]);
    if (step == 0) return FrameList::Of(std::move(found));
    const std::string run = std::to_string(found.front()) + "-" + std::to_string(found.back()) + "x" + std::to_string(step);
    try {
        return FrameList::Parse(run);
    } catch (const std::invalid_argument& e) {
        throw UsageError("INPUT " + input.Text() + ": its frames on disk run " + run + ", " + e.what() +
                         "; say which with --frames");
    }
}

namespace {

// The names `files` gives over `frames`, each file once.
std::vector<std::string> NamesOf(const NamedFiles& files, const std::vector<int>& frames)
{
    if (!files.pattern.HasFrameField()) return {files.pattern.Text()};
    std::vector<std::string> names;
    for (const int frame : frames) names.push_back(files.pattern.At(frame));
    return names;
}

}  // namespace

std::string WritesWhatIsRead(const std::vector<NamedFiles>& written, const std::vector<NamedFiles>& read,
                             const std::vector<int>& frames)
{
    std::map<std::string, std::string> readAt;  // identity -> "WHAT NAME"
    for (const NamedFiles& files : read)
        for (const std::string& name : NamesOf(files, frames)) readAt.emplace(FileIdentity(name), files.what + " " + name);
    for (const NamedFiles& files : written)
        for (const std::string& name : NamesOf(files, frames))
            if (const auto it = readAt.find(FileIdentity(name)); it != readAt.end())
                return files.what + " " + name + " is the same file as " + it->second +
                       ": writing it would destroy what is read; choose another name";
    return {};
}

void RefuseWritingWhatIsRead(const std::vector<NamedFiles>& written, const std::vector<NamedFiles>& read,
                             const std::vector<int>& frames)
{
    if (const std::string why = WritesWhatIsRead(written, read, frames); !why.empty()) throw UsageError(why);
}

void MakeOutputFolder(const std::string& output)
{
    const fs::path folder = fs::path(output).parent_path();
    if (folder.empty()) return;
    std::error_code ec;
    fs::create_directories(folder, ec);
    if (ec) throw FileError("cannot make folder " + folder.string() + " for " + output + ": " + ec.message());
}
