// lumivane: renders images and sequences through the Lumivane 2 tool plug-in.
#include "app/cli/ControlOptions.h"
#include "app/cli/CommandLineHints.h"
#include "app/cli/DescribeCommand.h"
#include "app/cli/FlowCommand.h"
#include "app/cli/GlobalOptions.h"
#include "app/cli/KernelCommand.h"
#include "app/cli/RenderCommand.h"
#include "app/cli/SubmitCommand.h"
#include "app/cli/ViewCommand.h"
#include "app/farm/Scheduler.h"
#include "app/files/ExitCodes.h"
#include "app/files/Interrupt.h"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace {

constexpr const char* kVersion = "2.0";

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app{"lumivane: frequency-domain blur and deconvolution for compositing"};
    app.set_version_flag("--version", std::string("lumivane ") + kVersion);
    app.require_subcommand(1);
    app.fallthrough();
    GlobalOptions global;
    AddGlobalOptions(app, global);

    RenderOptions render;
    CLI::App* renderCmd = AddRenderCommand(app, render);
    KernelOptions kernel;
    CLI::App* kernelCmd = AddKernelCommand(app, kernel);
    FlowSaveOptions flowSave;
    CLI::App* flowSaveCmd = AddFlowCommand(app, flowSave);
    ViewOptions view;
    CLI::App* viewCmd = AddViewCommand(app, view);
    SubmitOptions submit;
    CLI::App* submitCmd = AddSubmitCommand(app, submit);
    DescribeOptions describe;
    AddDescribeCommand(app, describe);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const std::string hint = e.get_exit_code() == 0 ? std::string() : NearMissHint(app);
        if (!hint.empty())
            app.failure_message([hint](const CLI::App* a, const CLI::Error& error) {
                std::string text = CLI::FailureMessage::simple(a, error);
                return text.insert(text.find('\n'), " (" + hint + ")");
            });
        const int printed = app.exit(e);
        return printed == 0 ? ExitStatus(Exit::Success) : ExitStatus(Exit::Usage);
    }

    try {
        ApplyEngineSettings(global);
        InstallInterruptHandlers();
        if (renderCmd->parsed()) {
            render.look.settings = SettingsInCommandLineOrder(*renderCmd);
            render.plugins = global.plugins;
            return RunRender(render);
        }
        if (flowSaveCmd->parsed()) {
            flowSave.look.settings = SettingsInCommandLineOrder(*flowSaveCmd);
            flowSave.plugins = global.plugins;
            return RunFlowSave(flowSave);
        }
        if (viewCmd->parsed()) {
            view.settings = SettingsInCommandLineOrder(*viewCmd);
            view.plugins = global.plugins;
            return RunView(view);
        }
        if (submitCmd->parsed()) {
            submit.look.settings = SettingsInCommandLineOrder(*submitCmd);
            submit.plugins = global.plugins;
            submit.threads = global.threads;
            submit.maxMemory = global.maxMemory;
            return RunSubmit(submit, *MakeSlurmScheduler());
        }
        if (kernelCmd->parsed()) {
            kernel.settings = SettingsInCommandLineOrder(*kernelCmd);
            kernel.plugins = global.plugins;
            return RunKernel(kernel);
        }
        describe.plugins = global.plugins;
        return RunDescribe(describe);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "lumivane: error: %s\n", MessageOf(e).c_str());
        return ExitStatus(KindOf(e));
    }
}
