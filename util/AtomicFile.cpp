#include "util/AtomicFile.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr const char* kTempMark = ".lumivane-";
constexpr const char* kTempEnd = ".tmp";

// Where `path` leads through any symbolic links, followed one at a time so a
// link to a file not yet there still names where it will be. A loop is left
// to rename(), which then fails with the system's reason.
fs::path LinkTarget(fs::path path)
{
    constexpr int kMostLinks = 40;  // as the kernel's own limit for a lookup
    std::error_code ec;
    for (int i = 0; i < kMostLinks && fs::is_symlink(path, ec); ++i) {
        const fs::path link = fs::read_symlink(path, ec);
        if (ec) break;
        path = link.is_absolute() ? link : path.parent_path() / link;
    }
    return path;
}

fs::path FolderOf(const fs::path& file) { return file.parent_path().empty() ? fs::path(".") : file.parent_path(); }

// Removes the temporary files of `target` left by processes that are gone:
// ".NAME.lumivane-PID.tmp.EXT" with no process PID.
void RemoveAbandoned(const fs::path& target)
{
    const std::string prefix = "." + target.filename().string() + kTempMark;
    const std::string suffix = std::string(kTempEnd) + target.extension().string();
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(FolderOf(target), ec)) {
        const std::string name = entry.path().filename().string();
        if (name.size() <= prefix.size() + suffix.size() || name.compare(0, prefix.size(), prefix) != 0 ||
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
            continue;
        const std::string digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
        if (digits.find_first_not_of("0123456789") != std::string::npos || digits.size() > 9) continue;
        const pid_t pid = static_cast<pid_t>(std::atol(digits.c_str()));
        if (pid > 0 && pid != ::getpid() && ::kill(pid, 0) != 0 && errno == ESRCH) {
            std::error_code ignored;
            fs::remove(entry.path(), ignored);
        }
    }
}

// Whether the file system holding `folder` has no block left for this user.
// Some writers do not check every write, so a full disk can look like success.
bool FileSystemFull(const fs::path& folder)
{
    struct statvfs space {};
    if (::statvfs(folder.c_str(), &space) != 0) return false;
    return (::geteuid() == 0 ? space.f_bfree : space.f_bavail) == 0;
}

}  // namespace

AtomicFile::AtomicFile(std::string finalPath) : m_final(std::move(finalPath))
{
    const fs::path p = LinkTarget(m_final);
    m_target = p.string();
    RemoveAbandoned(p);
    // Beside the final file, so the rename stays on one file system.
    m_temp = (p.parent_path() / ("." + p.filename().string() + kTempMark + std::to_string(::getpid()) + kTempEnd +
                                 p.extension().string()))
                 .string();
}

AtomicFile::~AtomicFile()
{
    if (!m_committed) std::remove(m_temp.c_str());
}

std::string AtomicFile::CannotReplace(const std::string& finalPath)
{
    const std::string target = LinkTarget(finalPath).string();
    if (::access(target.c_str(), F_OK) != 0 || ::access(target.c_str(), W_OK) == 0) return {};
    return "the file exists and may not be written by this user (" + std::string(std::strerror(errno)) + ")";
}

std::string AtomicFile::DiskFull() const { return FileSystemFull(FolderOf(m_temp)) ? std::strerror(ENOSPC) : ""; }

std::string AtomicFile::Commit()
{
    std::string why = CannotReplace(m_target);
    if (why.empty()) why = DiskFull();
    struct stat existing {};
    if (why.empty() && ::stat(m_target.c_str(), &existing) == 0) ::chmod(m_temp.c_str(), existing.st_mode & 07777);
    if (why.empty() && std::rename(m_temp.c_str(), m_target.c_str()) != 0)
        why = "renaming the finished file into place failed: " + std::string(std::strerror(errno));
    if (!why.empty()) {
        std::remove(m_temp.c_str());
        return why;
    }
    m_committed = true;
    return {};
}
