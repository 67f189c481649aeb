#pragma once
// What a render covers beyond the tool's settings: which frames, and the
// folders its output goes to.
#include "app/files/FramePattern.h"

#include <optional>
#include <string>
#include <vector>

// `text` as a frame pattern; a usage ProgramError starting with `what` (the
// option or argument it came from) when it holds two frame fields.
FramePattern PatternOf(const std::string& what, const std::string& text);

// The frames to render: `frames` when given (a frame list), else, when `input`
// names a sequence, every frame from the first to the last found on disk, at
// the step they all keep (1001, 1003, 1007: 1005 too). A frame missing in
// between is one to render, so it fails as a missing frame of a list does,
// instead of the sequence closing up around it. Nothing for a still with no
// frames given. Throws a usage ProgramError for a malformed list, and a file
// one when the pattern matches no file.
std::optional<FrameList> FramesToRender(const std::string& frames, const FramePattern& input);

// A file (or the frames of a sequence) a command reads or writes, with the
// argument or option that named it ("INPUT", "--kernel", "--save-flow").
struct NamedFiles {
    std::string what;
    FramePattern pattern;
};

// A message naming both files when a file of `written`, at one of `frames`,
// is the same file (util/FileIdentity.h) as a file of `read` at any of them,
// else "": a result must never destroy what it is made from.
std::string WritesWhatIsRead(const std::vector<NamedFiles>& written, const std::vector<NamedFiles>& read,
                             const std::vector<int>& frames);
// Throws that message as a usage ProgramError.
void RefuseWritingWhatIsRead(const std::vector<NamedFiles>& written, const std::vector<NamedFiles>& read,
                             const std::vector<int>& frames);

// Makes the folder `output` is written into, and the folders above it, when
// missing. Throws a file ProgramError naming the folder and the reason.
void MakeOutputFolder(const std::string& output);
