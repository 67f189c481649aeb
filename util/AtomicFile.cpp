#include "util/AtomicFile.h"

#include "util/FileIdentity.h"

#include <fcntl.h>
#include <sys/resource.h>
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
constexpr int kMostLinks = 40;  // as the kernel's own limit for a lookup

fs::path FolderOf(const fs::path& file) { return file.parent_path().empty() ? fs::path(".") : file.parent_path(); }

// Why the kernel's protected_symlinks rule would not let this user follow the
// link `path` (whose own details are `link`), or "".
std::string LinkNotFollowed(const fs::path& path, const struct stat& link)
{
    struct stat folder {};
    const fs::path dir = FolderOf(path);
    if (::stat(dir.c_str(), &folder) != 0) return {};
    const bool shared = (folder.st_mode & S_ISVTX) && (folder.st_mode & S_IWOTH);
    if (!shared || link.st_uid == folder.st_uid || link.st_uid == ::geteuid()) return {};
    return path.string() + " is a symbolic link owned by user " + std::to_string(link.st_uid) +
           " in the sticky world-writable folder " + dir.string() +
           "; such a link is followed only when it belongs to the folder's owner or to this user";
}

// Where `path` leads through any symbolic links, followed one at a time so a
// link to a file not yet there still names where it will be. `why` gets the
// reason when a link may not be followed or the links go round in a loop.
fs::path LinkTarget(fs::path path, std::string& why)
{
    for (int i = 0;; ++i) {
        struct stat link {};
        if (::lstat(path.c_str(), &link) != 0 || !S_ISLNK(link.st_mode)) return path;
        if (i == kMostLinks) {
            why = "its symbolic links go round in a loop (or pass " + std::to_string(kMostLinks) + " links)";
            return path;
        }
        if (why = LinkNotFollowed(path, link); !why.empty()) return path;
        std::error_code ec;
        const fs::path next = fs::read_symlink(path, ec);
        if (ec) return path;
        path = next.is_absolute() ? next : path.parent_path() / next;
    }
}

// Why the file `target` (links followed) may not be replaced, or "".
std::string CannotReplace(const std::string& target, const std::string& finalPath, AtomicFile::ReplaceRule rule)
{
    if (::access(target.c_str(), F_OK) != 0) return {};
    if (std::string kind = NotRegularFile(target); !kind.empty())
        return target == finalPath ? kind : "it leads to " + target + ": " + kind;
    if (::access(target.c_str(), W_OK) != 0)
        return "the file exists and may not be written by this user (" + std::string(std::strerror(errno)) + ")";
    return rule ? rule(target) : std::string();
}

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

// Whether `file` reached the process's file-size limit, where a writer that
// does not check its writes stops without a word.
bool AtSizeLimit(const std::string& file)
{
    struct rlimit limit {};
    struct stat st {};
    return ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
           ::stat(file.c_str(), &st) == 0 && static_cast<rlim_t>(st.st_size) >= limit.rlim_cur;
}

// The old file's owner and group, where this user may give them, and its bits.
void KeepOwnerAndMode(const std::string& temp, const struct stat& old)
{
    struct stat now {};
    const bool other = ::stat(temp.c_str(), &now) == 0 && (now.st_uid != old.st_uid || now.st_gid != old.st_gid);
    // Failing both, the file stays this user's: it may not give it away.
    if (other && ::chown(temp.c_str(), old.st_uid, old.st_gid) != 0)
        (void)!::chown(temp.c_str(), static_cast<uid_t>(-1), old.st_gid);
    // After chown, which clears the set-ID bits.
    ::chmod(temp.c_str(), old.st_mode & 07777);
}

}  // namespace

AtomicFile::AtomicFile(std::string finalPath, ReplaceRule rule, Naming naming) : m_final(std::move(finalPath)), m_rule(rule)
{
    if (std::string why = CannotWrite(m_final, rule); !why.empty()) throw Refused(why);
    std::string ignored;
    const fs::path p = LinkTarget(m_final, ignored);
    m_target = p.string();
    RemoveAbandoned(p);
    // Beside the final file, so the rename stays on one file system.
    m_temp = (p.parent_path() / ("." + p.filename().string() + kTempMark + std::to_string(::getpid()) + kTempEnd +
                                 p.extension().string()))
                 .string();
    if (naming) naming(m_temp);
    // Made here, new, so no link or file someone else left at this name is written through.
    ::unlink(m_temp.c_str());
    const int fd = ::open(m_temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) throw Refused("cannot make the temporary file " + m_temp + ": " + std::strerror(errno));
    ::close(fd);
}

AtomicFile::~AtomicFile()
{
    if (!m_committed) std::remove(m_temp.c_str());
}

std::string AtomicFile::CannotWrite(const std::string& finalPath, ReplaceRule rule)
{
    std::string why;
    const fs::path target = LinkTarget(finalPath, why);
    if (!why.empty()) return why;
    const fs::path folder = FolderOf(target);
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) return "folder " + folder.string() + " does not exist";
    if (::access(folder.c_str(), W_OK) != 0)
        return "folder " + folder.string() + " is not writable (" + std::strerror(errno) + ")";
    return CannotReplace(target.string(), finalPath, rule);
}

std::string AtomicFile::OutOfRoom() const
{
    if (FileSystemFull(FolderOf(m_temp))) return std::strerror(ENOSPC);
    return AtSizeLimit(m_temp) ? std::strerror(EFBIG) : "";
}

std::string AtomicFile::Commit()
{
    std::string why = CannotReplace(m_target, m_final, m_rule);
    if (why.empty()) why = OutOfRoom();
    struct stat existing {};
    if (why.empty() && ::stat(m_target.c_str(), &existing) == 0) KeepOwnerAndMode(m_temp, existing);
    if (why.empty() && std::rename(m_temp.c_str(), m_target.c_str()) != 0)
        why = "renaming the finished file into place failed: " + std::string(std::strerror(errno));
    if (!why.empty()) {
        std::remove(m_temp.c_str());
        return why;
    }
    m_committed = true;
    return {};
}
