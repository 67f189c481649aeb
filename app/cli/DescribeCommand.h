#pragma once
// The `describe` command's options; the session describes the tools (Describe.h).
#include "app/session/Describe.h"

namespace CLI {
class App;
}

CLI::App* AddDescribeCommand(CLI::App& app, DescribeOptions& options);
