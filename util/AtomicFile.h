#pragma once
// A file written under a temporary name beside its final name and renamed over
// it once complete, so that a reader (another render, the next run of a
// sequence) never sees half a file, and a failed write leaves the final name as
// it was. The temporary name is hidden, says whose it is and carries the
// process ID, so that two processes writing the same file never share it, and
// keeps the final extension (image writers choose their format by it):
//   /shots/.plate.0001.exr.lumivane-4711.tmp.exr
// A process killed outright leaves its temporary file behind; the next
// AtomicFile for the same final name removes those whose process is gone.
//
// Nothing but a regular file is ever replaced: a final name that is (or leads
// to) a folder, a device, a FIFO or a socket is refused. A symbolic link is
// written through (the file it leads to is replaced and the link stays), but
// only where the kernel's protected_symlinks rule would let this user open
// it: not a link in a sticky world-writable folder (/tmp) owned by someone
// other than the folder's owner or this user, so another user's link cannot
// aim this program at a file of its choosing. A replaced file keeps its
// permission bits, and its owner and group where this user may set them (the
// superuser always may); one the user may not write to is not replaced, even
// when its folder is writable.
#include <stdexcept>
#include <string>

class AtomicFile {
public:
    // Why the existing regular file `path` may not be replaced by this kind
    // of file ("it holds something else"), or "".
    using ReplaceRule = std::string (*)(const std::string& path);
    // The reason a final name may not be written (what() names no file).
    struct Refused : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    // Told the temporary file's name before the file is made, so that whoever
    // must remove it when the program is stopped knows it first.
    using Naming = void (*)(const std::string& tempPath);

    // Makes the temporary file, empty. Throws Refused with CannotWrite's
    // reason, or when the temporary file cannot be made.
    explicit AtomicFile(std::string finalPath, ReplaceRule rule = nullptr, Naming naming = nullptr);
    // Removes the temporary file unless it was committed.
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    const std::string& TempPath() const { return m_temp; }
    const std::string& FinalPath() const { return m_final; }
    // Renames the temporary file over the final one. Returns "" on success, else
    // why not (the temporary file is then removed): the existing file may not be
    // replaced, the file system is full or the file reached the file-size limit
    // (a writer that missed a failed write may have left the file cut short), or
    // the system's reason for the rename.
    std::string Commit();
    bool Committed() const { return m_committed; }
    // Why `finalPath` may not be written, or "": its folder is missing or not
    // writable, a link on the way may not be followed or goes round in a loop,
    // or what is there is not a regular file this user may replace (and that
    // `rule` accepts).
    static std::string CannotWrite(const std::string& finalPath, ReplaceRule rule = nullptr);
    // The system's words for a full disk when the file system the temporary
    // file is on has no block left for this user, or for a file too large when
    // the temporary file reached the process's file-size limit; else "".
    std::string OutOfRoom() const;

private:
    std::string m_final;
    std::string m_target;  // m_final with symbolic links followed
    std::string m_temp;
    ReplaceRule m_rule = nullptr;
    bool m_committed = false;
};
