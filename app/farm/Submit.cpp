#include "app/farm/Submit.h"

#include "app/files/ExitCodes.h"
#include "app/files/FramePattern.h"
#include "app/files/Interrupt.h"
#include "app/session/Plugins.h"
#include "app/session/Look.h"
#include "app/farm/Scheduler.h"
#include "app/files/SequencePlan.h"
#include "app/farm/Subprocess.h"
#include "app/farm/SubmitPlan.h"
#include "app/farm/SubmitWait.h"

#include "host/EngineSettings.h"
#include "util/CheckedFile.h"
#include "util/OwnFile.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <thread>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr const char* kJobsFolder = ".lumivane-jobs";
constexpr const char* kFlowFile = "look.flow";
constexpr const char* kScriptFile = "job.sh";
// Cores a task asks for unless --threads or LUMIVANE_THREADS say.
constexpr unsigned kDefaultCores = 4;

std::string Absolute(const std::string& path)
{
    return path.empty() ? path : fs::absolute(path).lexically_normal().string();
}

// The program that runs `submit` is the one every task runs.
std::string ThisProgram()
{
    const std::string self = OwnFile();
    if (self.empty()) throw FileError("cannot find this program's own file (/proc/self/exe)");
    return self;
}

// The job's name: the output's name before its frame field, and the time.
std::string JobName(const std::string& output)
{
    std::string stem = fs::path(output).filename().string();
    stem = stem.substr(0, stem.find_first_of("#%"));
    std::string name;
    for (const char c : stem) name += std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' ? c : '_';
    while (!name.empty() && name.back() == '_') name.pop_back();
    char when[32];
    const std::time_t now = std::time(nullptr);
    std::strftime(when, sizeof when, "%Y%m%d-%H%M%S", std::localtime(&now));
    return (name.empty() ? "frames" : name) + "-" + when;
}

// A folder that is removed with everything in it when this goes away, unless kept.
class WorkFolder {
public:
    WorkFolder() = default;
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    ~WorkFolder()
    {
        std::error_code ec;
        if (!m_path.empty() && !m_keep) fs::remove_all(m_path, ec);
    }
    // A new folder in `parent` whose name starts with `name`; taken names get a number.
    void MakeIn(const fs::path& parent, const std::string& name)
    {
        std::error_code ec;
        fs::create_directories(parent, ec);
        if (ec) throw FileError("cannot make folder " + parent.string() + ": " + ec.message());
        for (int n = 1; n < 1000; ++n) {
            const fs::path path = parent / (n == 1 ? name : name + "-" + std::to_string(n));
            if (fs::create_directory(path, ec)) {
                m_path = path.string();
                return;
            }
            if (ec) throw FileError("cannot make folder " + path.string() + ": " + ec.message());
        }
        throw FileError("cannot make a job folder in " + parent.string() + ": every name is taken");
    }
    void MakeTemporary()
    {
        std::string path = (fs::temp_directory_path() / "lumivane-submit-XXXXXX").string();
        if (!mkdtemp(path.data())) throw FileError("cannot make a temporary folder " + path);
        m_path = path;
    }
    void Keep() { m_keep = true; }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
    bool m_keep = false;
};

// Every frame asked for must have its input file.
void CheckInputFrames(const std::string& input, const FramePattern& pattern, const std::vector<int>& frames)
{
    if (!pattern.HasFrameField()) {
        if (!fs::exists(input)) throw FileError("INPUT " + input + " does not exist");
        return;
    }
    std::vector<int> onDisk;
    try {
        onDisk = FramesOnDisk(pattern);
    } catch (const std::invalid_argument& e) {
        throw UsageError(std::string("INPUT ") + e.what());
    }
    std::vector<int> missing;
    for (const int f : frames)
        if (!std::binary_search(onDisk.begin(), onDisk.end(), f)) missing.push_back(f);
    if (missing.empty()) return;
    throw FileError("--frames asks for frames that INPUT " + input + " does not have: " + FrameListText(missing) +
                    " (on disk: " + (onDisk.empty() ? std::string("none") : FrameListText(onDisk)) + ")");
}

// The input frame's pixels as floats, as the program holds them.
std::uint64_t InputFrameBytes(const std::string& path)
{
    const auto peeked = PeekImageFile(path);
    if (!peeked) return 0;
    const auto& [layout, channels] = *peeked;
    return std::uint64_t(std::max(layout.width, layout.fullWidth)) * std::max(layout.height, layout.fullHeight) *
           channels * sizeof(float);
}

unsigned CoresPerTask(const SubmitOptions& opt)
{
    if (!opt.threads.empty() || std::getenv("LUMIVANE_THREADS")) return EngineThreads();
    return std::min(kDefaultCores, std::max(1u, std::thread::hardware_concurrency()));
}

std::vector<std::string> PlateArguments(const PlateOptions& plate)
{
    std::vector<std::string> args;
    if (!plate.colourIn.empty()) args.insert(args.end(), {"--colorspace-in", plate.colourIn});
    if (!plate.colourOut.empty()) args.insert(args.end(), {"--colorspace-out", plate.colourOut});
    if (plate.raw) args.push_back("--raw");
    if (!plate.layers.empty()) args.insert(args.end(), {"--layers", plate.layers});
    return args;
}

// The program's command line up to `render`, as every task and the trial run it.
std::vector<std::string> ProgramCommand(const SubmitOptions& opt, unsigned cores)
{
    std::vector<std::string> argv = {ThisProgram(), "--threads", std::to_string(cores)};
    if (!opt.maxMemory.empty()) argv.insert(argv.end(), {"--max-memory", opt.maxMemory});
    // The farm's tasks may not see this environment: the size rule goes on their command line.
    if (EngineTransformSizes() == TransformSizes::Smooth) argv.push_back("--fast-sizes");
    argv.push_back("render");
    return argv;
}

struct Trial {
    std::uint64_t frameMemory = 0;
    double seconds = 0.0;
};

// Runs `render` (`argv`) on the first frame as a task would, to learn the
// frame's memory and, with `timed`, its time. The frame goes to `scratch`,
// never to the output.
Trial RunTrial(std::vector<std::string> argv, int frame, const std::string& scratch, bool timed)
{
    argv.insert(argv.end(), {"--frames", std::to_string(frame), timed ? "-v" : "--dry-run"});
    const auto begin = std::chrono::steady_clock::now();
    const ProgramRun run = RunProgram(argv);
    Trial trial;
    trial.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::error_code ec;
    fs::remove(scratch, ec);
    if (run.status != 0) {
        const Exit kind = run.status == 2 ? Exit::Usage : run.status == 3 ? Exit::File : Exit::Render;
        std::string why = run.err;
        while (!why.empty() && std::isspace(static_cast<unsigned char>(why.back()))) why.pop_back();
        if (why.empty()) why = "exit status " + std::to_string(run.status);
        throw ProgramError(kind, "the first frame, " + std::to_string(frame) + ", fails here, so it would on the farm: " +
                                     why);
    }
    trial.frameMemory = ReportedFrameMemory(run.out);
    return trial;
}

void WriteTextFile(const std::string& path, const std::string& text)
{
    PendingFile pending(path);
    CheckedFile file(pending.TempPath());
    file.Write(text.data(), text.size());
    if (const std::string why = file.Close(); !why.empty()) throw pending.Failure(why);
    pending.Commit();
    fs::permissions(path, fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec,
                    fs::perm_options::add);
}

// The plug-in folders as the tasks get them, in LUMIVANE_PLUGIN_PATH: a list
// separated by ':', which a folder's own name may not hold.
std::string PluginPath(const std::string& option)
{
    std::string path;
    for (const std::string& folder : PluginFolders(option)) {
        const std::string absolute = Absolute(folder);
        if (absolute.find(':') != std::string::npos)
            throw UsageError("plug-in folder " + absolute + ": its name holds a ':', so it cannot be passed to the "
                             "tasks in LUMIVANE_PLUGIN_PATH, whose folders ':' separates; link to it from a name "
                             "without one and use --plugins with that");
        path += (path.empty() ? "" : ":") + absolute;
    }
    return path;
}

// OUTPUT's frames go into one folder, which the job folder goes into too.
void CheckOutputPattern(const std::string& output, const FramePattern& pattern, bool mkdir)
{
    if (!pattern.HasFrameField())
        throw UsageError("OUTPUT " + output + " has no frame field (#### or %04d): every frame needs a file");
    if (pattern.FieldInFolderName())
        throw UsageError("OUTPUT " + output + " has its frame field in a folder name; put it in the file name");
    const fs::path folder = fs::path(pattern.At(0)).parent_path();
    std::error_code ec;
    if (!mkdir && !fs::is_directory(folder, ec))
        throw FileError("OUTPUT folder " + folder.string() + " does not exist (--mkdir makes it)");
    if (!mkdir && ::access(folder.c_str(), W_OK) != 0)
        throw FileError("OUTPUT folder " + folder.string() + " is not writable (" + std::strerror(errno) + ")");
}

}  // namespace

int RunSubmit(const SubmitOptions& opt, const Scheduler& scheduler)
{
    if (!opt.dryRun && FindOnPath(scheduler.SubmitProgram()).empty())
        throw FileError(scheduler.SubmitProgram() + " is not on PATH: submit from a machine of the cluster, "
                        "or use --dry-run to see the job");
    // Tasks run on other machines, from other folders: every name is absolute.
    const FlowNames& given = opt.look.names;
    const std::string input = Absolute(given.input), output = Absolute(given.output), kernel = Absolute(given.kernel);
    const FramePattern outPattern = PatternOf("OUTPUT", output), inPattern = PatternOf("INPUT", input);
    CheckOutputPattern(given.output, outPattern, opt.mkdir);
    const std::string pluginPath = PluginPath(opt.plugins);
    const FrameList frames = *FramesToRender(given.frames, inPattern);  // --frames is required
    CheckInputFrames(input, inPattern, frames.Frames());
    std::vector<NamedFiles> read = {{"INPUT", inPattern}};
    if (!kernel.empty()) read.push_back({"--kernel", PatternOf("--kernel", kernel)});
    if (!opt.look.flow.empty()) read.push_back({"--flow", PatternOf("--flow", opt.look.flow)});
    RefuseWritingWhatIsRead({{"OUTPUT", outPattern}}, read, frames.Frames());

    const fs::path jobs = fs::path(output).parent_path() / kJobsFolder;
    // A dry run freezes the look in a temporary folder, and shows the job
    // folder a real one would make.
    const std::string name = JobName(output);
    WorkFolder work;
    if (opt.dryRun) work.MakeTemporary();
    else work.MakeIn(jobs, name);
    const std::string jobFolder = opt.dryRun ? (jobs / name).string() : work.Path();

    // The look, frozen: what `flow save` writes for the same command.
    LookOptions frozen = opt.look;
    frozen.names.input = input;
    frozen.names.output = output;
    frozen.names.kernel = kernel;
    const std::string frozenFlow = (fs::path(work.Path()) / kFlowFile).string();
    {
        PluginHost host(PluginFolders(opt.plugins), [](const std::string& w) {
            std::fprintf(stderr, "lumivane: warning: %s\n", w.c_str());
        });
        SaveLook(host, frozen, frozenFlow);
    }

    const unsigned cores = CoresPerTask(opt);
    std::vector<std::string> render = ProgramCommand(opt, cores);
    const std::string flow = (fs::path(jobFolder) / kFlowFile).string();
    const std::vector<std::string> plate = PlateArguments(opt.plate);

    // The first frame, rendered here as a task would render it.
    std::vector<std::string> trialCommand = render;
    if (!opt.plugins.empty()) trialCommand.insert(trialCommand.begin() + 1, {"--plugins", opt.plugins});
    const std::string scratch = (fs::path(work.Path()) / ("trial" + fs::path(output).extension().string())).string();
    trialCommand.insert(trialCommand.end(), {"--flow", frozenFlow, input, scratch});
    trialCommand.insert(trialCommand.end(), plate.begin(), plate.end());
    Trial trial;
    {
        // A Ctrl-C reaches the trial run too; the job folder goes once it has stopped.
        const InterruptsWait looked;
        trial = RunTrial(trialCommand, frames.First(), scratch, opt.perTask == 0);
    }
    if (InterruptRequested()) return ExitStatus(InterruptKind());

    const int perTask = opt.perTask > 0 ? opt.perTask : DefaultFramesPerTask(frames.Count(), trial.seconds);
    const std::vector<std::vector<int>> tasks = SplitFrames(frames.Frames(), perTask);
    if (static_cast<int>(tasks.size()) > kMaxTasks)
        throw UsageError("--per-task " + std::to_string(perTask) + " makes " + std::to_string(tasks.size()) +
                         " tasks of the " + std::to_string(frames.Count()) + " frames; at most " +
                         std::to_string(kMaxTasks) + " are allowed");

    ArrayJob job;
    job.name = fs::path(jobFolder).filename().string();
    job.folder = jobFolder;
    job.tasks = static_cast<int>(tasks.size());
    job.cores = static_cast<int>(cores);
    job.memoryMiB = TaskMemoryMiB(trial.frameMemory, InputFrameBytes(inPattern.At(frames.First())));
    job.partition = opt.partition;
    job.extra = opt.schedulerArgs;
    render.insert(render.end(), {"--flow", flow, "--skip-existing", "--keep-going"});
    render.insert(render.end(), plate.begin(), plate.end());
    job.body = "export LUMIVANE_PLUGIN_PATH=" + ShellQuote(pluginPath) + "\n" + TaskBody(tasks, render);
    const std::string script = (fs::path(jobFolder) / kScriptFile).string();
    const std::string text = scheduler.Script(job);

    if (opt.dryRun) {
        std::printf("%s\n# %d task(s) of up to %d frames, %llu MiB and %d core(s) each; the look frozen in %s\n%s\n",
                    text.c_str(), job.tasks, perTask, static_cast<unsigned long long>(job.memoryMiB), job.cores,
                    flow.c_str(), ShellCommand(scheduler.SubmitCommand(job, script)).c_str());
        return ExitStatus(Exit::Success);
    }
    WriteTextFile(script, text);
    const std::string id = scheduler.Submit(job, script);
    work.Keep();

    int existing = 0;
    for (const int f : frames.Frames()) existing += fs::exists(outPattern.At(f)) ? 1 : 0;
    std::printf("submitted job %s: %d task(s) of up to %d frames, %llu MiB and %d core(s) each\n", id.c_str(), job.tasks,
                perTask, static_cast<unsigned long long>(job.memoryMiB), job.cores);
    if (existing > 0) std::printf("%d of the %d frames exist already and are left as they are\n", existing, frames.Count());
    std::printf("follow it: %s\ncancel it: %s\njob folder: %s (the frozen look, the job script, task-K.log of task K)\n",
                scheduler.FollowCommand(id).c_str(), scheduler.CancelCommand(id).c_str(), jobFolder.c_str());
    std::fflush(stdout);
    if (!opt.wait) return ExitStatus(Exit::Success);
    return WaitForJob(scheduler, id, jobFolder, outPattern, tasks);
}

std::string TaskLogPath(const std::string& folder, int index)
{
    return (fs::path(folder) / ("task-" + std::to_string(index) + ".log")).string();
}
