// Files written whole or not at all.
#include "util/AtomicFile.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

TEST(AtomicFile, TheFinalNameHoldsTheOldFileUntilCommitThenTheNewOne)
{
    const fs::path dir = fs::temp_directory_path() / ("lumivane_atomic_" + std::to_string(::getpid()));
    fs::create_directories(dir);
    const fs::path target = dir / "shot.exr";
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
    EXPECT_NE(AtomicFile((dir / "missing" / "x.exr").string()).Commit(), "");  // the system's reason
    fs::remove_all(dir);
}

TEST(AtomicFile, TemporariesOfProcessesThatAreGoneAreRemovedByTheNextWrite)
{
    const fs::path dir = fs::temp_directory_path() / ("lumivane_abandoned_" + std::to_string(::getpid()));
    fs::create_directories(dir);
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
    fs::remove_all(dir);
}

}  // namespace
