#include "util/CheckedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

CheckedFile::CheckedFile(const std::string& path)
{
    m_fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (m_fd < 0) Fail(errno);
}

CheckedFile::~CheckedFile()
{
    if (m_fd >= 0) ::close(m_fd);
}

void CheckedFile::Fail(int error)
{
    if (m_failure.empty()) m_failure = std::strerror(error);
}

void CheckedFile::Write(const void* data, std::size_t size)
{
    WriteAt(data, size, m_position);
    m_position += size;
}

void CheckedFile::WriteAt(const void* data, std::size_t size, std::uint64_t offset)
{
    const std::lock_guard<std::mutex> hold(m_mutex);
    m_end = std::max(m_end, offset + size);
    if (m_fd < 0 || !m_failure.empty()) return;  // the file is lost already
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = ::pwrite(m_fd, bytes, size, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return Fail(n < 0 ? errno : ENOSPC);
        bytes += n;
        size -= static_cast<std::size_t>(n);
        offset += static_cast<std::uint64_t>(n);
    }
}

std::size_t CheckedFile::ReadAt(void* data, std::size_t size, std::uint64_t offset) const
{
    const std::lock_guard<std::mutex> hold(m_mutex);
    if (m_fd < 0) return 0;
    const ssize_t n = ::pread(m_fd, data, size, static_cast<off_t>(offset));
    return n > 0 ? static_cast<std::size_t>(n) : 0;
}

std::string CheckedFile::Close()
{
    const std::lock_guard<std::mutex> hold(m_mutex);
    if (m_fd >= 0) {
        struct stat st {};
        if (m_failure.empty() && ::fstat(m_fd, &st) == 0 && static_cast<std::uint64_t>(st.st_size) != m_end)
            m_failure = "the file holds " + std::to_string(st.st_size) + " bytes of the " + std::to_string(m_end) +
                        " written";
        if (::close(m_fd) != 0) Fail(errno);
        m_fd = -1;
    }
    return m_failure;
}
