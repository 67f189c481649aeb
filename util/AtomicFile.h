#pragma once
// A file written under a temporary name beside its final name and renamed over
// it once complete, so that a reader (another render, the next run of a
// sequence) never sees half a file, and a failed write leaves the final name as
// it was. The temporary name is hidden, carries the process ID, so that two
// processes writing the same file never share it, and keeps the final extension:
//   /shots/.plate.0001.exr.4711.tmp.exr
//
// A final name that is a symbolic link is written through: the file the link
// leads to is replaced and the link stays. An existing file keeps its
// permission bits (a 0660 plate does not become world-readable).
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
    // the system's reason (the temporary file is then removed).
    std::string Commit();
    bool Committed() const { return m_committed; }

private:
    std::string m_final;
    std::string m_target;  // m_final with symbolic links followed
    std::string m_temp;
    bool m_committed = false;
};
