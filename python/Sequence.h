#pragma once
// Many frames of a sequence through one tool, as `lumivane render` renders
// them, with the next frames read and the last ones written while a frame
// renders, so the files and the transform keep the cores busy together.
#include "python/PlateFiles.h"
#include "python/ToolSession.h"

#include <string>
#include <vector>

struct SequenceJob {
    std::string input, output;  // frame patterns (SequencePlan.h), or one file for every frame
    std::vector<int> frames;    // each rendered at its own time
    PlateOptions plate;
    WriteChoices write;
    int ahead = 2;              // frames read ahead, and writes under way, at most
};

// Renders the frames in order and returns the files written, and in
// `warnings` what the writer said, each once. Throws the first failure,
// prefixed with its frame, once the reads and writes under way have ended:
// the frames before it are written whole, none after it.
std::vector<std::string> RenderSequence(ToolSession& tool, const SequenceJob& job, std::vector<std::string>& warnings);
