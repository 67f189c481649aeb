#include "fft/FftPlans.h"

#include "fft/FftBuffers.h"
#include "util/AtomicFile.h"
#include "util/CheckedFile.h"
#include "util/FftwWisdom.h"
#include "util/FileIdentity.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <tuple>

namespace {

// Columns gathered per block in the column stage: eight complex values are two
// cache lines of each spectrum row, and the block of a 4096-row column stays in
// the core's own cache.
constexpr std::int32_t kColumnBlock = 8;

struct PlanningSettings {
    FftPlanning mode = FftPlanning::Estimate;
    std::string wisdomFile;
    bool wisdomImported = false;
};

using PlanKey = std::tuple<std::int32_t, std::int32_t, bool>;

// Guards every call into FFTW other than execution, and the settings. Held for the
// whole of a planning run, which may take seconds in measure mode.
std::mutex& PlannerMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Guards the cache map alone, held only for a look-up or an insertion, so arrays
// whose size is already planned never wait for another size's planning.
std::mutex& CacheMutex()
{
    static std::mutex mutex;
    return mutex;
}

// The plans live until the module that made them is unloaded; ReleaseAtUnload
// destroys them first.
std::map<PlanKey, std::unique_ptr<FftPlanPair>>& PlanCache()
{
    static std::map<PlanKey, std::unique_ptr<FftPlanPair>> cache;
    return cache;
}

std::atomic<std::uint64_t> plansCreated{0};

PlanningSettings& Settings()  // call with PlannerMutex held
{
    static PlanningSettings settings;
    return settings;
}

// Why the wisdom could not be put in the file, or "".
std::string WriteWisdomLocked(const std::string& path)
{
    char* text = fftw_export_wisdom_to_string();
    if (!text) return "FFTW could not export its wisdom";
    const std::unique_ptr<char, decltype(&fftw_free)> hold(text, &fftw_free);
    try {
        // Another render of the sequence may be reading it.
        AtomicFile file(path, NotFftwWisdom);
        CheckedFile out(file.TempPath());
        out.Write(text, std::strlen(text));
        if (std::string why = out.Close(); !why.empty()) return why;
        return file.Commit();
    } catch (const AtomicFile::Refused& e) {
        return e.what();
    }
}

bool ExportWisdomLocked(const PlanningSettings& settings)
{
    if (settings.wisdomFile.empty()) return false;
    const std::string why = WriteWisdomLocked(settings.wisdomFile);
    if (why.empty()) return true;
    // Said once a file: the renders go on, only the measured plans are not kept.
    static std::set<std::string> warned;
    if (warned.insert(settings.wisdomFile).second)
        std::fprintf(stderr, "lumivane: warning: cannot write the FFT wisdom file %s: %s; the plans measured are "
                             "not kept for the next run\n",
                     settings.wisdomFile.c_str(), why.c_str());
    return false;
}

void DestroyPlansLocked(FftPlanPair& plans)
{
    for (fftw_plan* plan : {&plans.forward, &plans.backward, &plans.rowForward, &plans.rowBackward,
                            &plans.columnsForward, &plans.columnsBackward, &plans.restForward,
                            &plans.restBackward}) {
        if (*plan) fftw_destroy_plan(*plan);
        *plan = nullptr;
    }
}

// The column stage's plans: `count` columns of `height` complex values,
// interleaved (column b's value y at block[y * count + b]), in place.
fftw_plan PlanColumnsLocked(std::int32_t height, std::int32_t count, int sign, fftw_complex* block,
                            unsigned flags)
{
    const fftw_iodim dims = {height, count, count};
    const fftw_iodim loop = {count, 1, 1};
    return fftw_plan_guru_dft(1, &dims, 1, &loop, block, block, sign, flags);
}

FftStatus MakePlansLocked(std::int32_t width, std::int32_t height, bool unaligned,
                          FftPlanPair& plans)
{
    if (width <= 0 || height <= 0) return FftStatus::InvalidSize;
    const std::int64_t rowStride = std::int64_t{width} + 2;
    const std::int64_t length = rowStride * height;
    if (length > INT_MAX) return FftStatus::InvalidSize;

    PlanningSettings& settings = Settings();
    if (!settings.wisdomImported && !settings.wisdomFile.empty()) {
        // A missing file is the normal first run of a sequence, not an error;
        // a FIFO or a device would never end.
        if (NotRegularFile(settings.wisdomFile).empty()) fftw_import_wisdom_from_filename(settings.wisdomFile.c_str());
        settings.wisdomImported = true;
    }

    // Measure mode runs trial transforms on the buffer it is given: a scratch buffer
    // keeps that away from any array's data. Estimate mode never touches it, and
    // the untouched pages of a large allocation cost nothing.
    double* scratch = AllocateFftBuffer(static_cast<std::size_t>(length));
    if (!scratch) return FftStatus::MemoryError;
    auto* spectrum = reinterpret_cast<fftw_complex*>(scratch);

    const int realStride = static_cast<int>(rowStride);
    const int complexStride = static_cast<int>(rowStride / 2);
    const unsigned flags = (settings.mode == FftPlanning::Measure ? FFTW_MEASURE : FFTW_ESTIMATE)
                           | (unaligned ? FFTW_UNALIGNED : 0u);

    plans = FftPlanPair{};
    plans.width = width;
    plans.height = height;
    plans.unaligned = unaligned;
    plans.planning = settings.mode;
    plans.alignment = fftw_alignment_of(scratch);
    bool made;
    if (width % 2 == 0) {
        const fftw_iodim row = {width, 1, 1};
        plans.rowForward = fftw_plan_guru_dft_r2c(1, &row, 0, nullptr, scratch, spectrum, flags);
        plans.rowBackward = fftw_plan_guru_dft_c2r(1, &row, 0, nullptr, spectrum, scratch, flags);
        // The column blocks live in buffers of their own, aligned whatever the array is.
        const unsigned columnFlags = flags & ~static_cast<unsigned>(FFTW_UNALIGNED);
        plans.columnBlock = std::min(kColumnBlock, complexStride);
        plans.columnsForward = PlanColumnsLocked(height, plans.columnBlock, FFTW_FORWARD, spectrum, columnFlags);
        plans.columnsBackward = PlanColumnsLocked(height, plans.columnBlock, FFTW_BACKWARD, spectrum, columnFlags);
        made = plans.rowForward && plans.rowBackward && plans.columnsForward && plans.columnsBackward;
        if (const std::int32_t rest = complexStride % plans.columnBlock) {
            plans.restForward = PlanColumnsLocked(height, rest, FFTW_FORWARD, spectrum, columnFlags);
            plans.restBackward = PlanColumnsLocked(height, rest, FFTW_BACKWARD, spectrum, columnFlags);
            made = made && plans.restForward && plans.restBackward;
        }
    } else {
        const fftw_iodim forwardDims[2] = {{height, realStride, complexStride}, {width, 1, 1}};
        const fftw_iodim backwardDims[2] = {{height, complexStride, realStride}, {width, 1, 1}};
        plans.forward = fftw_plan_guru_dft_r2c(2, forwardDims, 0, nullptr, scratch, spectrum, flags);
        plans.backward = fftw_plan_guru_dft_c2r(2, backwardDims, 0, nullptr, spectrum, scratch, flags);
        made = plans.forward && plans.backward;
    }
    FreeFftBuffer(scratch);
    for (const fftw_plan plan : {plans.forward, plans.backward, plans.rowForward, plans.rowBackward,
                                 plans.columnsForward, plans.columnsBackward, plans.restForward, plans.restBackward})
        if (plan) ++plansCreated;
    if (!made) {
        DestroyPlansLocked(plans);
        return FftStatus::PlanFailed;
    }
    if (settings.mode == FftPlanning::Measure) ExportWisdomLocked(settings);
    return FftStatus::NoError;
}

// Destroys every cached plan when the module holding them is unloaded, or the
// process ends, after the last render, and then FFTW's own planner state: the
// plug-in is the only user of FFTW in the host's process, and FFTW's library goes
// away with the module, taking with it the only pointer to that state. Made after
// what it releases, so it is destroyed before them.
struct ReleaseAtUnload {
    ReleaseAtUnload()
    {
        PlannerMutex();
        CacheMutex();
        PlanCache();
    }
    ~ReleaseAtUnload()
    {
        std::lock_guard<std::mutex> planner(PlannerMutex());
        std::lock_guard<std::mutex> lock(CacheMutex());
        for (auto& entry : PlanCache()) DestroyPlansLocked(*entry.second);
        PlanCache().clear();
        fftw_cleanup();
    }
} releaseAtUnload;

}  // namespace

const char* FftStatusText(FftStatus status)
{
    switch (status) {
    case FftStatus::NoError: return "FFTW_NO_ERROR";
    case FftStatus::MemoryError: return "FFTW_MEMORY_ERROR";
    case FftStatus::InvalidSize: return "FFTW_INVALID_SIZE";
    case FftStatus::PlanFailed: return "FFTW_PLAN_FAILED";
    }
    return "FFTW_UNKNOWN_STATUS";
}

void SetFftPlanning(FftPlanning mode, std::string wisdomFile)
{
    std::lock_guard<std::mutex> lock(PlannerMutex());
    PlanningSettings& settings = Settings();
    settings.mode = mode;
    if (wisdomFile != settings.wisdomFile) {
        settings.wisdomFile = std::move(wisdomFile);
        settings.wisdomImported = false;
    }
}

FftPlanning CurrentFftPlanning()
{
    std::lock_guard<std::mutex> lock(PlannerMutex());
    return Settings().mode;
}

bool ExportFftWisdom()
{
    std::lock_guard<std::mutex> lock(PlannerMutex());
    return ExportWisdomLocked(Settings());
}

std::uint64_t FftPlansCreated() { return plansCreated.load(); }

FftStatus AcquireFftPlans(std::int32_t width, std::int32_t height, bool unaligned,
                          const FftPlanPair*& plans)
{
    const PlanKey key{width, height, unaligned};
    auto lookUp = [&key]() -> const FftPlanPair* {
        std::lock_guard<std::mutex> lock(CacheMutex());
        auto found = PlanCache().find(key);
        return found == PlanCache().end() ? nullptr : found->second.get();
    };
    if ((plans = lookUp())) return FftStatus::NoError;

    std::lock_guard<std::mutex> planning(PlannerMutex());
    // Another thread may have planned this size while this one waited.
    if ((plans = lookUp())) return FftStatus::NoError;
    auto made = std::make_unique<FftPlanPair>();
    const FftStatus status = MakePlansLocked(width, height, unaligned, *made);
    if (status != FftStatus::NoError) return status;
    plans = made.get();
    std::lock_guard<std::mutex> lock(CacheMutex());
    PlanCache().emplace(key, std::move(made));
    return FftStatus::NoError;
}

FftStatus MakeFftPlans(std::int32_t width, std::int32_t height, bool unaligned,
                       FftPlanPair& plans)
{
    std::lock_guard<std::mutex> lock(PlannerMutex());
    return MakePlansLocked(width, height, unaligned, plans);
}

void DestroyFftPlans(FftPlanPair& plans)
{
    std::lock_guard<std::mutex> lock(PlannerMutex());
    DestroyPlansLocked(plans);
}

bool FftPlansFit(const FftPlanPair& plans, const double* buffer)
{
    return plans.unaligned || fftw_alignment_of(const_cast<double*>(buffer)) == plans.alignment;
}

