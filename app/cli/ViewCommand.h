#pragma once
// The `view` command's options; the page's server runs it (view/ViewServer.h).
#include "app/view/ViewServer.h"

namespace CLI {
class App;
}

CLI::App* AddViewCommand(CLI::App& app, ViewOptions& options);
