// Files written whole or not at all.
#include "util/AtomicFile.h"

#include <gtest/gtest.h>

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
        EXPECT_EQ(file.TempPath(), (dir / (".shot.exr." + std::to_string(::getpid()) + ".tmp.exr")).string());
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

}  // namespace
