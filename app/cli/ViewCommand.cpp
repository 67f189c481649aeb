#include "app/cli/ViewCommand.h"

#include "app/cli/ControlOptions.h"
#include "app/cli/SharedOptions.h"

#include <CLI/CLI.hpp>

CLI::App* AddViewCommand(CLI::App& app, ViewOptions& view)
{
    CLI::App* command = app.add_subcommand(
        "view", "Serve a live preview page on 127.0.0.1: the tool's controls beside the picture (open the printed "
                "address; Ctrl-C stops). Exit status: 0 stopped, 2 usage, 3 file.");
    command->add_option("INPUT", view.input, "Input image or frame pattern (may come from --flow)");
    AddKernelOption(*command, view.kernel);
    AddFramesOption(*command, view.frames, "Frames the page offers, as for render");
    AddFlowOption(*command, view.flow, "Start from a saved flow");
    command->add_option("--save-flow", view.saveFlow, "Where the page's \"Save flow\" writes (default: NAME.flow "
                                                      "beside INPUT)")
        ->type_name("FILE");
    command->add_option("--port", view.port, "Port on 127.0.0.1 (default: a free one)")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    command->add_option("--proxy", view.proxy, "Show the page's pictures shrunk by 1, 2 or 4 while settings change "
                                               "(full resolution when idle)")
        ->check(CLI::IsMember({1, 2, 4}))
        ->capture_default_str();
    command->add_option("--cache", view.cacheMegabytes, "Megabytes of rendered frames the page keeps, so a "
                                                        "sequence plays again without rendering")
        ->type_name("MB")
        ->capture_default_str();
    AddPlateOptions(*command, view.plate);
    AddSettingOptions(*command);
    return command;
}
