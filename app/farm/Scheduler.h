#pragma once
// The seam between `lumivane submit` and a cluster's scheduler. Everything a
// scheduler does not care about (the frozen flow, which frames each task
// renders, the memory it needs, reading the task logs) is decided before an
// adapter sees the job; an adapter only writes the job script's header, runs
// the scheduler's commands and reads their answers. docs/farm.md says how to
// add one.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// One array job: tasks 1 to `tasks`, every task the same shell body, run with
// the task's index in the variable $task.
struct ArrayJob {
    std::string name;    // letters, digits, '.', '_' and '-' only
    std::string folder;  // absolute; task K writes its log to folder/task-K.log
    int tasks = 1;
    int cores = 1;                  // per task
    std::uint64_t memoryMiB = 0;    // per task
    std::string partition;          // empty: the scheduler's default
    std::vector<std::string> extra; // the user's own arguments for the submitting program, as given
    std::string body;               // bash text
};

// The log file task `index` of a job in `folder` writes to.
std::string TaskLogPath(const std::string& folder, int index);

class Scheduler {
public:
    virtual ~Scheduler() = default;
    // The program that submits, looked up on PATH before anything is written.
    virtual std::string SubmitProgram() const = 0;
    // The whole job script: the interpreter line, the scheduler's directives,
    // `task=<the index>`, then the body.
    virtual std::string Script(const ArrayJob& job) const = 0;
    // The command that submits the script file `script`.
    virtual std::vector<std::string> SubmitCommand(const ArrayJob& job, const std::string& script) const = 0;
    // Submits and returns the job's ID. Throws a file ProgramError holding the
    // scheduler's own message when it refuses the job.
    virtual std::string Submit(const ArrayJob& job, const std::string& script) const = 0;
    // Whether any task of the job is still waiting or running.
    virtual bool Active(const std::string& jobId) const = 0;
    // Commands to show the user: one that follows the job, one that cancels it.
    virtual std::string FollowCommand(const std::string& jobId) const = 0;
    virtual std::string CancelCommand(const std::string& jobId) const = 0;
};

std::unique_ptr<Scheduler> MakeSlurmScheduler();
