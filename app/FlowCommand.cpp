#include "app/FlowCommand.h"

#include "app/SequencePlan.h"
#include "app/Settings.h"

#include <CLI/CLI.hpp>

CLI::App* AddFlowCommand(CLI::App& app, RenderOptions& options)
{
    options.saveOnly = true;
    CLI::App* flow = app.add_subcommand("flow", "Work with flow files without rendering");
    flow->require_subcommand(1);
    CLI::App* save = flow->add_subcommand(
        "save", "Write a flow: the controls (from --flow, then the settings in the order given), the file names "
                "and frames, as `render --flow` would use them. Nothing is rendered.");
    save->add_option("FLOW", options.saveFlow, "The flow file to write")->required();
    save->add_option("INPUT", options.input, "Input image or frame pattern");
    save->add_option("OUTPUT", options.output, "Output image or frame pattern");
    save->add_option("--kernel", options.kernel, "Kernel image (a still or a frame pattern)")->type_name("KERNEL");
    AddFramesOption(*save, options.frames, "Frames to render, e.g. 1-24, 1-24x2, 1,3,7-9");
    save->add_option("--depth", options.depth, "Output data depth")->check(CLI::IsMember({"8", "16", "half", "float"}));
    save->add_option("--compression", options.compression, "OpenEXR output compression")->type_name("NAME[:LEVEL]");
    save->add_option("--flow", options.flow, "Start from this flow")->type_name("FILE");
    AddSettingOptions(*save);
    return save;
}
