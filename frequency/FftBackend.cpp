#include "frequency/FftBackend.h"

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>

namespace {

constexpr const char* kPlanningVariable = "LUMIVANE_FFT_PLANNING";
constexpr const char* kWisdomVariable = "LUMIVANE_FFT_WISDOM";
constexpr const char* kMeasureValue = "measure";

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

// Never destroyed: plans live as long as the process, and a transform still running
// on a worker thread while the process exits must not find them freed.
std::map<PlanKey, std::unique_ptr<FftPlanPair>>& PlanCache()
{
    static auto* cache = new std::map<PlanKey, std::unique_ptr<FftPlanPair>>;
    return *cache;
}

std::atomic<std::uint64_t> plansCreated{0};

PlanningSettings& Settings()  // call with PlannerMutex held
{
    static PlanningSettings settings = [] {
        PlanningSettings fromEnvironment;
        const char* mode = std::getenv(kPlanningVariable);
        if (mode && std::string(mode) == kMeasureValue) fromEnvironment.mode = FftPlanning::Measure;
        if (const char* file = std::getenv(kWisdomVariable)) fromEnvironment.wisdomFile = file;
        return fromEnvironment;
    }();
    return settings;
}

bool ExportWisdomLocked(const PlanningSettings& settings)
{
    if (settings.wisdomFile.empty()) return false;
    // Written beside the target and renamed over it, so a reader (another render of
    // the sequence, say) never sees half a file.
    const std::string temporary = settings.wisdomFile + ".tmp";
    if (!fftw_export_wisdom_to_filename(temporary.c_str())) return false;
    return std::rename(temporary.c_str(), settings.wisdomFile.c_str()) == 0;
}

void DestroyPlansLocked(FftPlanPair& plans)
{
    if (plans.forward) fftw_destroy_plan(plans.forward);
    if (plans.backward) fftw_destroy_plan(plans.backward);
    plans.forward = plans.backward = nullptr;
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
        // A missing file is the normal first run of a sequence, not an error.
        fftw_import_wisdom_from_filename(settings.wisdomFile.c_str());
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
    const fftw_iodim forwardDims[2] = {{height, realStride, complexStride}, {width, 1, 1}};
    const fftw_iodim backwardDims[2] = {{height, complexStride, realStride}, {width, 1, 1}};

    plans = FftPlanPair{};
    plans.width = width;
    plans.height = height;
    plans.unaligned = unaligned;
    plans.planning = settings.mode;
    plans.alignment = fftw_alignment_of(scratch);
    plans.forward = fftw_plan_guru_dft_r2c(2, forwardDims, 0, nullptr, scratch, spectrum, flags);
    plans.backward = fftw_plan_guru_dft_c2r(2, backwardDims, 0, nullptr, spectrum, scratch, flags);
    FreeFftBuffer(scratch);
    plansCreated += (plans.forward ? 1 : 0) + (plans.backward ? 1 : 0);
    if (!plans.forward || !plans.backward) {
        DestroyPlansLocked(plans);
        return FftStatus::PlanFailed;
    }
    if (settings.mode == FftPlanning::Measure) ExportWisdomLocked(settings);
    return FftStatus::NoError;
}

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

// fftw_malloc, fftw_free and fftw_alignment_of are a plain aligned allocation, its
// free and pointer arithmetic: they share no state with the planner and need no lock.
double* AllocateFftBuffer(std::size_t count)
{
    if (count > SIZE_MAX / sizeof(double)) return nullptr;
    return static_cast<double*>(fftw_malloc(count * sizeof(double)));
}

void FreeFftBuffer(double* buffer) { fftw_free(buffer); }

bool FftPlansFit(const FftPlanPair& plans, const double* buffer)
{
    return plans.unaligned || fftw_alignment_of(const_cast<double*>(buffer)) == plans.alignment;
}

void ExecuteForwardFft(const FftPlanPair& plans, double* buffer)
{
    fftw_execute_dft_r2c(plans.forward, buffer, reinterpret_cast<fftw_complex*>(buffer));
}

void ExecuteBackwardFft(const FftPlanPair& plans, double* buffer)
{
    fftw_execute_dft_c2r(plans.backward, reinterpret_cast<fftw_complex*>(buffer), buffer);
}
