#pragma once
// A file written with the system's own calls, every write checked. Image
// writers do not all survive a failed write: libjpeg ends the process, libpng
// does not look. So a writer is told that each write succeeded, the first
// failure (a full disk, a file-size limit) is kept, and Close() reports it,
// along with a file whose size is not what was written.
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

class CheckedFile {
public:
    // Opens `path` for writing, emptied; a symbolic link there is not followed.
    explicit CheckedFile(const std::string& path);
    ~CheckedFile();
    CheckedFile(const CheckedFile&) = delete;
    CheckedFile& operator=(const CheckedFile&) = delete;

    // Writes at the position and moves it on; WriteAt leaves it where it is.
    void Write(const void* data, std::size_t size);
    void WriteAt(const void* data, std::size_t size, std::uint64_t offset);
    // What was written there before, for writers that read their own file back.
    std::size_t ReadAt(void* data, std::size_t size, std::uint64_t offset) const;
    void Seek(std::uint64_t position) { m_position = position; }
    std::uint64_t Tell() const { return m_position; }
    // The end of what was written.
    std::uint64_t Size() const { return m_end; }
    // Closes the file. "" when every byte is in it, else the first failure's reason.
    std::string Close();

private:
    void Fail(int error);

    int m_fd = -1;
    std::uint64_t m_position = 0;
    std::uint64_t m_end = 0;
    std::string m_failure;
    mutable std::mutex m_mutex;
};
