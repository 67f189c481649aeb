#pragma once
// What a render covers beyond the tool's settings: which frames, and the
// folders its output goes to.
#include "app/files/FramePattern.h"

#include <optional>
#include <string>

// `text` as a frame pattern; a usage ProgramError starting with `what` (the
// option or argument it came from) when it holds two frame fields.
FramePattern PatternOf(const std::string& what, const std::string& text);

// The frames to render: `frames` when given (a frame list), else, when
// `input` names a sequence, the frames of it found on disk. Nothing for a
// still with no frames given. Throws a usage ProgramError for a malformed
// list, and a file one when the pattern matches no file.
std::optional<FrameList> FramesToRender(const std::string& frames, const FramePattern& input);

// Makes the folder `output` is written into, and the folders above it, when
// missing. Throws a file ProgramError naming the folder and the reason.
void MakeOutputFolder(const std::string& output);
