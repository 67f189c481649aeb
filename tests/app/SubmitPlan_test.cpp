// How a sequence is shared among a scheduler's tasks, checked by running the
// task text through bash and reading the frames back with the frame-list parser,
// and the job script `submit --dry-run` prints, run the same way.
#include "ProgramRunner.h"
#include "app/FramePattern.h"
#include "app/Subprocess.h"
#include "app/SubmitPlan.h"

#include <gtest/gtest.h>

namespace {

TEST(SubmitPlan, FrameListTextReadsBackAsTheSameFrames)
{
    const std::vector<std::vector<int>> lists = {
        {7}, {1, 2, 3, 5, 7, 9, 20}, {-5, -4, -3, -1, 0}, {1, 3}, {10, 9, 8}, {4, 4, 5}, {1001, 1011, 1021, 1022}};
    for (const auto& frames : lists) {
        const std::string text = FrameListText(frames);
        EXPECT_EQ(FrameList::Parse(text).Frames(), frames) << text;
    }
    EXPECT_EQ(FrameListText({1, 2, 3, 5, 7, 9, 20}), "1-3,5-9x2,20");
}

// Every task's shell text, run by bash with its index, renders its share: the
// shares in order are the frames, none bigger than asked, arguments intact.
TEST(SubmitPlan, TasksRunTheirShareWithArgumentsIntact)
{
    std::vector<int> frames;
    for (int f = 1001; f <= 1100; f += 3) frames.push_back(f);
    frames.push_back(2000);
    const std::vector<std::string> odd = {"a b", "it's", "$HOME", "back\\slash", "new\nline", "*", ""};
    std::vector<std::string> render = {"printf", "[%s]"};
    render.insert(render.end(), odd.begin(), odd.end());
    std::string expected;
    for (const std::string& a : odd) expected += "[" + a + "]";

    const auto tasks = SplitFrames(frames, 7);
    const std::string body = TaskBody(tasks, render);
    std::vector<int> rendered;
    for (std::size_t t = 1; t <= tasks.size() + 1; ++t) {
        const ProgramRun run = RunProgram({"bash", "-c", "task=" + std::to_string(t) + "\n" + body});
        if (t > tasks.size()) {  // no such task
            EXPECT_NE(run.status, 0);
            break;
        }
        ASSERT_EQ(run.status, 0) << run.err;
        ASSERT_EQ(run.out.rfind(expected + "[--frames][", 0), 0u) << run.out;
        const std::string list = run.out.substr(expected.size() + 11, run.out.size() - expected.size() - 12);
        const std::vector<int> share = FrameList::Parse(list).Frames();
        EXPECT_LE(share.size(), 7u);
        rendered.insert(rendered.end(), share.begin(), share.end());
    }
    EXPECT_EQ(rendered, frames);
}

// The job a dry run prints, each of its array's tasks run with its command shown
// instead of run: seven frames three to a task are three tasks, the last with
// frame 7 alone, and every task leaves the frames that exist.
TEST(SubmitPlan, DryRunJobRendersEveryFrameOnceAndSkipsThoseThatExist)
{
    ScratchFolder dir;
    const OIIO::ImageBuf picture = TestPicture(8, 6, {"R", "G", "B"}, false);
    for (int f = 1; f <= 7; ++f) WriteFile(picture, dir / ("seq.000" + std::to_string(f) + ".exr"), OIIO::TypeDesc::HALF);
    const RunResult r = RunLumivane(dir, {"submit", "seq.####.exr", "out.####.exr", "--frames", "1-7", "--per-task", "3",
                                          "--dry-run", "--size", "2"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::string script = r.out.substr(0, r.out.find("\n\n# "));
    const std::size_t exec = script.find("\nexec ") + 6;
    script.replace(exec, script.find(' ', exec) - exec, "printf '[%s]'");
    const std::string array = "#SBATCH --array=1-";
    const int tasks = std::stoi(script.substr(script.find(array) + array.size()));
    EXPECT_EQ(tasks, 3);
    std::vector<int> rendered;
    for (int t = 1; t <= tasks; ++t) {
        const ProgramRun run = RunProgram({"env", "SLURM_ARRAY_TASK_ID=" + std::to_string(t), "bash", "-c", script});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_NE(run.out.find("[render]"), std::string::npos) << run.out;
        EXPECT_NE(run.out.find("[--skip-existing]"), std::string::npos) << run.out;
        const std::size_t list = run.out.rfind("[--frames][") + 11;
        const std::vector<int> share = FrameList::Parse(run.out.substr(list, run.out.size() - list - 1)).Frames();
        rendered.insert(rendered.end(), share.begin(), share.end());
        if (t == tasks) {
            EXPECT_EQ(share, std::vector<int>{7});
        }
    }
    EXPECT_EQ(rendered, (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
}

TEST(SubmitPlan, FramesPerTaskMakeAboutAMinuteAndAtMostAThousandTasks)
{
    const struct { int frames; double seconds; int perTask; } cases[] = {
        {100, 2.0, 30}, {100, 0.01, 100}, {10, 300.0, 1}, {100000, 30.0, 100}, {1, 0.0, 1}};
    for (const auto& c : cases)
        EXPECT_EQ(DefaultFramesPerTask(c.frames, c.seconds), c.perTask) << c.frames << " frames, " << c.seconds << " s";
}

TEST(SubmitPlan, ReadsTheToolsMemoryFigureRoundedUp)
{
    constexpr std::uint64_t MiB = 1u << 20;
    EXPECT_EQ(ReportedFrameMemory("frame 1: Lumivane 2: blur ...; memory about 37 MiB\n"), 37 * MiB);
    EXPECT_GE(ReportedFrameMemory("transform size R 8192 x 8192; memory about 2.5 GiB"), 2560 * MiB);
    EXPECT_LE(ReportedFrameMemory("transform size R 8192 x 8192; memory about 2.5 GiB"), 2700 * MiB);
    EXPECT_EQ(ReportedFrameMemory("memory about 600 KiB"), MiB);
    EXPECT_EQ(ReportedFrameMemory("frame 1: the kernels are one pixel: a copy"), 0u);
}

}  // namespace
