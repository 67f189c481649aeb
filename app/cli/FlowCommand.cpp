#include "app/cli/FlowCommand.h"

#include "app/cli/ControlOptions.h"
#include "app/cli/Progress.h"
#include "app/cli/SharedOptions.h"
#include "app/files/ExitCodes.h"
#include "app/session/Plugins.h"

#include <CLI/CLI.hpp>

CLI::App* AddFlowCommand(CLI::App& app, FlowSaveOptions& options)
{
    CLI::App* flow = app.add_subcommand("flow", "Work with flow files without rendering");
    flow->require_subcommand(1);
    CLI::App* save = flow->add_subcommand(
        "save", "Write a flow: the controls (from --flow, then the settings in the order given), the file names "
                "and frames, as `render --flow` would use them. Nothing is rendered.");
    save->add_option("FLOW", options.saveFlow, "The flow file to write")->required();
    save->add_option("INPUT", options.look.names.input, "Input image or frame pattern");
    save->add_option("OUTPUT", options.look.names.output, "Output image or frame pattern");
    AddLookOptions(*save, options.look, "Frames to render, e.g. 1-24, 1-24x2, 1,3,7-9", "Start from this flow");
    AddSettingOptions(*save);
    return save;
}

int RunFlowSave(const FlowSaveOptions& opt)
{
    Progress progress(false, false);
    PluginHost host(PluginFolders(opt.plugins), [&](const std::string& w) { progress.Warning(w); });
    host.Doc().SetConsoleListener([&](const ConsoleLine& line) { progress.ToolLine(line); });
    SaveLook(host, opt.look, opt.saveFlow);
    progress.Info("saved flow " + opt.saveFlow);
    return ExitStatus(Exit::Success);
}
