#pragma once
// `lumivane submit`: a sequence rendered by a cluster's scheduler, one job
// array whose tasks each run `lumivane render` on their share of the frames.
//
// The look is frozen first: the controls (--flow, then the settings in the
// order given, as `render` applies them) and the absolute file names go into
// one flow in a job folder beside the output, `.lumivane-jobs/NAME/`, with the
// job script and the task logs. Tasks render with --skip-existing, so the same
// command submitted again renders only the frames that are missing.
#include "app/Plate.h"
#include "app/Settings.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

struct SubmitOptions {
    std::string input, output, kernel, frames, depth, compression, flow;
    std::vector<Setting> settings;  // in command-line order
    PlateOptions plate;
    int perTask = 0;  // 0: about a minute of work a task
    std::string partition;
    std::vector<std::string> schedulerArgs;  // after `--`, for the submitting program as they are
    bool dryRun = false;
    bool wait = false;
    bool mkdir = false;  // make a missing output folder
    // The program's own options, passed on to every task.
    std::string plugins, threads, maxMemory;
};

CLI::App* AddSubmitCommand(CLI::App& app, SubmitOptions& options);

class Scheduler;

// Returns the exit status: 0 once submitted (with --wait: once every frame is
// written), 4 when --wait finds frames that were not written, 130 when waiting
// is interrupted (the job goes on). Throws ProgramErrors for what stops it
// before the job is submitted.
int RunSubmit(const SubmitOptions& options, const Scheduler& scheduler);
