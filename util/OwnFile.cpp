#include "util/OwnFile.h"

#include <filesystem>

#include <dlfcn.h>

namespace fs = std::filesystem;

std::string OwnFile(const void* address)
{
    std::error_code ec;
    if (!address) {
        const fs::path program = fs::read_symlink("/proc/self/exe", ec);
        return ec ? std::string() : program.string();
    }
    Dl_info info{};
    if (!dladdr(address, &info) || !info.dli_fname) return {};
    const fs::path file = fs::canonical(info.dli_fname, ec);
    return ec ? std::string() : file.string();
}

std::string BesideOwnFile(const void* address, const std::string& relative, Beside kind, const std::string& fallback)
{
    const std::string own = OwnFile(address);
    if (own.empty()) return fallback;
    const fs::path there = (fs::path(own).parent_path() / relative).lexically_normal();
    std::error_code ec;
    const bool found = kind == Beside::Folder ? fs::is_directory(there, ec) : fs::exists(there, ec);
    return found ? there.string() : fallback;
}
