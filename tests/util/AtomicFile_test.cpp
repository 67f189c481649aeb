// Files written whole or not at all, and only over what may be replaced.
#include "util/AtomicFile.h"
#include "util/FftwWisdom.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr uid_t kOtherUser = 4242;
constexpr gid_t kOtherGroup = 4343;

// A folder of the test's own, removed afterwards.
struct Folder {
    fs::path path = fs::temp_directory_path() / ("lumivane_atomic_" + std::to_string(::getpid()));
    Folder() { fs::create_directories(path); }
    ~Folder() { fs::remove_all(path); }
};

std::string Text(const fs::path& file)
{
    std::stringstream s;
    s << std::ifstream(file).rdbuf();
    return s.str();
}

TEST(AtomicFile, TheFinalNameHoldsTheOldFileUntilCommitThenTheNewOne)
{
    Folder folder;
    const fs::path dir = folder.path, target = dir / "shot.exr";
    std::ofstream(target) << "old";
    {
        AtomicFile file(target.string());
        // Hidden, beside the target, with this process's ID and the target's extension.
        EXPECT_EQ(file.TempPath(), (dir / (".shot.exr.lumivane-" + std::to_string(::getpid()) + ".tmp.exr")).string());
        std::ofstream(file.TempPath()) << "complete";
        EXPECT_EQ(fs::file_size(target), 3u);
        EXPECT_EQ(file.Commit(), "");
        AtomicFile abandoned(target.string());
        std::ofstream(abandoned.TempPath()) << "half";
    }
    EXPECT_EQ(fs::file_size(target), 8u);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);  // the abandoned one removed
}

TEST(AtomicFile, TemporariesOfProcessesThatAreGoneAreRemovedByTheNextWrite)
{
    Folder folder;
    const fs::path dir = folder.path;
    const pid_t gone = ::fork();
    if (gone == 0) ::_exit(0);
    ::waitpid(gone, nullptr, 0);
    const auto temp = [&](const std::string& name, pid_t pid) {
        const fs::path p = dir / ("." + name + ".lumivane-" + std::to_string(pid) + ".tmp.exr");
        std::ofstream(p) << "half";
        return p;
    };
    const fs::path abandoned = temp("shot.exr", gone), running = temp("shot.exr", ::getppid()),
                   otherOutput = temp("take.exr", gone);
    AtomicFile((dir / "shot.exr").string()).Commit();
    EXPECT_FALSE(fs::exists(abandoned));
    EXPECT_TRUE(fs::exists(running));  // its process may still finish it
    EXPECT_TRUE(fs::exists(otherOutput));
}

// What is at the final name "out", made in the test's folder, and the words of its refusal.
struct Refusal {
    const char* name;
    std::function<void(const fs::path& dir)> make;
    const char* reason;
    AtomicFile::ReplaceRule rule = nullptr;
    bool rootOnly = false;
};

void PrintTo(const Refusal& r, std::ostream* os) { *os << r.name; }

class Refused : public ::testing::TestWithParam<Refusal> {};

TEST_P(Refused, NothingIsWrittenAndTheReasonIsGiven)
{
    const Refusal& r = GetParam();
    if (r.rootOnly && ::geteuid() != 0) GTEST_SKIP() << "needs the superuser";
    Folder folder;
    r.make(folder.path);
    const auto before = [&] {
        std::string state;
        for (const auto& e : fs::recursive_directory_iterator(folder.path)) {
            struct stat st {};
            ::lstat(e.path().c_str(), &st);
            state += e.path().string() + " " + std::to_string(st.st_mode) + " " + std::to_string(st.st_size) + "\n";
        }
        return state;
    };
    const std::string was = before();
    const std::string out = (folder.path / "out").string();
    EXPECT_NE(AtomicFile::CannotWrite(out, r.rule).find(r.reason), std::string::npos)
        << AtomicFile::CannotWrite(out, r.rule);
    try {
        AtomicFile file(out, r.rule);
        ADD_FAILURE() << "not refused";
    } catch (const AtomicFile::Refused& e) {
        EXPECT_NE(std::string(e.what()).find(r.reason), std::string::npos) << e.what();
    }
    EXPECT_EQ(before(), was);
}

INSTANTIATE_TEST_SUITE_P(
    AtomicFile, Refused,
    ::testing::Values(
        Refusal{"Fifo", [](const fs::path& d) { ::mkfifo((d / "out").c_str(), 0666); },
                "it is a FIFO, not a regular file"},
        Refusal{"Folder", [](const fs::path& d) { fs::create_directory(d / "out"); }, "it is a folder"},
        Refusal{"LinkToADevice",
                [](const fs::path& d) {
                    ::mknod((d / "null").c_str(), S_IFCHR | 0666, makedev(1, 3));
                    fs::create_symlink("null", d / "out");
                },
                "it leads to", nullptr, true},
        Refusal{"LinkLoop",
                [](const fs::path& d) {
                    fs::create_symlink("other", d / "out");
                    fs::create_symlink("out", d / "other");
                },
                "go round in a loop"},
        // Another user's link in a sticky world-writable folder (/tmp) aimed at a
        // file only its owner may read: followed, it would make the file theirs to choose.
        Refusal{"OtherUsersLinkInASharedFolder",
                [](const fs::path& d) {
                    std::ofstream(d / "secret") << "root only";
                    fs::permissions(d / "secret", fs::perms(0600));
                    fs::permissions(d, fs::perms(01777));
                    fs::create_symlink("secret", d / "out");
                    ::lchown((d / "out").c_str(), kOtherUser, kOtherGroup);
                },
                "such a link is followed only when it belongs to the folder's owner or to this user", nullptr, true},
        Refusal{"WisdomOverSomethingElse", [](const fs::path& d) { std::ofstream(d / "out") << "P6\n1 1\n255\nabc"; },
                "does not hold FFTW wisdom", NotFftwWisdom}),
    [](const ::testing::TestParamInfo<Refusal>& info) { return std::string(info.param.name); });

TEST(AtomicFile, ReplacingKeepsOwnerGroupAndBitsAndFollowsLinksItMay)
{
    Folder folder;
    const fs::path dir = folder.path;
    const auto replace = [](const fs::path& path, const char* text, AtomicFile::ReplaceRule rule = nullptr) {
        AtomicFile file(path.string(), rule);
        std::ofstream(file.TempPath()) << text;
        return file.Commit();
    };
    std::ofstream(dir / "plate") << "old";
    fs::permissions(dir / "plate", fs::perms(0640));
    const bool root = ::geteuid() == 0;
    if (root) ::chown((dir / "plate").c_str(), kOtherUser, kOtherGroup);
    // A link of the folder's owner in a sticky world-writable folder is followed.
    fs::create_symlink("plate", dir / "link");
    fs::permissions(dir, fs::perms(01777));
    ASSERT_EQ(replace(dir / "link", "new"), "");
    EXPECT_TRUE(fs::is_symlink(dir / "link"));
    EXPECT_EQ(Text(dir / "plate"), "new");
    struct stat st {};
    ::stat((dir / "plate").c_str(), &st);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    if (root) {
        EXPECT_EQ(st.st_uid, kOtherUser);
        EXPECT_EQ(st.st_gid, kOtherGroup);
    }

    // Wisdom goes where nothing is, over nothing, or over wisdom.
    const char* wisdom = "(fftw-3.3.10 fftw_wisdom #x458a31c8 #x92381c4c\n)\n";
    std::ofstream(dir / "empty");
    for (const char* name : {"new.wisdom", "empty", "new.wisdom"})
        EXPECT_EQ(replace(dir / name, wisdom, NotFftwWisdom), "") << name;
    EXPECT_EQ(Text(dir / "empty"), wisdom);
}

}  // namespace
