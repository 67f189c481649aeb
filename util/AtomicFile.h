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
// A final name that is a symbolic link is written through: the file the link
// leads to is replaced and the link stays. An existing file keeps its
// permission bits (a 0660 plate does not become world-readable), and one the
// user may not write to is not replaced, even when its folder is writable.
#include <string>

class AtomicFile {
public:
    explicit AtomicFile(std::string finalPath);
    // Removes the temporary file unless it was committed.
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    const std::string& TempPath() const { return m_temp; }
    const std::string& FinalPath() const { return m_final; }
    // Renames the temporary file over the final one. Returns "" on success, else
    // why not (the temporary file is then removed): the existing file may not be
    // written, the file system is full (a writer that missed a failed write may
    // have left the file cut short), or the system's reason for the rename.
    std::string Commit();
    bool Committed() const { return m_committed; }
    // Why an existing file at `finalPath` may not be replaced by this user, or "".
    static std::string CannotReplace(const std::string& finalPath);
    // The system's words for a full disk when the file system the temporary
    // file is on has no block left for this user, else "".
    std::string DiskFull() const;

private:
    std::string m_final;
    std::string m_target;  // m_final with symbolic links followed
    std::string m_temp;
    bool m_committed = false;
};
