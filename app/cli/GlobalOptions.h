#pragma once
// The program's own options, before the command: where the plug-ins are and
// how the host's engine runs.
#include <string>

namespace CLI {
class App;
}

struct GlobalOptions {
    std::string plugins;
    std::string threads;
    std::string planning;
    std::string wisdom;
    std::string maxMemory;
    bool fastSizes = false;
};

void AddGlobalOptions(CLI::App& app, GlobalOptions& options);

// The host's engine settings: the flags over the environment, each checked
// before anything starts; a usage ProgramError naming the flag otherwise.
void ApplyEngineSettings(const GlobalOptions& options);
