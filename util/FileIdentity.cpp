#include "util/FileIdentity.h"

#include <sys/stat.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace {

const char* KindOf(mode_t mode)
{
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a plain file";
}

}  // namespace

std::string NotRegularFile(const std::string& path)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || S_ISREG(st.st_mode)) return {};
    return std::string("it is ") + KindOf(st.st_mode) + ", not a regular file";
}

std::string FileIdentity(const std::string& path)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0)
        return "inode " + std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
    std::error_code ec;
    const fs::path absolute = fs::absolute(path, ec);
    const fs::path resolved = fs::weakly_canonical(absolute, ec);
    return "path " + (ec ? absolute.lexically_normal() : resolved).string();
}
