// Files written whole or not at all.
#include "util/AtomicFile.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace {

std::string Read(const fs::path& p)
{
    std::ifstream in(p);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(AtomicFile, TheFinalNameHoldsTheOldFileUntilCommitThenTheNewOne)
{
    const fs::path dir = fs::temp_directory_path() / ("lumivane_atomic_" + std::to_string(::getpid()));
    fs::create_directories(dir);
    const fs::path target = dir / "shot.exr";
    std::ofstream(target) << "old";
    {
        AtomicFile file(target.string());
        // Hidden, beside the target, with this process's ID and the target's extension.
        EXPECT_EQ(fs::path(file.TempPath()).parent_path(), dir);
        EXPECT_EQ(fs::path(file.TempPath()).filename().string(),
                  ".shot.exr." + std::to_string(::getpid()) + ".tmp.exr");
        std::ofstream(file.TempPath()) << "new";
        EXPECT_EQ(Read(target), "old");
        EXPECT_EQ(file.Commit(), "");
    }
    EXPECT_EQ(Read(target), "new");
    {
        AtomicFile abandoned(target.string());
        std::ofstream(abandoned.TempPath()) << "half";
    }
    EXPECT_EQ(Read(target), "new");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);  // no temporary left
    {
        AtomicFile intoNowhere((dir / "missing" / "x.exr").string());
        EXPECT_NE(intoNowhere.Commit(), "");  // the system's reason
    }
    fs::remove_all(dir);
}

}  // namespace
