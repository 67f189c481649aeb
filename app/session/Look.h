#pragma once
// A look as a command gives it: the file names and frames beside the
// controls, a flow to start from, and settings applied over it in order.
#include "app/session/RenderPlate.h"
#include "app/session/Settings.h"
#include "app/session/ToolNames.h"

#include <string>
#include <vector>

class PluginHost;

struct LookOptions {
    FlowNames names;  // each empty one may come from the flow
    std::string flow;
    std::vector<Setting> settings;  // in command-line order
};

// The look's tool, loaded into `host` (new with its defaults when no flow is
// given), its inputs, and the names given completed from the flow: its
// connections and what it keeps in its "program" object. The settings are not
// applied yet: they go at the first frame, known once the frames are.
struct LoadedLook {
    Operator& tool;
    ToolInputs inputs;
    FlowNames names;
};
LoadedLook LoadLook(PluginHost& host, const LookOptions& look);

// The look written to the flow at `path` without rendering: the flow's
// values, then the settings at the first of the frames given, with the names
// kept. A usage ProgramError for a malformed frame list or compression.
void SaveLook(PluginHost& host, const LookOptions& look, const std::string& path);
