#include "app/RenderJob.h"

#include "app/ExitCodes.h"
#include "app/FramePattern.h"
#include "app/ImageFiles.h"
#include "app/Interrupt.h"
#include "app/Plate.h"
#include "app/Plugins.h"
#include "app/Progress.h"
#include "app/SequencePlan.h"
#include "app/ToolConsole.h"
#include "host/EngineSettings.h"
#include "host/Flow.h"

#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <unistd.h>

using json = nlohmann::ordered_json;

namespace {

constexpr const char* kSourceInput = "input";
constexpr const char* kKernelInput = "kernel";
// What the program keeps in a flow's "program" object.
constexpr const char* kFlowOutput = "output";
constexpr const char* kFlowFrames = "frames";
constexpr const char* kFlowDepth = "depth";
constexpr const char* kFlowCompression = "compression";
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

std::string FromProgram(const json& program, const char* key)
{
    if (!program.is_object() || !program.contains(key)) return {};
    const json& v = program[key];
    return v.is_string() ? v.get<std::string>() : v.dump();
}

// What to render, once the command line and the flow are merged.
struct Job : FlowNames {
    std::optional<FramePattern> inPattern, outPattern, kernelPattern;
    std::optional<int> outDepth;
    std::string outCompression;  // as the writer takes it; empty: the input's
    FrameList frameList;
    bool sequence = false;
};

Job PlanJob(const RenderOptions& opt, const Input& source, const Input& kernel, const json& program)
{
    Job job;
    job.input = !opt.input.empty() ? opt.input : source.Connection();
    job.kernel = !opt.kernel.empty() ? opt.kernel : kernel.Connection();
    job.output = !opt.output.empty() ? opt.output : PathFromFlow(opt.flow, FromProgram(program, kFlowOutput));
    job.frames = !opt.frames.empty() ? opt.frames : FromProgram(program, kFlowFrames);
    job.depth = !opt.depth.empty() ? opt.depth : FromProgram(program, kFlowDepth);
    job.compression = !opt.compression.empty() ? opt.compression : FromProgram(program, kFlowCompression);
    const std::string fromFlow = opt.flow.empty() ? "" : " (nor in the flow " + opt.flow + ")";
    if (!job.compression.empty() && !job.output.empty())
        job.outCompression = ParseCompression(job.compression, job.output);
    if (opt.saveOnly) {
        // A flow may hold controls alone; its frames are found when it is rendered.
        if (!job.frames.empty()) job.frameList = *FramesToRender(job.frames, FramePattern(""));
        return job;
    }
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
    const auto named = [&](const char* what, const std::string& given, const std::string& used) {
        return NamedFiles{given.empty() && !opt.flow.empty() ? std::string(what) + " (from the flow " + opt.flow + ")"
                                                            : std::string(what),
                          PatternOf(what, used)};
    };
    std::vector<NamedFiles> read;
    if (!job.input.empty()) read.push_back(named("INPUT", opt.input, job.input));
    if (!job.kernel.empty()) read.push_back(named("--kernel", opt.kernel, job.kernel));
    const std::vector<int>& frames = job.frameList.Frames();
    if (!opt.saveFlow.empty())
        RefuseWritingWhatIsRead({{"--save-flow", PatternOf("--save-flow", opt.saveFlow)}}, read, frames);
    if (!opt.flow.empty()) read.push_back({"--flow", PatternOf("--flow", opt.flow)});
    if (!job.output.empty()) RefuseWritingWhatIsRead({named("OUTPUT", opt.output, job.output)}, read, frames);
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

Operator* ToolFromFlow(FusionDoc& doc, const std::string& flow, json* program)
{
    try {
        json loaded = LoadFlow(doc, flow);
        if (program) *program = std::move(loaded);
    } catch (const ValueRefused& e) {
        // The same value given with --set would be a usage error.
        throw UsageError(e.what());
    } catch (const std::runtime_error& e) {
        throw FileError(e.what());
    }
    for (const auto& t : doc.Tools())
        if (t->Reg()) return t.get();
    throw FileError(flow + ": the flow holds no tool");
}

Operator* MakeTool(PluginHost& host, const std::string& flow, json& program)
{
    const std::string toolClass = host.ToolClass();
    if (flow.empty()) return host.Doc().AddTool(FuID(toolClass));
    return ToolFromFlow(host.Doc(), flow, &program);
}

void SaveRenderFlow(const FusionDoc& doc, const FlowNames& job, Input& source, Input& kernel,
                    const std::string& path)
{
    source.SetConnection(job.input);
    kernel.SetConnection(job.kernel);
    json keep = json::object();
    if (!job.output.empty()) keep[kFlowOutput] = PathForFlow(path, job.output);
    if (!job.frames.empty()) keep[kFlowFrames] = job.frames;
    if (!job.depth.empty()) keep[kFlowDepth] = job.depth;
    if (!job.compression.empty()) keep[kFlowCompression] = job.compression;
    try {
        SaveFlow(doc, path, keep);
    } catch (const std::runtime_error& e) {
        throw FileError(e.what());
    }
}

namespace {

std::uint64_t ResidentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::uint64_t pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::uint64_t ImageBytes(const Image& i)
{
    return static_cast<std::uint64_t>(i.Width) * static_cast<std::uint64_t>(i.Height) *
           static_cast<std::uint64_t>(i.PixelStride()) * sizeof(float);
}

// Tells the tool what the program holds while layer `layer` of a plate
// (`sources`, with their pixels or as the shapes of a plate not read yet)
// renders, beside that layer (which the tool counts): the program itself (its
// code, libraries, plug-in and what reading files left behind, measured once,
// at the first frame, without the plate's pixels), the other layers, the
// results of the layers before, and for writing the file an interleaved float
// copy, the writer's conversion and its encoding buffers, counted as five more
// copies of the plate.
void CountHostMemory(const std::vector<Ref<Image>>& sources, std::size_t layer)
{
    std::uint64_t plateBytes = 0, held = 0, before = 0;
    for (std::size_t k = 0; k < sources.size(); ++k) {
        plateBytes += ImageBytes(*sources[k]);
        if (sources[k]->HasPixels()) held += ImageBytes(*sources[k]);
        if (k < layer) before += ImageBytes(*sources[k]);
    }
    static const std::uint64_t program = std::max(ResidentBytes(), held) - held;
    SetHostFrameMemory(program + plateBytes - ImageBytes(*sources[layer]) + before + 5 * plateBytes);
}

}  // namespace

void PlanPlate(FusionDoc& doc, Operator* tool, Input& source, const std::vector<Ref<Image>>& shapes, TimeStamp time,
               const FrameConsole& console)
{
    for (std::size_t k = 0; k < shapes.size(); ++k) {
        CountHostMemory(shapes, k);
        source.SetSource(shapes[k].get(), time);
        doc.PreCalc(tool, time);
        source.SetSource(nullptr, time);
        if (console.HasFailure()) throw RenderError(console.Why());
    }
}

PlateResults RenderPlate(FusionDoc& doc, Operator* tool, Input& source, const Plate& plate, TimeStamp time,
                         const FrameConsole& console)
{
    PlateResults r;
    for (std::size_t k = 0; k < plate.Sources().size(); ++k) {
        CountHostMemory(plate.Sources(), k);
        source.SetSource(plate.Sources()[k].get(), time);
        {
            const InterruptsWait looked;  // right below
            r.results.push_back(doc.Render(tool, time));
        }
        if (InterruptRequested()) return {};  // the frame is dropped, not written
        if (!r.results.back()) throw RenderError(console.Why());
        r.images.push_back(dynamic_cast<const Image*>(r.results.back().get()));
        if (!r.images.back()) throw RenderError("the tool's output is not an image");
    }
    return r;
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

    json program;
    Operator* tool = MakeTool(host, opt.flow, program);
    Input* sourceInput = tool->FindInput(kSourceInput);
    Input* kernelInput = tool->FindInput(kKernelInput);
    if (!sourceInput || !kernelInput)
        throw FileError(std::string("the tool has no \"") + kSourceInput + "\" and \"" + kKernelInput + "\" inputs");
    const Job job = PlanJob(opt, *sourceInput, *kernelInput, program);
    RefuseWritingInputs(opt, job);

    // After the flow's values, in command-line order, at the first frame's time.
    ApplySettings(*tool, opt.settings, job.frameList.First());
    if (!opt.saveFlow.empty()) {
        SaveRenderFlow(doc, job, *sourceInput, *kernelInput, opt.saveFlow);
        progress.Info("saved flow " + opt.saveFlow);
    }
    if (opt.saveOnly) return ExitStatus(Exit::Success);
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
