#pragma once
// `lumivane render`: one image, or a sequence frame by frame, through the tool.
#include "app/files/Plate.h"
#include "app/session/Look.h"

#include <string>

namespace CLI {
class App;
}

struct RenderOptions {
    LookOptions look;  // INPUT, OUTPUT and the rest may come from --flow
    std::string saveFlow;
    std::string plugins;
    PlateOptions plate;
    bool keepGoing = false;
    bool verbose = false;
    bool quiet = false;
    bool mkdir = false;     // make missing output folders
    bool skipExisting = false;  // leave frames whose output file exists
    bool dryRun = false;    // the first frame's figures, no render, no file
};

// Adds `render` to `app`; `options` receives what it is given, but for the
// settings, read with SettingsInCommandLineOrder once parsed.
CLI::App* AddRenderCommand(CLI::App& app, RenderOptions& options);

// Renders every frame and returns the exit status (ExitCodes.h): 0 only when
// every frame was written. Failures before the first frame (usage, flow,
// plug-ins) are thrown as ProgramErrors.
int RunRender(const RenderOptions& options);
