#include "app/cli/RenderCommand.h"

#include "app/cli/ControlOptions.h"
#include "app/cli/Progress.h"
#include "app/cli/SharedOptions.h"
#include "app/files/ExitCodes.h"
#include "app/files/FramePattern.h"
#include "app/files/ImageFiles.h"
#include "app/files/Interrupt.h"
#include "app/files/SequencePlan.h"
#include "app/session/Plugins.h"
#include "app/session/ToolConsole.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <optional>

namespace {

// A dry run names this many frames that would fail, then counts the rest.
constexpr std::size_t kFailuresShown = 10;

// The images of one pattern: the last file read is kept, so a still used for
// every frame is read once.
class ImageSource {
public:
    const ImageFile& At(const FramePattern& pattern, int frame)
    {
        const std::string path = pattern.At(frame);
        if (path != m_path || !m_file.image) {
            m_file = ImageFile{};
            m_path.clear();
            m_file = ReadImageFile(path);
            m_path = path;
        }
        return m_file;
    }

private:
    std::string m_path;
    ImageFile m_file;
};

// What to render, once the command line and the flow are merged.
struct Job : FlowNames {
    std::optional<FramePattern> inPattern, outPattern, kernelPattern;
    std::optional<int> outDepth;
    std::string outCompression;  // as the writer takes it; empty: the input's
    FrameList frameList;
    bool sequence = false;
};

Job PlanJob(const RenderOptions& opt, const FlowNames& names)
{
    Job job;
    static_cast<FlowNames&>(job) = names;
    const std::string fromFlow = opt.look.flow.empty() ? "" : " (nor in the flow " + opt.look.flow + ")";
    if (!job.compression.empty() && !job.output.empty())
        job.outCompression = ParseCompression(job.compression, job.output);
    if (job.input.empty()) throw UsageError("no INPUT image given" + fromFlow);
    if (job.output.empty()) throw UsageError("no OUTPUT file given" + fromFlow);

    job.inPattern = PatternOf("INPUT", job.input);
    job.outPattern = PatternOf("OUTPUT", job.output);
    if (!job.kernel.empty()) job.kernelPattern = PatternOf("--kernel", job.kernel);
    if (!job.depth.empty()) job.outDepth = ParseDepth(job.depth);

    const std::optional<FrameList> frames = FramesToRender(job.frames, *job.inPattern);
    job.sequence = frames.has_value();
    if (job.sequence) {
        job.frameList = *frames;
    } else {
        for (const auto* p : {&job.inPattern, &job.outPattern, &job.kernelPattern})
            if (*p && (*p)->HasFrameField())
                throw UsageError((*p)->Text() + " names a sequence: say which frames with --frames FIRST-LAST");
    }
    if (job.frameList.Count() > 1 && !job.outPattern->HasFrameField())
        throw UsageError("OUTPUT " + job.output + " has no frame field (#### or %04d) but " +
                         (job.frames.empty() ? "INPUT " + job.input + " has" : "--frames " + job.frames + " asks for") +
                         " " + std::to_string(job.frameList.Count()) + " frames");
    return job;
}

// Refuses, before anything is read or written, an OUTPUT or --save-flow that
// would write over a file the render reads. --save-flow may replace the flow
// it started from.
void RefuseWritingInputs(const RenderOptions& opt, const Job& job)
{
    const LookOptions& look = opt.look;
    const auto named = [&](const char* what, const std::string& given, const std::string& used) {
        return NamedFiles{given.empty() && !look.flow.empty() ? std::string(what) + " (from the flow " + look.flow + ")"
                                                             : std::string(what),
                          PatternOf(what, used)};
    };
    std::vector<NamedFiles> read;
    if (!job.input.empty()) read.push_back(named("INPUT", look.names.input, job.input));
    if (!job.kernel.empty()) read.push_back(named("--kernel", look.names.kernel, job.kernel));
    const std::vector<int>& frames = job.frameList.Frames();
    if (!opt.saveFlow.empty())
        RefuseWritingWhatIsRead({{"--save-flow", PatternOf("--save-flow", opt.saveFlow)}}, read, frames);
    if (!look.flow.empty()) read.push_back({"--flow", PatternOf("--flow", look.flow)});
    if (!job.output.empty()) RefuseWritingWhatIsRead({named("OUTPUT", look.names.output, job.output)}, read, frames);
}

// The frames whose output file is not there yet. Frames are written under a
// temporary name and renamed when complete, so an output file that exists is
// a whole frame.
std::vector<int> FramesMissing(const Job& job)
{
    std::vector<int> missing;
    for (const int frame : job.frameList.Frames())
        if (!std::filesystem::exists(job.outPattern->At(frame))) missing.push_back(frame);
    return missing;
}

// What --dry-run checks of a frame without reading pixels: its input and
// kernel files and their headers, and, unless --mkdir would make it, the
// output folder. Throws the file ProgramError the render would meet.
void CheckFrameFiles(const Job& job, int frame, bool mkdir)
{
    CheckImageHeader(job.inPattern->At(frame));
    if (job.kernelPattern) CheckImageHeader(job.kernelPattern->At(frame));
    if (!mkdir) CheckOutputFolder(job.outPattern->At(frame));
}

}  // namespace

CLI::App* AddRenderCommand(CLI::App& app, RenderOptions& render)
{
    CLI::App* command = app.add_subcommand(
        "render",
        "Render INPUT through the tool into OUTPUT. Either may be a frame pattern (plate.####.exr, plate.%04d.exr) "
        "rendered over --frames. Controls are applied in the order given, after those of --flow. "
        "Exit status: 0 every frame written, 2 usage, 3 file, 4 render failure, 129 hung up (SIGHUP), 130 interrupted.");
    command->add_option("INPUT", render.look.names.input, "Input image or frame pattern (may come from --flow)");
    command->add_option("OUTPUT", render.look.names.output,
                        "Output image or frame pattern; the extension picks the format");
    AddLookOptions(*command, render.look,
                   "Frames to render, e.g. 1-24, 1-24x2, 1,3,7-9 (default: INPUT's frames on disk, first to "
                   "last); the frame number is the time",
                   "Load controls, keys and file names from a saved flow");
    command->add_option("--save-flow", render.saveFlow, "Save the controls and file names as a flow")
        ->type_name("FILE");
    command->add_flag("-k,--keep-going", render.keepGoing, "Go on with the other frames after a frame fails");
    command->add_flag("-v,--verbose", render.verbose,
                      "Show the plug-in module, and per frame the blur sizes in pixels, transform sizes, "
                      "memory estimate and the tool's progress lines");
    command->add_flag("--dry-run", render.dryRun,
                      "Check every frame's input and kernel files (their headers) and output folder, and show "
                      "what -v shows for the first frame; render and write nothing");
    command->add_flag("--mkdir", render.mkdir, "Make the output folder when it is missing");
    command->add_flag("--skip-existing", render.skipExisting,
                      "Leave the frames whose output file exists (a frame is written whole or not at all)");
    command->add_flag("-q,--quiet", render.quiet, "Show errors only");
    AddPlateOptions(*command, render.plate);
    AddSettingOptions(*command);
    return command;
}

int RunRender(const RenderOptions& opt)
{
    Progress progress(opt.quiet, opt.verbose || opt.dryRun);
    PluginHost host(PluginFolders(opt.plugins), [&](const std::string& w) { progress.Warning(w); });
    FusionDoc& doc = host.Doc();
    FrameConsole frameConsole;
    doc.SetConsoleListener([&](const ConsoleLine& line) {
        frameConsole.Add(line);
        progress.ToolLine(line);
    });

    const LoadedLook look = LoadLook(host, opt.look);
    Operator* tool = &look.tool;
    Input* sourceInput = &look.inputs.source;
    Input* kernelInput = &look.inputs.kernel;
    const Job job = PlanJob(opt, look.names);
    RefuseWritingInputs(opt, job);

    // After the flow's values, in command-line order, at the first frame's time.
    ApplySettings(*tool, opt.look.settings, job.frameList.First());
    if (!opt.saveFlow.empty()) {
        SaveRenderFlow(doc, job, *sourceInput, *kernelInput, opt.saveFlow);
        progress.Info("saved flow " + opt.saveFlow);
    }
    if (opt.verbose || opt.dryRun) progress.Info("plug-in module " + host.ModuleOf(tool->Reg()->ID().str()));

    PlateSource sources(opt.plate);
    ImageSource kernels;
    int rendered = 0;
    std::vector<std::string> failures;
    std::optional<Exit> firstFailure;
    const auto failed = [&](int frame, const std::exception& e) {
        const Exit kind = KindOf(e);
        if (!firstFailure) firstFailure = kind;
        failures.push_back("frame " + std::to_string(frame) + ": " + MessageOf(e) + " [" + KindName(kind) + "]");
        // The tool's own failure line is already on the screen.
        const bool toolSaidWhy = kind == Exit::Render && frameConsole.HasFailure();
        if (failures.size() <= kFailuresShown || !opt.dryRun)
            progress.FrameFailed(frame, toolSaidWhy ? "not rendered: the tool set no output" : MessageOf(e));
    };
    std::vector<int> frames = opt.skipExisting && !opt.dryRun ? FramesMissing(job) : job.frameList.Frames();
    if (frames.size() < job.frameList.Frames().size())
        progress.Info("skipping " + std::to_string(job.frameList.Count() - frames.size()) + " of " +
                      std::to_string(job.frameList.Count()) + " frames: their output files exist");
    progress.Begin(static_cast<int>(frames.size()), job.sequence);
    if (opt.dryRun) {
        // Every frame's files; the figures then come from the first frame that has them.
        std::vector<int> checked;
        for (const int frame : frames) {
            if (InterruptRequested()) break;
            try {
                CheckFrameFiles(job, frame, opt.mkdir);
                checked.push_back(frame);
            } catch (const std::exception& e) {
                failed(frame, e);
            }
        }
        frames.swap(checked);
    }
    for (const int frame : frames) {
        if (InterruptRequested()) break;
        progress.FrameStarted(frame);
        const TimeStamp time = frame;
        frameConsole.Clear();
        try {
            const std::string out = job.outPattern->At(frame);
            if (opt.mkdir && !opt.dryRun) MakeOutputFolder(out);
            if (!opt.dryRun) CheckOutputFolder(out);
            if (job.kernelPattern) kernelInput->SetSource(kernels.At(*job.kernelPattern, frame).image.get(), time);
            // The tool plans the frame from the file's header (its figures with
            // --verbose) and refuses one past the memory limit before a pixel is read.
            const Plate& plate = sources.At(*job.inPattern, frame, [&](const std::vector<Ref<Image>>& shapes) {
                PlanPlate(doc, tool, *sourceInput, shapes, time, frameConsole);
            });
            if (opt.dryRun) break;  // the first frame's figures, and nothing written
            const PlateResults frameResults = RenderPlate(doc, tool, *sourceInput, plate, time, frameConsole);
            if (InterruptRequested()) break;
            for (const std::string& warning : plate.Write(out, frameResults.images, job.outDepth, job.outCompression))
                if (sources.FirstTime(warning)) progress.Warning(warning);
            ++rendered;
            progress.FrameDone(frame, out);
        } catch (const std::exception& e) {
            failed(frame, e);
            if (!opt.keepGoing || opt.dryRun) break;
        }
    }
    sourceInput->SetSource(nullptr, 0.0);
    kernelInput->SetSource(nullptr, 0.0);

    const bool interrupted = InterruptRequested();
    if (!opt.dryRun) progress.Finish(rendered, failures, interrupted);
    else if (!failures.empty() && job.frameList.Count() > 1)
        progress.Error("dry run: " + std::to_string(failures.size()) + " of the " +
                       std::to_string(job.frameList.Count()) + " frames would fail" +
                       (failures.size() > kFailuresShown ? " (the first " + std::to_string(kFailuresShown) + " shown)"
                                                         : std::string()) +
                       "; nothing written");
    if (interrupted) return ExitStatus(InterruptKind());
    return ExitStatus(firstFailure.value_or(Exit::Success));
}
