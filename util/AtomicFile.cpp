#include "util/AtomicFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

AtomicFile::AtomicFile(std::string finalPath) : m_final(std::move(finalPath))
{
    const std::filesystem::path p(m_final);
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
    if (std::rename(m_temp.c_str(), m_final.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        std::remove(m_temp.c_str());
        return why;
    }
    m_committed = true;
    return {};
}
