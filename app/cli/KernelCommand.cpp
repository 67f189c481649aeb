#include "app/cli/KernelCommand.h"

#include "app/cli/ControlOptions.h"
#include "app/cli/SharedOptions.h"
#include "app/files/ExitCodes.h"
#include "app/files/ImageFiles.h"
#include "app/files/Interrupt.h"
#include "app/session/DrawKernels.h"
#include "app/session/Plugins.h"
#include "app/session/ToolConsole.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <optional>

CLI::App* AddKernelCommand(CLI::App& app, KernelOptions& kernel)
{
    CLI::App* command = app.add_subcommand(
        "kernel", "Write the red, green and blue kernels the controls would synthesise, as one image");
    command->add_option("OUTPUT", kernel.output, "Image file to write")->required();
    command->add_option("--width", kernel.width, "Width of the image relative sizes refer to")->capture_default_str();
    command->add_option("--height", kernel.height, "Height of that image")->capture_default_str();
    command->add_option("--frame", kernel.frame, "Time the controls are read at")->capture_default_str();
    AddDepthOption(*command, kernel.depth, "float");
    AddSettingOptions(*command);
    return command;
}

int RunKernel(const KernelOptions& opt)
{
    if (opt.width < 1 || opt.height < 1)
        throw UsageError("--width and --height must be at least 1 (got " + std::to_string(opt.width) + "x" +
                         std::to_string(opt.height) + ")");
    std::optional<int> depth;
    if (!opt.depth.empty()) depth = ParseDepth(opt.depth);

    PluginHost host(PluginFolders(opt.plugins), [](const std::string& w) {
        std::fprintf(stderr, "lumivane: warning: %s\n", w.c_str());
    });
    FrameConsole console;
    host.Doc().SetConsoleListener([&](const ConsoleLine& line) { console.Add(line); });
    Operator* tool = host.Doc().AddTool(FuID(host.ToolClass()));
    ApplySettings(*tool, opt.settings, opt.frame);

    const Ref<Image> drawing = DrawKernels(host.Doc(), *tool, console, opt.width, opt.height, opt.frame);
    if (!drawing || InterruptRequested()) return ExitStatus(InterruptKind());  // nothing written
    WriteImageFile(opt.output, *drawing, {}, depth);
    std::printf("wrote %s: %dx%d, the kernels of a %dx%d frame at time %d\n", opt.output.c_str(), drawing->Width,
                drawing->Height, opt.width, opt.height, opt.frame);
    return ExitStatus(Exit::Success);
}
