#include "host/MemoryBudget.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace {

std::atomic<std::uint64_t> g_limit{0};

std::uint64_t AvailableMemory()
{
    // MemAvailable counts what can be had without swapping, caches included.
    std::ifstream info("/proc/meminfo");
    std::string key;
    std::uint64_t kib = 0;
    std::string unit;
    while (info >> key >> kib >> unit)
        if (key == "MemAvailable:") return kib * 1024;
    const long pages = sysconf(_SC_AVPHYS_PAGES), size = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && size > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size) : 0;
}

}  // namespace

std::uint64_t ParseMemorySize(const std::string& text)
{
    const std::string accepted = "a size such as 512M, 8G or 1.5G (K, M, G, T), or a number of bytes";
    std::size_t used = 0;
    double value = 0;
    try {
        value = std::stod(text, &used);
    } catch (const std::exception&) {
        throw std::invalid_argument("\"" + text + "\" is not " + accepted);
    }
    double scale = 1;
    const std::string unit = text.substr(used);
    if (unit == "K" || unit == "k") scale = 1024.0;
    else if (unit == "M" || unit == "m") scale = 1024.0 * 1024;
    else if (unit == "G" || unit == "g") scale = 1024.0 * 1024 * 1024;
    else if (unit == "T" || unit == "t") scale = 1024.0 * 1024 * 1024 * 1024;
    else if (!unit.empty()) throw std::invalid_argument("\"" + text + "\" is not " + accepted);
    if (!std::isfinite(value) || value <= 0 || value * scale > 1.8e19)
        throw std::invalid_argument("\"" + text + "\" is not " + accepted);
    return static_cast<std::uint64_t>(value * scale);
}

std::string FormatMemorySize(std::uint64_t bytes)
{
    char text[32];
    if (bytes >= (std::uint64_t{1} << 30)) std::snprintf(text, sizeof text, "%.1f GiB", bytes / 1073741824.0);
    else std::snprintf(text, sizeof text, "%.0f MiB", std::ceil(bytes / 1048576.0));
    return text;
}

void SetMemoryLimit(std::uint64_t bytes) { g_limit = bytes; }

std::uint64_t MemoryLimit()
{
    if (const std::uint64_t set = g_limit) return set;
    if (const char* env = std::getenv("LUMIVANE_MAX_MEMORY")) {
        try {
            return ParseMemorySize(env);
        } catch (const std::invalid_argument&) {
        }
    }
    return AvailableMemory();
}

std::string MemoryLimitSource()
{
    if (g_limit) return "the memory limit";
    if (std::getenv("LUMIVANE_MAX_MEMORY")) return "LUMIVANE_MAX_MEMORY";
    return "the memory available";
}
