// The conditions a pipeline throws at the program: non-finite pixels, writing
// over the input, a write that fails part way through a sequence, a frame under
// the memory limit.
#include "support/ProgramRunner.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <tuple>

namespace {

namespace fs = std::filesystem;

TEST(Reliability, NonFinitePixelsSpreadThroughTheirChannelOnly)
{
    ScratchFolder dir;
    OIIO::ImageBuf picture = TestPicture(16, 16, {"R", "G", "B", "A"}, false);
    const float bad[4] = {std::numeric_limits<float>::quiet_NaN(), 0.5f, std::numeric_limits<float>::infinity(), 1.0f};
    picture.setpixel(3, 3, bad);
    WriteFile(picture, dir / "bad.exr", OIIO::TypeDesc::FLOAT);
    const RunResult r = RunLumivane(dir, {"render", "bad.exr", "out.exr", "--size", "10"});
    ASSERT_EQ(r.status, 0) << r.err;
    const OIIO::ImageBuf out = ReadFile(dir / "out.exr");
    EXPECT_TRUE(std::isnan(out.getchannel(12, 12, 0, 0)));  // the transform mixes every sample of a plane
    EXPECT_TRUE(std::isfinite(out.getchannel(12, 12, 0, 1)));
    EXPECT_FALSE(std::isfinite(out.getchannel(12, 12, 0, 2)));
}

TEST(Reliability, AFileTheUserMayNotWriteIsKept)
{
    ScratchFolder dir;
    const OIIO::ImageBuf picture = TestPicture(20, 12, {"R", "G", "B", "A"}, true);
    WriteFile(picture, dir / "in.exr", OIIO::TypeDesc::HALF);
    WriteFile(picture, dir / "shot.exr", OIIO::TypeDesc::HALF);

    namespace fs = std::filesystem;
    // A file the user may not write is not replaced, though its folder is writable.
    // The superuser may write anything, so then the program runs as nobody.
    fs::permissions(dir / "shot.exr", fs::perms(0444));
    fs::permissions(dir.Path(), fs::perms::all);
    const RunResult refused = RunLumivane(dir, {"render", "in.exr", "shot.exr", "--size", "10"}, {},
                                          ::geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups" : "");
    EXPECT_EQ(refused.status, 3) << refused.err;
    EXPECT_NE(refused.err.find("cannot write shot.exr: the file exists and may not be written by this user"),
              std::string::npos)
        << refused.err;
}

TEST(Reliability, AFailedWriteNamesTheFileAndKeepsEarlierFrames)
{
    ScratchFolder dir;
    // Frame 1 is small enough for the file-size limit below, frame 2 is not:
    // the write fails as it would on a full disk.
    WriteFile(TestPicture(8, 8, {"R", "G", "B", "A"}, false), dir / "f.0001.exr", OIIO::TypeDesc::FLOAT);
    WriteFile(TestPicture(400, 300, {"R", "G", "B", "A"}, true), dir / "f.0002.exr", OIIO::TypeDesc::FLOAT);
    std::filesystem::create_directory(dir / "out");
    const RunResult r =
        RunLumivane(dir, {"render", "f.####.exr", "out/o.####.exr", "--frames", "1-2", "--size", "2", "-k"},
                    "ulimit -f 64");
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_NE(r.err.find("out/o.0002.exr"), std::string::npos) << r.err;
    EXPECT_EQ(dir.Files("out"), std::vector<std::string>{"o.0001.exr"});
    EXPECT_EQ(ReadFile(dir / "out/o.0001.exr").spec().width, 8);

    // On a full disk (a small file system of its own, in a namespace of the
    // test's own), including a writer that does not see its write fail (PNG).
    if (std::system("unshare -rm true 2>/dev/null") != 0) GTEST_SKIP() << "no user namespaces to mount a small disk in";
    for (const char* name : {"out/o.exr", "out/o.png"}) {
        const RunResult full = RunLumivane(dir, {"render", "f.0002.exr", name, "--size", "2"}, {},
                                           "unshare -rm sh -c 'mount -t tmpfs -o size=16k none out && exec \"$0\" \"$@\"'");
        EXPECT_EQ(full.status, 3) << full.err;
        EXPECT_NE(full.err.find(std::string("cannot write ") + name + ": "), std::string::npos) << full.err;
        EXPECT_NE(full.err.find("No space left on device"), std::string::npos) << full.err;
        EXPECT_EQ(full.err.find(".tmp"), std::string::npos) << full.err;
    }
}

// Past a file-size limit every writer's file is found cut short: libjpeg would
// end the process, libpng and FFTW would not notice, libtiff and OpenEXR might.
class SizeLimit : public ::testing::TestWithParam<const char*> {};

TEST_P(SizeLimit, FailsTheWriteWithNoFileLeft)
{
    ScratchFolder dir;
    WriteFile(TestPicture(400, 300, {"R", "G", "B", "A"}, true), dir / "in.exr", OIIO::TypeDesc::FLOAT);
    std::filesystem::create_directory(dir / "out");
    const std::string out = std::string("out/o.") + GetParam();
    const RunResult r = RunLumivane(dir, {"render", "in.exr", out, "--size", "2"}, "ulimit -f 16");
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_NE(r.err.find("cannot write " + out + ": "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("File too large"), std::string::npos) << r.err;
    EXPECT_EQ(dir.Files("out"), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Reliability, SizeLimit, ::testing::Values("exr", "jpg", "png", "tif"));

// `render -v | head -1`: the reader of standard output goes away early.
TEST(Reliability, AReaderThatGoesAwayLeavesTheRenderRunning)
{
    ScratchFolder dir;
    WriteFile(TestPicture(64, 48, {"R", "G", "B", "A"}, true), dir / "in.exr", OIIO::TypeDesc::HALF);
    ASSERT_EQ(RunLumivane(dir, {"render", "in.exr", "quiet.exr", "--size", "5"}).status, 0);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);  // every write to the pipe fails
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::chdir(dir.Path().c_str()) != 0 || ::dup2(ends[1], STDOUT_FILENO) < 0 || ::dup2(ends[1], STDERR_FILENO) < 0)
            ::_exit(99);
        ::unsetenv("LUMIVANE_PLUGIN_PATH");
        ::execl(LUMIVANE_EXE, "lumivane", "render", "in.exr", "piped.exr", "--size", "5", "-v",
                static_cast<char*>(nullptr));
        ::_exit(98);
    }
    ::close(ends[1]);
    int raw = 0;
    ASSERT_EQ(::waitpid(pid, &raw, 0), pid);
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 0) << "status " << raw;
    EXPECT_EQ(Compare(ReadFile(dir / "quiet.exr"), ReadFile(dir / "piped.exr")).worst, 0.0);
}

#if !defined(LUMIVANE_SANITIZED)  // the sanitizers' own memory would swamp the figures
TEST(Reliability, AFrameUnderTheMemoryLimitStaysUnderIt)
{
    ScratchFolder dir;
    WriteFile(TestPicture(1280, 720, {"R", "G", "B", "A"}, true), dir / "in.exr", OIIO::TypeDesc::HALF);
    // The frame's estimate, then a limit 1 MiB above it: the frame renders, and
    // the process's peak resident memory stays below that limit.
    const RunResult figures = RunLumivane(dir, {"render", "in.exr", "o.exr", "--size", "20", "--dry-run"});
    const std::size_t at = figures.out.find("memory about ");
    ASSERT_NE(at, std::string::npos) << figures.out;
    const long mib = std::stol(figures.out.substr(at + 13));
    ASSERT_NE(figures.out.find(std::to_string(mib) + " MiB", at), std::string::npos) << figures.out;
    const std::string cap = std::to_string(mib + 1) + "M";
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::chdir(dir.Path().c_str()) != 0) ::_exit(99);
        std::freopen("/dev/null", "w", stdout);
        ::setenv("LUMIVANE_THREADS", "2", 1);
        ::unsetenv("LUMIVANE_PLUGIN_PATH");
        ::execl(LUMIVANE_EXE, "lumivane", "--max-memory", cap.c_str(), "render", "in.exr", "o.exr", "--size", "20",
                static_cast<char*>(nullptr));
        ::_exit(98);
    }
    int raw = 0;
    struct rusage usage {};
    ASSERT_EQ(::wait4(pid, &raw, 0, &usage), pid);
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 0) << "under --max-memory " << cap;
    EXPECT_LE(usage.ru_maxrss, (mib + 1) * 1024) << "KiB at the peak under --max-memory " << cap;
}
#endif

}  // namespace
