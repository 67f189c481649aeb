#include "app/cli/SubmitCommand.h"

#include "app/cli/ControlOptions.h"
#include "app/cli/SharedOptions.h"
#include "app/files/FramePattern.h"

#include <CLI/CLI.hpp>

CLI::App* AddSubmitCommand(CLI::App& app, SubmitOptions& options)
{
    CLI::App* submit = app.add_subcommand(
        "submit", "Render a sequence on a Slurm cluster: the look frozen into a flow in .lumivane-jobs/ beside "
                  "OUTPUT, one job array whose tasks render their frames with `render --skip-existing`. "
                  "Exit status: 0 submitted (with --wait: every frame written), 2 usage, 3 file or refused "
                  "by the scheduler, 4 frames not written, 129 hung up, 130 interrupted.");
    FlowNames& names = options.look.names;
    submit->add_option("INPUT", names.input, "Input frame pattern, e.g. plate.####.exr")->required();
    submit->add_option("OUTPUT", names.output, "Output frame pattern; the extension picks the format")->required();
    submit->add_option("SBATCH-ARGS", options.schedulerArgs, "After --: arguments for sbatch, as they are");
    AddFramesOption(*submit, names.frames, "Frames to render, e.g. 1001-1100, 1-24x2, 1,3,7-9")->required();
    submit->add_option("--per-task", options.perTask, "Frames per task (default: about a minute of work, "
                                                      "at most 1000 tasks)")
        ->type_name("N")
        ->check(CLI::Range(1, kMaxFrames));
    AddKernelOption(*submit, names.kernel);
    AddFlowOption(*submit, options.look.flow, "Start from a saved flow");
    AddOutputFormatOptions(*submit, names);
    submit->add_option("--partition", options.partition, "Slurm partition (default: the cluster's)")
        ->type_name("P");
    submit->add_flag("--dry-run", options.dryRun, "Print the job script and the sbatch command; submit nothing");
    submit->add_flag("--mkdir", options.mkdir, "Make the output folder when it is missing");
    submit->add_flag("--wait", options.wait, "Wait for the job, then report the frames written and those not, "
                                             "with the end of their task logs");
    AddPlateOptions(*submit, options.plate);
    AddSettingOptions(*submit);
    return submit;
}
