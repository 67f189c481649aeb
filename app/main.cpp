// lumivane: renders images and sequences through the Lumivane 2 tool plug-in.
#include "app/CommandLineHints.h"
#include "app/Describe.h"
#include "app/ExitCodes.h"
#include "app/FlowCommand.h"
#include "app/Interrupt.h"
#include "app/KernelCommand.h"
#include "app/RenderJob.h"
#include "app/Scheduler.h"
#include "app/SequencePlan.h"
#include "app/Settings.h"
#include "app/SubmitCommand.h"
#include "app/ViewServer.h"

#include "host/EngineSettings.h"
#include "util/AtomicFile.h"
#include "util/FftwWisdom.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr const char* kVersion = "2.0";

constexpr const char* kRenderHelp =
    "Render INPUT through the tool into OUTPUT. Either may be a frame pattern (plate.####.exr, plate.%04d.exr) "
    "rendered over --frames. Controls are applied in the order given, after those of --flow. "
    "Exit status: 0 every frame written, 2 usage, 3 file, 4 render failure, 129 hung up (SIGHUP), 130 interrupted.";

struct GlobalOptions {
    std::string plugins;
    std::string threads;
    std::string planning;
    std::string wisdom;
    std::string maxMemory;
    bool fastSizes = false;
};

void AddGlobalOptions(CLI::App& app, GlobalOptions& g)
{
    const std::string group = "Plug-ins and engine";
    app.add_option("--plugins", g.plugins, "Load plug-in modules from this folder (default: LUMIVANE_PLUGIN_PATH, else "
                                           "lib/lumivane/plugins beside an installed program, else the build's)")
        ->type_name("DIR")
        ->group(group);
    app.add_option("--threads", g.threads, "Worker threads for the tool, 1 to 256 (default: LUMIVANE_THREADS, "
                                           "else one per core)")
        ->type_name("N")
        ->group(group);
    app.add_option("--fft-planning", g.planning,
                   "FFT planning effort: estimate or measure (default: LUMIVANE_FFT_PLANNING, else estimate)")
        ->type_name("EFFORT")
        ->group(group);
    app.add_option("--fft-wisdom", g.wisdom, "FFTW wisdom file, read and updated (default: LUMIVANE_FFT_WISDOM)")
        ->type_name("FILE")
        ->group(group);
    app.add_option("--max-memory", g.maxMemory,
                   "Refuse frames that would need more memory than this, e.g. 4G or 512M; a number without "
                   "K, M, G or T counts bytes (default: LUMIVANE_MAX_MEMORY, else the memory available, at most "
                   "75% of the machine's)")
        ->type_name("SIZE")
        ->group(group);
    app.add_flag("--fast-sizes", g.fastSizes,
                 "Transform sides with no prime factor above 7 instead of powers of two: the same image, "
                 "usually sooner and in less memory (default: LUMIVANE_TRANSFORM_SIZES, else power-of-two)")
        ->group(group);
}

// `text` read by `parse`, a usage error naming `flag` when it is malformed.
template <class Parse>
auto FlagValue(const char* flag, const std::string& text, Parse parse)
{
    try {
        return parse(text);
    } catch (const std::invalid_argument& e) {
        throw ProgramError(Exit::Usage, std::string(flag) + ": " + e.what());
    }
}

// The host's engine settings: the flags over the environment, each checked
// before anything starts.
void ApplyEngineSettings(const GlobalOptions& g)
{
    try {
        CheckEngineEnvironment();
    } catch (const std::invalid_argument& e) {
        throw ProgramError(Exit::Usage, e.what());
    }
    if (!g.threads.empty()) SetEngineThreads(FlagValue("--threads", g.threads, ParseThreads));
    if (!g.planning.empty()) SetEngineFftPlanning(FlagValue("--fft-planning", g.planning, ParseFftPlanning));
    if (!g.wisdom.empty()) SetEngineFftWisdom(g.wisdom);
    if (!g.maxMemory.empty()) SetMemoryLimit(FlagValue("--max-memory", g.maxMemory, ParseMemorySize));
    if (g.fastSizes) SetEngineTransformSizes(TransformSizes::Smooth);
    // Refused before anything starts: a render would only find out once its plans are measured.
    if (const std::string wisdom = EngineFftWisdom(); !wisdom.empty())
        if (const std::string why = AtomicFile::CannotWrite(wisdom, NotFftwWisdom); !why.empty())
            throw FileError("cannot use " + wisdom + " as the FFT wisdom file (--fft-wisdom, LUMIVANE_FFT_WISDOM): " +
                            why);
}

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
    CLI::App* renderCmd = app.add_subcommand("render", kRenderHelp);
    renderCmd->add_option("INPUT", render.input, "Input image or frame pattern (may come from --flow)");
    renderCmd->add_option("OUTPUT", render.output, "Output image or frame pattern; the extension picks the format");
    renderCmd->add_option("--kernel", render.kernel, "Kernel image (a still or a frame pattern) instead of a shape")
        ->type_name("KERNEL");
    AddFramesOption(*renderCmd, render.frames, "Frames to render, e.g. 1-24, 1-24x2, 1,3,7-9 (default: INPUT's "
                                               "frames on disk, first to last); the frame number is the time");
    renderCmd->add_option("--depth", render.depth, "Output data depth (default: the input's)")
        ->check(CLI::IsMember({"8", "16", "half", "float"}));
    renderCmd->add_option("--compression", render.compression,
                          "OpenEXR output compression: none, rle, zips, zip, piz, pxr24, b44, b44a, dwaa or dwab, "
                          "zip/zips/dwaa/dwab with an optional :LEVEL (default: the input's)")
        ->type_name("NAME[:LEVEL]");
    renderCmd->add_option("--flow", render.flow, "Load controls, keys and file names from a saved flow")
        ->type_name("FILE");
    renderCmd->add_option("--save-flow", render.saveFlow, "Save the controls and file names as a flow")
        ->type_name("FILE");
    renderCmd->add_flag("-k,--keep-going", render.keepGoing, "Go on with the other frames after a frame fails");
    renderCmd->add_flag("-v,--verbose", render.verbose,
                        "Show the plug-in module, and per frame the blur sizes in pixels, transform sizes, "
                        "memory estimate and the tool's progress lines");
    renderCmd->add_flag("--dry-run", render.dryRun,
                        "Check every frame's input and kernel files (their headers) and output folder, and show "
                        "what -v shows for the first frame; render and write nothing");
    renderCmd->add_flag("--mkdir", render.mkdir, "Make the output folder when it is missing");
    renderCmd->add_flag("--skip-existing", render.skipExisting,
                        "Leave the frames whose output file exists (a frame is written whole or not at all)");
    renderCmd->add_flag("-q,--quiet", render.quiet, "Show errors only");
    AddPlateOptions(*renderCmd, render.plate);
    AddSettingOptions(*renderCmd);

    KernelOptions kernel;
    CLI::App* kernelCmd = app.add_subcommand(
        "kernel", "Write the red, green and blue kernels the controls would synthesise, as one image");
    kernelCmd->add_option("OUTPUT", kernel.output, "Image file to write")->required();
    kernelCmd->add_option("--width", kernel.width, "Width of the image relative sizes refer to")
        ->capture_default_str();
    kernelCmd->add_option("--height", kernel.height, "Height of that image")->capture_default_str();
    kernelCmd->add_option("--frame", kernel.frame, "Time the controls are read at")->capture_default_str();
    kernelCmd->add_option("--depth", kernel.depth, "Output data depth (default: float)")
        ->check(CLI::IsMember({"8", "16", "half", "float"}));
    AddSettingOptions(*kernelCmd);

    RenderOptions flowSave;
    CLI::App* flowSaveCmd = AddFlowCommand(app, flowSave);

    ViewOptions view;
    CLI::App* viewCmd = app.add_subcommand(
        "view", "Serve a live preview page on 127.0.0.1: the tool's controls beside the picture (open the printed "
                "address; Ctrl-C stops). Exit status: 0 stopped, 2 usage, 3 file.");
    viewCmd->add_option("INPUT", view.input, "Input image or frame pattern (may come from --flow)");
    viewCmd->add_option("--kernel", view.kernel, "Kernel image (a still or a frame pattern) instead of a shape")
        ->type_name("KERNEL");
    AddFramesOption(*viewCmd, view.frames, "Frames the page offers, as for render");
    viewCmd->add_option("--flow", view.flow, "Start from a saved flow")->type_name("FILE");
    viewCmd->add_option("--save-flow", view.saveFlow, "Where the page's \"Save flow\" writes (default: NAME.flow "
                                                     "beside INPUT)")
        ->type_name("FILE");
    viewCmd->add_option("--port", view.port, "Port on 127.0.0.1 (default: a free one)")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    viewCmd->add_option("--proxy", view.proxy, "Show the page's pictures shrunk by 1, 2 or 4 while settings change "
                                               "(full resolution when idle)")
        ->check(CLI::IsMember({1, 2, 4}))
        ->capture_default_str();
    AddPlateOptions(*viewCmd, view.plate);
    AddSettingOptions(*viewCmd);

    SubmitOptions submit;
    CLI::App* submitCmd = AddSubmitCommand(app, submit);

    DescribeOptions describe;
    CLI::App* describeCmd = app.add_subcommand("describe", "List the loaded tools with their pages and controls");
    describeCmd->add_flag("--json", describe.json, "Print JSON instead of text");

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
            render.settings = SettingsInCommandLineOrder(*renderCmd);
            render.plugins = global.plugins;
            return RunRender(render);
        }
        if (flowSaveCmd->parsed()) {
            flowSave.settings = SettingsInCommandLineOrder(*flowSaveCmd);
            flowSave.plugins = global.plugins;
            return RunRender(flowSave);
        }
        if (viewCmd->parsed()) {
            view.settings = SettingsInCommandLineOrder(*viewCmd);
            view.plugins = global.plugins;
            return RunView(view);
        }
        if (submitCmd->parsed()) {
            submit.settings = SettingsInCommandLineOrder(*submitCmd);
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
