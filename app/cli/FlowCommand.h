#pragma once
// `lumivane flow save OUT.flow [INPUT OUTPUT] [--flow IN] [controls]`: a flow
// written from the command line without rendering.
#include "app/cli/RenderJob.h"

namespace CLI {
class App;
}

// Adds `flow` with its `save` command to `app`; `options` receives what it is
// given. Returns the `save` command, to ask whether it was parsed.
CLI::App* AddFlowCommand(CLI::App& app, RenderOptions& options);
