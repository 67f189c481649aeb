#pragma once
// `lumivane render`: one image, or a sequence frame by frame, through the tool.
#include "app/Plate.h"
#include "app/Settings.h"

#include <string>
#include <vector>

struct RenderOptions {
    std::string input;   // file name or frame pattern; may come from --flow
    std::string output;  // file name or frame pattern; may come from --flow
    std::string kernel;  // optional kernel image: a still or a pattern
    std::string frames;  // a frame list (FramePattern.h); empty: INPUT's frames on disk
    std::string depth;   // "8", "16", "half", "float"; empty: the input's
    std::string flow;
    std::string saveFlow;
    std::string plugins;
    std::vector<Setting> settings;  // in command-line order
    PlateOptions plate;
    bool keepGoing = false;
    bool verbose = false;
    bool quiet = false;
    bool mkdir = false;     // make missing output folders
    bool dryRun = false;    // the first frame's figures, no render, no file
    bool saveOnly = false;  // write saveFlow and stop (`lumivane flow save`)
};

// Renders every frame and returns the exit status (ExitCodes.h): 0 only when
// every frame was written. Failures before the first frame (usage, flow,
// plug-ins) are thrown as ProgramErrors.
int RunRender(const RenderOptions& options);
