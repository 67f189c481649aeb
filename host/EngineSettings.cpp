#include "host/EngineSettings.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

namespace {

constexpr const char* kThreadsVariable = "LUMIVANE_THREADS";
constexpr const char* kPlanningVariable = "LUMIVANE_FFT_PLANNING";
constexpr const char* kWisdomVariable = "LUMIVANE_FFT_WISDOM";
constexpr const char* kSizesVariable = "LUMIVANE_TRANSFORM_SIZES";
constexpr const char* kMemoryVariable = "LUMIVANE_MAX_MEMORY";
constexpr unsigned kMostThreads = 256;

struct Settings {
    std::optional<unsigned> threads;
    std::optional<FftEffort> planning;
    std::optional<std::string> wisdom;
    std::optional<TransformSizes> sizes;
    std::optional<std::uint64_t> memory;
};

std::mutex g_mutex;
Settings g_set;

template <class T>
std::optional<T> WasSet(const std::optional<T> Settings::*field)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_set.*field;
}

template <class T>
void Set(std::optional<T> Settings::*field, std::optional<T> value)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_set.*field = std::move(value);
}

// The variable's value, or nothing when it is unset or empty.
std::optional<std::string> Variable(const char* name)
{
    const char* v = std::getenv(name);
    if (!v || !*v) return std::nullopt;
    return std::string(v);
}

// The variable parsed by parse, with the variable named when it is malformed.
template <class Parse>
auto FromVariable(const char* name, Parse parse) -> std::optional<decltype(parse(std::string()))>
{
    const std::optional<std::string> text = Variable(name);
    if (!text) return std::nullopt;
    try {
        return parse(*text);
    } catch (const std::invalid_argument& e) {
        throw std::invalid_argument(std::string(name) + ": " + e.what());
    }
}

// The most of the machine's memory a frame may take by default, so that the
// machine stays usable (its desktop, other programs) while it renders.
constexpr std::uint64_t kShareOfPhysicalPercent = 75;

std::uint64_t PhysicalMemory()
{
    const long pages = sysconf(_SC_PHYS_PAGES), size = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && size > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size) : 0;
}

std::uint64_t ShareOfPhysicalMemory() { return PhysicalMemory() / 100 * kShareOfPhysicalPercent; }

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

unsigned ParseThreads(const std::string& text)
{
    const std::string accepted = "a whole number of threads from 1 to " + std::to_string(kMostThreads);
    if (text.empty() || text.size() > 3 || !std::all_of(text.begin(), text.end(), ::isdigit))
        throw std::invalid_argument("\"" + text + "\" is not " + accepted);
    const unsigned n = static_cast<unsigned>(std::stoul(text));
    if (n < 1 || n > kMostThreads) throw std::invalid_argument("\"" + text + "\" is not " + accepted);
    return n;
}

FftEffort ParseFftPlanning(const std::string& text)
{
    if (text == "estimate") return FftEffort::Estimate;
    if (text == "measure") return FftEffort::Measure;
    throw std::invalid_argument("\"" + text + "\" is not a planning effort: estimate or measure");
}

TransformSizes ParseTransformSizes(const std::string& text)
{
    if (text == "power-of-two") return TransformSizes::PowersOfTwo;
    if (text == "smooth") return TransformSizes::Smooth;
    throw std::invalid_argument("\"" + text + "\" is not a transform size rule: power-of-two or smooth");
}

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

unsigned EngineThreads()
{
    if (const auto set = WasSet(&Settings::threads)) return *set;
    if (const auto env = FromVariable(kThreadsVariable, ParseThreads)) return *env;
    return std::max(1u, std::thread::hardware_concurrency());
}

FftEffort EngineFftPlanning()
{
    if (const auto set = WasSet(&Settings::planning)) return *set;
    return FromVariable(kPlanningVariable, ParseFftPlanning).value_or(FftEffort::Estimate);
}

std::string EngineFftWisdom()
{
    if (const auto set = WasSet(&Settings::wisdom)) return *set;
    return Variable(kWisdomVariable).value_or(std::string());
}

TransformSizes EngineTransformSizes()
{
    if (const auto set = WasSet(&Settings::sizes)) return *set;
    return FromVariable(kSizesVariable, ParseTransformSizes).value_or(TransformSizes::PowersOfTwo);
}

std::uint64_t MemoryLimit()
{
    if (const auto set = WasSet(&Settings::memory)) return *set;
    if (const auto env = FromVariable(kMemoryVariable, ParseMemorySize)) return *env;
    return std::min(AvailableMemory(), ShareOfPhysicalMemory());
}

std::string MemoryLimitSource()
{
    if (WasSet(&Settings::memory)) return "the memory limit";
    if (Variable(kMemoryVariable)) return kMemoryVariable;
    return AvailableMemory() <= ShareOfPhysicalMemory()
               ? "the memory available"
               : std::to_string(kShareOfPhysicalPercent) + "% of the machine's memory";
}

void SetEngineThreads(unsigned threads)
{
    Set(&Settings::threads, threads ? std::optional<unsigned>(threads) : std::nullopt);
}
void SetEngineFftPlanning(FftEffort effort) { Set(&Settings::planning, std::optional<FftEffort>(effort)); }
void SetEngineFftWisdom(const std::string& file)
{
    Set(&Settings::wisdom, file.empty() ? std::nullopt : std::optional<std::string>(file));
}
void SetEngineTransformSizes(TransformSizes sizes) { Set(&Settings::sizes, std::optional<TransformSizes>(sizes)); }
void SetMemoryLimit(std::uint64_t bytes)
{
    Set(&Settings::memory, bytes ? std::optional<std::uint64_t>(bytes) : std::nullopt);
}

namespace {
std::atomic<std::uint64_t> g_hostFrameMemory{0};
std::atomic<bool> g_keepTransformBuffers{false};
}  // namespace

std::uint64_t HostFrameMemory() { return g_hostFrameMemory.load(); }
void SetHostFrameMemory(std::uint64_t bytes) { g_hostFrameMemory.store(bytes); }
bool HostKeepsTransformBuffers() { return g_keepTransformBuffers.load(); }
void SetHostKeepsTransformBuffers(bool keep) { g_keepTransformBuffers.store(keep); }

void ResetEngineSettings()
{
    g_hostFrameMemory.store(0);
    g_keepTransformBuffers.store(false);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_set = Settings{};
}

void CheckEngineEnvironment()
{
    FromVariable(kThreadsVariable, ParseThreads);
    FromVariable(kPlanningVariable, ParseFftPlanning);
    FromVariable(kSizesVariable, ParseTransformSizes);
    FromVariable(kMemoryVariable, ParseMemorySize);
}
