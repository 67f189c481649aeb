// Each way a render can go wrong: the message, the exit status, and that no
// partial or temporary file is left in the output folder.
#include "ProgramRunner.h"
#include "app/ExitCodes.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <new>
#include <thread>

namespace {

using Files = std::vector<std::string>;

struct FailureCase {
    const char* name;
    std::vector<std::string> args;
    int status;
    const char* message;  // part of standard error
    Files outputs = {};   // what the output folder holds afterwards
};

std::string PrintName(const ::testing::TestParamInfo<FailureCase>& info) { return info.param.name; }
void PrintTo(const FailureCase& c, std::ostream* os) { *os << c.name; }

class CommandFailure : public ::testing::TestWithParam<FailureCase> {};

TEST_P(CommandFailure, ReportsAndLeavesNoPartialFile)
{
    const FailureCase& c = GetParam();
    ScratchFolder dir;
    const OIIO::ImageBuf picture = TestPicture(20, 12, {"R", "G", "B", "A"}, true);
    WriteFile(picture, dir / "in.exr", OIIO::TypeDesc::HALF);
    for (const char* f : {"seq.0001.exr", "seq.0003.exr", "k.0001.exr"}) WriteFile(picture, dir / f, OIIO::TypeDesc::HALF);
    std::ofstream(dir / "garbage.exr") << "not an image";
    std::ofstream(dir / "broken.json") << "{\"format\": \"lumivane-flow\", ";
    // A header that claims 60000 x 60000 pixels, with almost nothing after it.
    std::ofstream(dir / "huge.ppm") << "P6\n60000 60000\n255\n" << std::string(16, '\0');
    std::ofstream(dir / "negative.json")
        << R"({"format": "lumivane-flow", "version": 1, "tools": [{"class": "tevrinworks.Lumivane2", "inputs": {"BlurSizeX": -3}}]})";
    // The same picture as JPEG, uncompressed TIFF, DPX and OpenEXR, each cut to half its length.
    OIIO::ImageBuf plain = TestPicture(64, 48, {"R", "G", "B"}, false);
    plain.specmod().attribute("compression", "none");
    for (const char* f : {"cut.jpg", "cut.tif", "cut.dpx", "cut.exr"}) {
        WriteFile(plain, dir / f, OIIO::TypeDesc::UINT16);
        std::filesystem::resize_file(dir / f, std::filesystem::file_size(dir / f) / 2);
    }
    // A ZIP OpenEXR file with bytes in the middle of its lines overwritten.
    WriteFile(TestPicture(64, 48, {"R", "G", "B"}, false), dir / "damaged.exr", OIIO::TypeDesc::FLOAT);
    std::fstream(dir / "damaged.exr", std::ios::in | std::ios::out | std::ios::binary)
        .seekp(static_cast<std::streamoff>(std::filesystem::file_size(dir / "damaged.exr") / 2))
        .write("\x55\xaa\x55\xaa\x55\xaa\x55\xaa", 8);
    std::filesystem::create_directory(dir / "out");

    const RunResult r = RunLumivane(dir, c.args);
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << "stderr:\n" << r.err;
    EXPECT_EQ(dir.Files("out"), c.outputs);
}

INSTANTIATE_TEST_SUITE_P(
    Failures, CommandFailure,
    ::testing::Values(
        FailureCase{"MissingInput", {"render", "missing.exr", "out/o.exr"}, 3, "cannot read missing.exr: no such file"},
        FailureCase{"UnreadableInput", {"render", "garbage.exr", "out/o.exr"}, 3, "cannot read garbage.exr: "},
        FailureCase{"UnknownControl", {"render", "in.exr", "out/o.exr", "--set", "Blurr=1"}, 2,
                    "--set Blurr=1: the tool has no control \"Blurr\"; its controls are: Operation"},
        FailureCase{"BadValue", {"render", "in.exr", "out/o.exr", "--set", "Edges=7"}, 2,
                    "--set Edges=7: Edges: 7 is not one of 0 \"Duplicate\", 1 \"Wrap\", 2 \"Black\""},
        FailureCase{"BadStyleName", {"render", "in.exr", "out/o.exr", "--style", "hexagon"}, 2,
                    "hexagon not in {disk,polygon,gaussian,airy,laplacian}"},
        FailureCase{"NoOutput", {"render", "in.exr"}, 2, "no OUTPUT file given"},
        FailureCase{"UnknownCompression", {"render", "in.exr", "out/o.exr", "--compression", "lzw"}, 2,
                    "--compression lzw: expected none, rle, zips, zip, piz"},
        FailureCase{"CompressionLevelOutOfRange", {"render", "in.exr", "out/o.exr", "--compression", "zip:12"}, 2,
                    "--compression zip:12: expected a zlib level from 1 to 9"},
        FailureCase{"CompressionLevelOnPiz", {"render", "in.exr", "out/o.exr", "--compression", "piz:3"}, 2,
                    "--compression piz:3: piz takes no level"},
        FailureCase{"CompressionForTiff", {"render", "in.exr", "out/o.tif", "--compression", "zip"}, 2,
                    "--compression zip: OUTPUT out/o.tif is not an OpenEXR (.exr) file"},
        FailureCase{"MissingOutputFolder", {"render", "in.exr", "out/none/o.exr"}, 3,
                    "cannot write out/none/o.exr: folder out/none does not exist"},
        FailureCase{"PatternWithoutFrames", {"render", "in.exr", "out/o.####.exr"}, 2,
                    "out/o.####.exr names a sequence: say which frames with --frames"},
        FailureCase{"NoFileMatchesPattern", {"render", "none.####.exr", "out/o.####.exr"}, 3,
                    "no file matches INPUT none.####.exr"},
        FailureCase{"DryRunTooLarge", {"render", "in.exr", "out/o.exr", "--dry-run", "--unit", "absolute", "--size", "1e9"},
                    4, "Lumivane 2: the frame needs about"},
        FailureCase{"ManyFramesOneFile", {"render", "in.exr", "out/o.exr", "--frames", "1-2"}, 2, "has no frame field"},
        FailureCase{"MissingMiddleFrame", {"render", "seq.####.exr", "out/o.####.exr", "--frames", "1-3", "--size", "20"},
                    3, "frame 2: cannot read seq.0002.exr: no such file", {"o.0001.exr"}},
        FailureCase{"MissingMiddleFrameKeepGoing",
                    {"render", "seq.####.exr", "out/o.####.exr", "--frames", "1-3", "--keep-going"}, 3, "frame 2: cannot read seq.0002.exr: no such file", {"o.0001.exr", "o.0003.exr"}},
        FailureCase{"MissingKernelFrame",
                    {"render", "in.exr", "out/o.####.exr", "--frames", "1-2", "--kernel", "k.####.exr", "--size", "20"},
                    3, "frame 2: cannot read k.0002.exr: no such file", {"o.0001.exr"}},
        FailureCase{"SubmitWithoutFrameField", {"submit", "seq.####.exr", "out/o.exr", "--frames", "1", "--dry-run"}, 2,
                    "OUTPUT out/o.exr has no frame field"},
        FailureCase{"SubmitFramesNotOnDisk", {"submit", "seq.####.exr", "out/o.####.exr", "--frames", "1-4", "--dry-run"},
                    3, "does not have: 2,4 (on disk: 1,3)"},
        FailureCase{"SubmitFirstFrameFails",
                    {"submit", "in.exr", "out/o.####.exr", "--frames", "1-2", "--dry-run", "--unit", "absolute", "--size",
                     "1e9"},
                    4, "the first frame, 1, fails here"},
        FailureCase{"ToolSetsNoOutput", {"render", "in.exr", "out/o.exr", "--unit", "absolute", "--size", "1e9"}, 4,
                    "Lumivane 2: the frame needs about"},
        FailureCase{"OverMemoryLimit", {"--max-memory", "20K", "render", "in.exr", "out/o.exr", "--size", "50"}, 4,
                    "but the memory limit is 1 MiB"},
        FailureCase{"BadMemoryLimit", {"--max-memory", "lots", "render", "in.exr", "out/o.exr"}, 2,
                    "--max-memory: \"lots\" is not a size such as 512M"},
        FailureCase{"BrokenFlow", {"render", "--flow", "broken.json", "in.exr", "out/o.exr"}, 3,
                    "broken.json: not a valid flow file"},
        FailureCase{"HugeHeader", {"--max-memory", "1G", "render", "huge.ppm", "out/o.exr"}, 4,
                    "cannot read huge.ppm: its 60000x60000 pixels of 3 channels need about 93.9 GiB to read, but the "
                    "memory limit is 1.0 GiB"},
        FailureCase{"HugeKernelHeader", {"--max-memory", "1G", "render", "in.exr", "out/o.exr", "--kernel", "huge.ppm"},
                    4, "cannot read huge.ppm: its 60000x60000"},
        FailureCase{"TruncatedJpeg", {"render", "cut.jpg", "out/o.exr"}, 3,
                    "cannot read cut.jpg: JPEG error: Premature end of JPEG file"},
        FailureCase{"TruncatedTiff", {"render", "cut.tif", "out/o.exr"}, 3,
                    "cannot read cut.tif: the file is cut short: it has 9"},
        FailureCase{"TruncatedExr", {"render", "cut.exr", "out/o.exr"}, 3,
                    "cannot read cut.exr: Error reading pixel data from image file \"cut.exr\""},
        FailureCase{"DamagedZipExr", {"render", "damaged.exr", "out/o.exr"}, 3,
                    "cannot read damaged.exr: Error reading pixel data from image file \"damaged.exr\". a ZIP chunk"},
        FailureCase{"TruncatedDpx", {"render", "in.exr", "out/o.exr", "--kernel", "cut.dpx"}, 3,
                    "cannot read cut.dpx: the file is cut short: it has"},
        FailureCase{"KernelOverMemoryLimit", {"--max-memory", "64M", "kernel", "out/k.exr", "--width", "8000", "--height", "8000"},
                    4, "cannot draw the kernels of a 8000x8000 frame: its point image and response need about 1.9 GiB, "
                    "but the memory limit is 64 MiB"},
        FailureCase{"FlowValueRefusedAsWithSet", {"render", "--flow", "negative.json", "in.exr", "out/o.exr"}, 2,
                    "negative.json: tools[0].inputs.BlurSizeX: BlurSizeX: -3 is less than the lowest value 0"}),
    PrintName);

// Memory can run out past every check; that is a memory failure, not a fault of the program.
TEST(ExitStatus, AnAllocationFailureIsAMemoryFailure)
{
    EXPECT_EQ(ExitStatus(KindOf(std::bad_alloc())), 4);
    EXPECT_EQ(MessageOf(std::bad_alloc()).rfind("out of memory: ", 0), 0u);
}

TEST(CommandFailure, UnwritableOutputFolder)
{
    ScratchFolder dir;
    WriteFile(TestPicture(8, 8, {"R", "G", "B"}, false), dir / "in.exr", OIIO::TypeDesc::HALF);
    // Permission bits do not stop the superuser; /sys refuses new files to anyone.
    std::string target = "/sys/lumivane-test.exr";
    if (::geteuid() != 0) {
        std::filesystem::create_directory(dir / "locked");
        std::filesystem::permissions(dir / "locked", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
        target = dir / "locked/o.exr";
    }
    const RunResult r = RunLumivane(dir, {"render", "in.exr", target});
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_NE(r.err.find("cannot write " + target), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(target));
}

// Whether process `pid` has loaded the plug-in module: it has its signal handlers by then.
bool PluginLoaded(pid_t pid)
{
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    std::stringstream text;
    text << maps.rdbuf();
    return text.str().find(".plugin") != std::string::npos;
}

TEST(CommandFailure, TerminationStopsCleanly)
{
    ScratchFolder dir;
    WriteFile(TestPicture(64, 64, {"R", "G", "B", "A"}, true), dir / "in.exr", OIIO::TypeDesc::HALF);
    std::filesystem::create_directory(dir / "out");
    const auto start = [&](std::vector<const char*> args) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            if (::chdir(dir.Path().c_str()) != 0) ::_exit(99);
            std::freopen("/dev/null", "w", stdout);
            std::freopen("/dev/null", "w", stderr);
            args.insert(args.begin(), "lumivane");
            args.push_back(nullptr);
            ::execv(LUMIVANE_EXE, const_cast<char* const*>(args.data()));
            ::_exit(98);
        }
        return pid;
    };
    const auto stop = [](pid_t pid, const std::function<bool()>& ready) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!ready() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ::kill(pid, SIGTERM);
        int raw = 0;
        ::waitpid(pid, &raw, 0);
        return WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    };

    const pid_t render = start({"render", "in.exr", "out/o.####.exr", "--frames", "1-100000", "--size", "5"});
    ASSERT_GT(render, 0);
    EXPECT_EQ(stop(render, [&] { return std::filesystem::exists(dir / "out/o.0003.exr"); }), 130);
    const Files left = dir.Files("out");
    EXPECT_GE(left.size(), 3u);
    EXPECT_LT(left.size(), 100000u);
    for (const std::string& f : left) EXPECT_EQ(f.rfind("o.", 0), 0u) << "left behind: " << f;

    // The kernel command, stopped while it loads or draws: nothing written.
    const pid_t kernel = start({"kernel", "k.exr", "--width", "2000", "--height", "1500"});
    ASSERT_GT(kernel, 0);
    EXPECT_EQ(stop(kernel, [&] { return PluginLoaded(kernel); }), 130);
    EXPECT_FALSE(std::filesystem::exists(dir / "k.exr"));
}

}  // namespace
