#pragma once
// `lumivane flow save OUT.flow [INPUT OUTPUT] [--flow IN] [controls]`: a flow
// written from the command line without rendering.
#include "app/session/Look.h"

#include <string>

namespace CLI {
class App;
}

struct FlowSaveOptions {
    LookOptions look;
    std::string saveFlow;
    std::string plugins;
};

// Adds `flow` with its `save` command to `app`; `options` receives what it is
// given. Returns the `save` command, to ask whether it was parsed.
CLI::App* AddFlowCommand(CLI::App& app, FlowSaveOptions& options);

// Writes the flow; returns the exit status, throws ProgramErrors.
int RunFlowSave(const FlowSaveOptions& options);
