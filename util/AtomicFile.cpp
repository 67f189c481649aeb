#include "util/AtomicFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace {

// Where `path` leads through any symbolic links, followed one at a time so a
// link to a file not yet there still names where it will be. A loop is left
// to rename(), which then fails with the system's reason.
std::filesystem::path LinkTarget(std::filesystem::path path)
{
    constexpr int kMostLinks = 40;  // as the kernel's own limit for a lookup
    std::error_code ec;
    for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(path, ec); ++i) {
        const std::filesystem::path link = std::filesystem::read_symlink(path, ec);
        if (ec) break;
        path = link.is_absolute() ? link : path.parent_path() / link;
    }
    return path;
}

}  // namespace

AtomicFile::AtomicFile(std::string finalPath) : m_final(std::move(finalPath))
{
    const std::filesystem::path p = LinkTarget(m_final);
    m_target = p.string();
    // Beside the final file, so the rename stays on one file system.
    m_temp = (p.parent_path() /
              ("." + p.filename().string() + "." + std::to_string(::getpid()) + ".tmp" + p.extension().string()))
                 .string();
}

AtomicFile::~AtomicFile()
{
    if (!m_committed) std::remove(m_temp.c_str());
}

std::string AtomicFile::Commit()
{
    struct stat existing {};
    if (::stat(m_target.c_str(), &existing) == 0) ::chmod(m_temp.c_str(), existing.st_mode & 07777);
    if (std::rename(m_temp.c_str(), m_target.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        std::remove(m_temp.c_str());
        return why;
    }
    m_committed = true;
    return {};
}
