// Each way a render can go wrong: the message, the exit status, and that no
// partial or temporary file is left in the output folder.
#include "support/ProgramRunner.h"
#include "app/files/ExitCodes.h"

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <sstream>
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

std::string Bytes(const std::string& path)
{
    std::stringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

void Save(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

// Writes `bytes` bytes of `value` at `at`, most significant first when `big`.
void Put(std::string& b, std::size_t at, std::uint64_t value, int bytes, bool big)
{
    for (int i = 0; i < bytes; ++i) b[at + (big ? bytes - 1 - i : i)] = static_cast<char>(value >> (8 * i) & 0xFF);
}

// Real small files whose headers are made to declare a huge frame, with the
// little data they had: under the default memory limit they must be refused
// from their length, before any pixel is allocated.
void MakeHeaderBombs(const ScratchFolder& dir)
{
    constexpr std::uint32_t kSide = 200000;
    const OIIO::ImageBuf small = TestPicture(16, 16, {"R", "G", "B"}, false);
    WriteFile(small, dir / "bomb.png", OIIO::TypeDesc::UINT8);
    std::string b = Bytes(dir / "bomb.png");
    Put(b, 16, kSide, 4, true);  // IHDR width, height, then its CRC
    Put(b, 20, kSide, 4, true);
    Put(b, 29, crc32(0, reinterpret_cast<const Bytef*>(&b[12]), 17), 4, true);
    Save(dir / "bomb.png", b);

    WriteFile(small, dir / "bomb.jpg", OIIO::TypeDesc::UINT8);
    b = Bytes(dir / "bomb.jpg");
    const std::size_t frame = b.find("\xFF\xC0");
    Put(b, frame + 5, 65000, 2, true);  // height, width, below the decoder's own limit
    Put(b, frame + 7, 65000, 2, true);
    Save(dir / "bomb.jpg", b);

    OIIO::ImageBuf zip = small;
    zip.specmod().attribute("compression", "zip");
    WriteFile(zip, dir / "bomb.exr", OIIO::TypeDesc::HALF);
    b = Bytes(dir / "bomb.exr");
    for (const std::string window : {"dataWindow", "displayWindow"}) {
        const std::size_t box = b.find(window + std::string("\0box2i\0", 7)) + window.size() + 11;
        Put(b, box + 8, kSide - 1, 4, false);
        Put(b, box + 12, kSide - 1, 4, false);
    }
    // A whole offset table, every entry pointing at the one chunk there is:
    // the one entry written points just past itself.
    const auto entry = [&b](std::size_t at) {
        std::uint64_t v = 0;
        for (int i = 7; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(b.at(at + i));
        return v;
    };
    std::size_t table = 0;
    while (entry(table) != table + 8) ++table;
    const std::size_t chunks = (kSide + 15) / 16;
    std::string entries(chunks * 8, '\0');
    for (std::size_t k = 0; k < chunks; ++k) Put(entries, k * 8, table + chunks * 8, 8, false);
    Save(dir / "bomb.exr", b.substr(0, table) + entries + b.substr(table + 8));

    // One pixel of data far from its one-pixel frame: the frame is the union of the two.
    OIIO::ImageSpec far(1, 1, 4, OIIO::TypeDesc::HALF);
    far.x = far.y = 1000000;
    far.full_width = far.full_height = 1;
    const auto out = OIIO::ImageOutput::create(dir / "far.exr");
    const float pixel[4] = {1, 1, 1, 1};
    if (!out || !out->open(dir / "far.exr", far) || !out->write_image(OIIO::TypeDesc::FLOAT, pixel) || !out->close())
        throw std::runtime_error("cannot write far.exr");
}

TEST_P(CommandFailure, ReportsAndLeavesNoPartialFile)
{
    const FailureCase& c = GetParam();
    ScratchFolder dir;
    const OIIO::ImageBuf picture = TestPicture(20, 12, {"R", "G", "B", "A"}, true);
    WriteFile(picture, dir / "in.exr", OIIO::TypeDesc::HALF);
    // A sequence on twos with frame 5 missing, and one whose second frame is not an image.
    for (const char* f : {"seq.0001.exr", "seq.0003.exr", "k.0001.exr", "twos.0001.exr", "twos.0003.exr",
                          "twos.0007.exr", "bad.0001.exr"})
        WriteFile(picture, dir / f, OIIO::TypeDesc::HALF);
    std::ofstream(dir / "garbage.exr") << "not an image";
    std::ofstream(dir / "bad.0002.exr") << "not an image";
    std::ofstream(dir / "broken.json") << "{\"format\": \"lumivane-flow\", ";
    // A header that claims 60000 x 60000 pixels, with almost nothing after it,
    // in a format whose run-length coding gives no bound on its length.
    std::ofstream(dir / "huge.hdr") << "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 60000 +X 60000\n"
                                    << std::string(16, '\0');
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
    MakeHeaderBombs(dir);
    std::filesystem::create_directory(dir / "out");
    // Files that name what the render reads, and things that are not files.
    std::filesystem::create_symlink("in.exr", dir / "link.exr");
    std::filesystem::create_hard_link(dir / "in.exr", dir / "hard.exr");
    std::ofstream(dir / "self.flow") << R"({"format": "lumivane-flow", "version": 1, "tools": [{"class": )"
                                     << R"("tevrinworks.Lumivane2", "inputs": {}, "connections": {"input": "in.exr"}}],)"
                                     << R"( "program": {"output": "in.exr"}})";
    for (const char* f : {"pipe.exr", "pipe.flow"}) ::mkfifo((dir / f).c_str(), 0666);

    // A FIFO read would never end: `timeout` turns that into a failure.
    const RunResult r = RunLumivane(dir, c.args, {}, "timeout 60");
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
        FailureCase{"GapInSequenceOnDisk", {"render", "twos.####.exr", "out/o.####.exr"}, 3,
                    "frame 5: cannot read twos.0005.exr: no such file", {"o.0001.exr", "o.0003.exr"}},
        FailureCase{"EmptyFrameList", {"render", "seq.####.exr", "out/o.####.exr", "--frames", ""}, 2,
                    "--frames: an empty frame list"},
        FailureCase{"DryRunMissingFrame", {"render", "seq.####.exr", "out/o.####.exr", "--frames", "1-3", "--dry-run"}, 3,
                    "frame 2: cannot read seq.0002.exr: no such file"},
        FailureCase{"DryRunUnreadableFrame", {"render", "bad.####.exr", "out/o.####.exr", "--dry-run"}, 3,
                    "frame 2: cannot read bad.0002.exr: not an image file"},
        FailureCase{"DryRunMissingOutputFolder", {"render", "in.exr", "out/none/o.exr", "--dry-run"}, 3,
                    "cannot write out/none/o.exr: folder out/none does not exist"},
        FailureCase{"MissingKernelFrame",
                    {"render", "in.exr", "out/o.####.exr", "--frames", "1-2", "--kernel", "k.####.exr", "--size", "20"},
                    3, "frame 2: cannot read k.0002.exr: no such file", {"o.0001.exr"}},
        FailureCase{"SubmitWithoutFrameField", {"submit", "seq.####.exr", "out/o.exr", "--frames", "1", "--dry-run"}, 2,
                    "OUTPUT out/o.exr has no frame field"},
        FailureCase{"SubmitFrameFieldInFolderName", {"submit", "seq.####.exr", "out/o.####/f.exr", "--frames", "1", "--dry-run"},
                    2, "OUTPUT out/o.####/f.exr has its frame field in a folder name"},
        FailureCase{"SubmitMissingOutputFolder", {"submit", "seq.####.exr", "out/none/o.####.exr", "--frames", "1", "--dry-run"},
                    3, "/out/none does not exist (--mkdir makes it)"},
        FailureCase{"SubmitPluginFolderWithColon",
                    {"--plugins", "plug:ins", "submit", "seq.####.exr", "out/o.####.exr", "--frames", "1", "--dry-run"}, 2,
                    "/plug:ins: its name holds a ':'"},
        FailureCase{"SubmitFramesNotOnDisk", {"submit", "seq.####.exr", "out/o.####.exr", "--frames", "1-4", "--dry-run"},
                    3, "does not have: 2,4 (on disk: 1,3)"},
        FailureCase{"SubmitFirstFrameFails",
                    {"submit", "in.exr", "out/o.####.exr", "--frames", "1-2", "--dry-run", "--unit", "absolute", "--size",
                     "1e9"},
                    4, "the first frame, 1, fails here"},
        FailureCase{"ToolSetsNoOutput", {"render", "in.exr", "out/o.exr", "--unit", "absolute", "--size", "1e9"}, 4,
                    "Lumivane 2: the frame needs about"},
        FailureCase{"OverMemoryLimit", {"--max-memory", "20K", "render", "in.exr", "out/o.exr", "--size", "50"}, 4,
                    "but the memory limit is 20 KiB"},
        FailureCase{"RimTooBright", {"render", "in.exr", "out/o.exr", "--size", "20", "--bad-bokeh", "1e38"}, 4,
                    "Lumivane 2: Bad Bokeh 1e+38 makes the kernel's rim 4e+38 times as bright as its centre"},
        FailureCase{"MistypedCommand", {"rendr", "in.exr", "out/o.exr"}, 2, "(did you mean render?)"},
        FailureCase{"MistypedOption", {"render", "in.exr", "out/o.exr", "--szie", "2"}, 2, "--szie (did you mean --size?)"},
        FailureCase{"NoFramesPerTask", {"submit", "seq.####.exr", "out/o.####.exr", "--frames", "1", "--per-task", "0"},
                    2, "--per-task: Value 0 not in range 1 to 1000000\n"},
        FailureCase{"BadMemoryLimit", {"--max-memory", "lots", "render", "in.exr", "out/o.exr"}, 2,
                    "--max-memory: \"lots\" is not a size such as 512M"},
        FailureCase{"BrokenFlow", {"render", "--flow", "broken.json", "in.exr", "out/o.exr"}, 3,
                    "broken.json: not a valid flow file"},
        FailureCase{"HugeHeader", {"--max-memory", "1G", "render", "huge.hdr", "out/o.exr"}, 4,
                    "Lumivane 2: the frame needs about"},
        FailureCase{"HugeKernelHeader", {"--max-memory", "1G", "render", "in.exr", "out/o.exr", "--kernel", "huge.hdr"},
                    4, "cannot read huge.hdr: its 60000x60000 pixels of 3 channels need about 93.9 GiB to read, but the "
                    "memory limit is 1.0 GiB"},
        FailureCase{"FarDataWindow", {"--max-memory", "1G", "render", "far.exr", "out/o.exr"}, 4,
                    "Lumivane 2: the frame needs about"},
        FailureCase{"PngHeaderBomb", {"render", "bomb.png", "out/o.exr"}, 3,
                    "cannot read bomb.png: the file is cut short: it has"},
        FailureCase{"JpegHeaderBomb", {"render", "in.exr", "out/o.exr", "--kernel", "bomb.jpg"}, 3,
                    "cannot read bomb.jpg: the file is cut short: it has"},
        FailureCase{"ExrHeaderBomb", {"render", "bomb.exr", "out/o.exr"}, 3,
                    "cannot read bomb.exr: the file is cut short: it has"},
        FailureCase{"TruncatedJpeg", {"render", "cut.jpg", "out/o.exr"}, 3,
                    "cannot read cut.jpg: JPEG error: Premature end of JPEG file"},
        FailureCase{"TruncatedTiff", {"render", "cut.tif", "out/o.exr"}, 3,
                    "cannot read cut.tif: the file is cut short: it has 9"},
        FailureCase{"TruncatedExr", {"render", "cut.exr", "out/o.exr"}, 3,
                    "cannot read cut.exr: the file is cut short: it has 9775 bytes, but its 64x48 pixels, "
                    "uncompressed, need at least 19200"},
        FailureCase{"DamagedZipExr", {"render", "damaged.exr", "out/o.exr"}, 3,
                    "cannot read damaged.exr: Error reading pixel data from image file \"damaged.exr\". a ZIP chunk"},
        FailureCase{"TruncatedDpx", {"render", "in.exr", "out/o.exr", "--kernel", "cut.dpx"}, 3,
                    "cannot read cut.dpx: the file is cut short: it has"},
        FailureCase{"KernelOverMemoryLimit", {"--max-memory", "64M", "kernel", "out/k.exr", "--width", "8000", "--height", "8000"},
                    4, "cannot draw the kernels of a 8000x8000 frame: its point image and response need about 1.9 GiB, "
                    "but the memory limit is 64 MiB"},
        FailureCase{"FlowValueRefusedAsWithSet", {"render", "--flow", "negative.json", "in.exr", "out/o.exr"}, 2,
                    "negative.json: tools[0].inputs.BlurSizeX: BlurSizeX: -3 is less than the lowest value 0"},
        // Nothing read is written over, by whatever name.
        FailureCase{"OutputIsInput", {"render", "in.exr", "in.exr"}, 2,
                    "OUTPUT in.exr is the same file as INPUT in.exr: writing it would destroy what is read"},
        FailureCase{"OutputLinksToInput", {"render", "in.exr", "link.exr"}, 2, "OUTPUT link.exr is the same file as INPUT in.exr"},
        FailureCase{"OutputIsHardLinkOfKernel", {"render", "seq.0001.exr", "hard.exr", "--kernel", "in.exr"}, 2,
                    "OUTPUT hard.exr is the same file as --kernel in.exr"},
        FailureCase{"OutputFramesAreInputFrames", {"render", "seq.####.exr", "./seq.####.exr", "--frames", "1-3"}, 2,
                    "OUTPUT ./seq.0001.exr is the same file as INPUT seq.0001.exr"},
        FailureCase{"FlowWritesItsInput", {"render", "--flow", "self.flow"}, 2,
                    "OUTPUT (from the flow self.flow) in.exr is the same file as INPUT (from the flow self.flow) in.exr"},
        FailureCase{"SaveFlowOverInput", {"render", "in.exr", "out/o.exr", "--save-flow", "in.exr"}, 2,
                    "--save-flow in.exr is the same file as INPUT in.exr"},
        FailureCase{"SubmitOverInput", {"submit", "seq.####.exr", "seq.####.exr", "--frames", "1", "--dry-run"}, 2,
                    "seq.0001.exr is the same file as INPUT"},
        // Only regular files are read or written.
        FailureCase{"FifoInput", {"render", "pipe.exr", "out/o.exr"}, 3,
                    "cannot read pipe.exr: it is a FIFO, not a regular file"},
        FailureCase{"FifoFlow", {"render", "--flow", "pipe.flow", "in.exr", "out/o.exr"}, 3,
                    "cannot read flow pipe.flow: it is a FIFO"},
        FailureCase{"FifoOutput", {"render", "in.exr", "pipe.exr"}, 3,
                    "cannot write pipe.exr: it is a FIFO, not a regular file"},
        FailureCase{"WisdomOverAnImage", {"--fft-wisdom", "in.exr", "render", "in.exr", "out/o.exr"}, 3,
                    "cannot use in.exr as the FFT wisdom file (--fft-wisdom, LUMIVANE_FFT_WISDOM): the file exists "
                    "and does not hold FFTW wisdom"},
        FailureCase{"WisdomInAMissingFolder", {"--fft-wisdom", "none/w", "render", "in.exr", "out/o.exr"}, 3,
                    "folder none does not exist"}),
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

// Whether process `pid` is the program and has loaded the plug-in module: it
// has its signal handlers by then. A child not yet past exec still maps what
// the test process maps.
bool PluginLoaded(pid_t pid)
{
    std::error_code ec;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", ec);
    if (ec || exe.filename() != "lumivane") return false;
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    std::stringstream text;
    text << maps.rdbuf();
    return text.str().find(".plugin") != std::string::npos;
}

// Whether process `pid` is the program with its SIGTERM handler in place (the
// caught-signal mask of /proc/PID/status), however slowly it started.
bool CatchesTermination(pid_t pid)
{
    std::error_code ec;
    const std::string proc = "/proc/" + std::to_string(pid);
    if (std::filesystem::read_symlink(proc + "/exe", ec).filename() != "lumivane" || ec) return false;
    std::ifstream status(proc + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("SigCgt:", 0) == 0) return (std::stoull(line.substr(7), nullptr, 16) >> (SIGTERM - 1)) & 1u;
    return false;
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
    // One signal once `ready`: the exit status, or minus the signal that ended
    // the program; one still running 20 s later is killed.
    const auto stop = [](pid_t pid, const std::function<bool()>& ready, int signal = SIGTERM) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!ready() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ::kill(pid, signal);
        deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        int raw = 0;
        while (::waitpid(pid, &raw, WNOHANG) == 0)
            if (std::chrono::steady_clock::now() > deadline) ::kill(pid, SIGKILL);
            else std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
    };

    const pid_t render = start({"render", "in.exr", "out/o.####.exr", "--frames", "1-100000", "--size", "5"});
    ASSERT_GT(render, 0);
    EXPECT_EQ(stop(render, [&] { return std::filesystem::exists(dir / "out/o.0003.exr"); }), 130);
    const Files left = dir.Files("out");
    EXPECT_GE(left.size(), 3u);
    EXPECT_LT(left.size(), 100000u);
    for (const std::string& f : left) EXPECT_EQ(f.rfind("o.", 0), 0u) << "left behind: " << f;

    // A closed terminal or ssh session stops it the same way, with its own status.
    const pid_t hungUp = start({"render", "in.exr", "out/h.####.exr", "--frames", "1-100000", "--size", "5"});
    EXPECT_EQ(stop(hungUp, [&] { return std::filesystem::exists(dir / "out/h.0003.exr"); }, SIGHUP), 129);
    for (const std::string& f : dir.Files("out")) EXPECT_NE(f.front(), '.') << "left behind: " << f;

    // A plug-in whose loading never ends (a FIFO) stops at the first signal.
    std::filesystem::create_directory(dir / "hang");
    ::mkfifo((dir / "hang/Hang.plugin").c_str(), 0644);
    const pid_t hanging = start({"--plugins", "hang", "render", "in.exr", "out/x.exr"});
    EXPECT_EQ(stop(hanging, [&] { return CatchesTermination(hanging); }), 130);

    // The kernel command, stopped while it loads or draws: nothing written.
    const pid_t kernel = start({"kernel", "k.exr", "--width", "2000", "--height", "1500"});
    ASSERT_GT(kernel, 0);
    EXPECT_EQ(stop(kernel, [&] { return PluginLoaded(kernel); }), 130);
    EXPECT_FALSE(std::filesystem::exists(dir / "k.exr"));
}

}  // namespace
