// The Slurm adapter: a job array submitted with sbatch, followed with squeue.
#include "app/files/ExitCodes.h"
#include "app/farm/Scheduler.h"
#include "app/farm/Subprocess.h"

namespace {

constexpr const char* kSbatch = "sbatch";
constexpr const char* kSqueue = "squeue";

std::string Trimmed(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

class SlurmScheduler : public Scheduler {
public:
    std::string SubmitProgram() const override { return kSbatch; }

    std::string Script(const ArrayJob& job) const override
    {
        // The log name is relative: sbatch runs the job in the job folder
        // (--chdir on its command line), so no path has to be quoted here.
        return "#!/bin/bash\n"
               "#SBATCH --job-name=" + job.name + "\n"
               "#SBATCH --array=1-" + std::to_string(job.tasks) + "\n"
               "#SBATCH --ntasks=1\n"
               "#SBATCH --cpus-per-task=" + std::to_string(job.cores) + "\n"
               "#SBATCH --mem=" + std::to_string(job.memoryMiB) + "M\n"
               "#SBATCH --output=task-%a.log\n"
               "task=$SLURM_ARRAY_TASK_ID\n" +
               job.body;
    }

    std::vector<std::string> SubmitCommand(const ArrayJob& job, const std::string& script) const override
    {
        std::vector<std::string> argv = {kSbatch, "--parsable", "--chdir=" + job.folder};
        if (!job.partition.empty()) argv.push_back("--partition=" + job.partition);
        argv.insert(argv.end(), job.extra.begin(), job.extra.end());
        argv.push_back(script);
        return argv;
    }

    std::string Submit(const ArrayJob& job, const std::string& script) const override
    {
        const ProgramRun run = RunProgram(SubmitCommand(job, script));
        if (run.status != 0)
            throw FileError("sbatch refused the job (exit status " + std::to_string(run.status) +
                            "): " + Trimmed(run.err + run.out));
        // --parsable prints "ID" or "ID;CLUSTER".
        const std::string id = Trimmed(run.out.substr(0, run.out.find(';')));
        if (id.empty() || id.find_first_not_of("0123456789") != std::string::npos)
            throw FileError("sbatch gave no job ID: \"" + Trimmed(run.out) + "\"");
        return id;
    }

    bool Active(const std::string& jobId) const override
    {
        const ProgramRun run = RunProgram({kSqueue, "--noheader", "--jobs=" + jobId, "--format=%T"});
        // Slurm forgets a finished job after a while and then calls its ID invalid.
        if (run.status != 0 && run.err.find("Invalid job id") != std::string::npos) return false;
        if (run.status != 0) throw FileError("squeue could not say how job " + jobId + " goes: " + Trimmed(run.err));
        return !Trimmed(run.out).empty();
    }

    std::string FollowCommand(const std::string& jobId) const override { return "squeue --jobs=" + jobId; }
    std::string CancelCommand(const std::string& jobId) const override { return "scancel " + jobId; }
};

}  // namespace

std::unique_ptr<Scheduler> MakeSlurmScheduler() { return std::make_unique<SlurmScheduler>(); }
