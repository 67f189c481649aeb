#include "frequency/FftBackend.h"

#include <sys/mman.h>

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
#include <system_error>
#include <thread>
#include <tuple>
#include <vector>

namespace {

constexpr const char* kPlanningVariable = "LUMIVANE_FFT_PLANNING";
constexpr const char* kWisdomVariable = "LUMIVANE_FFT_WISDOM";
constexpr const char* kMeasureValue = "measure";

// Columns gathered per block in the column stage: eight complex values are two
// cache lines of each spectrum row, and the block of a 4096-row column stays in
// the core's own cache.
constexpr std::int32_t kColumnBlock = 8;

// Buffers from this size up start on a huge page boundary and are advised for
// huge pages; smaller ones keep the alignment FFTW's SIMD code wants.
constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kSimdAlignment = 64;

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
// below destroys them first.
std::map<PlanKey, std::unique_ptr<FftPlanPair>>& PlanCache()
{
    static std::map<PlanKey, std::unique_ptr<FftPlanPair>> cache;
    return cache;
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

// A plain aligned allocation (which is what fftw_malloc is) and fftw_alignment_of,
// pointer arithmetic: they share no state with the planner and need no lock. A huge
// page is only a hint: where the system gives none, the pages are ordinary ones.
double* AllocateFftBuffer(std::size_t count)
{
    if (count > SIZE_MAX / sizeof(double)) return nullptr;
    const std::size_t bytes = count * sizeof(double);
    const bool huge = bytes >= kHugePage;
    void* buffer = nullptr;
    if (posix_memalign(&buffer, huge ? kHugePage : kSimdAlignment, bytes == 0 ? 1 : bytes) != 0) return nullptr;
    if (huge) madvise(buffer, bytes / kHugePage * kHugePage, MADV_HUGEPAGE);
    return static_cast<double*>(buffer);
}

void FreeFftBuffer(double* buffer) { std::free(buffer); }

namespace {

struct KeptBuffer {
    double* buffer;
    std::size_t count;
};

std::mutex& KeptMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Newest last. Freed with the plan cache when the module is unloaded.
std::vector<KeptBuffer>& Kept()
{
    static std::vector<KeptBuffer> kept;
    return kept;
}

// Lets go of every cached plan and kept buffer when the module holding them is
// unloaded, or the process ends, after the last render: a host that unloads a
// plug-in gets its memory back. Made after what it releases, so it is destroyed
// before them.
struct ReleaseAtUnload {
    ReleaseAtUnload()
    {
        PlannerMutex();
        CacheMutex();
        PlanCache();
        KeptMutex();
        Kept();
    }
    ~ReleaseAtUnload()
    {
        {
            std::lock_guard<std::mutex> planner(PlannerMutex());
            std::lock_guard<std::mutex> lock(CacheMutex());
            for (auto& entry : PlanCache()) DestroyPlansLocked(*entry.second);
            PlanCache().clear();
        }
        std::lock_guard<std::mutex> lock(KeptMutex());
        for (const KeptBuffer& k : Kept()) FreeFftBuffer(k.buffer);
        Kept().clear();
    }
} releaseAtUnload;

}  // namespace

double* TakeFftBuffer(std::size_t count)
{
    std::vector<KeptBuffer> stale;
    {
        std::lock_guard<std::mutex> lock(KeptMutex());
        std::vector<KeptBuffer>& kept = Kept();
        for (auto it = kept.rbegin(); it != kept.rend(); ++it)
            if (it->count == count) {
                double* buffer = it->buffer;
                kept.erase(std::next(it).base());
                return buffer;
            }
        // Renders have moved on to another size: what is kept would only sit there.
        stale.swap(kept);
    }
    for (const KeptBuffer& k : stale) FreeFftBuffer(k.buffer);
    return AllocateFftBuffer(count);
}

void ReturnFftBuffer(double* buffer, std::size_t count)
{
    if (!buffer) return;
    double* oldest = nullptr;
    {
        std::lock_guard<std::mutex> lock(KeptMutex());
        std::vector<KeptBuffer>& kept = Kept();
        kept.push_back({buffer, count});
        if (kept.size() > static_cast<std::size_t>(kKeptFftBuffers)) {
            oldest = kept.front().buffer;
            kept.erase(kept.begin());
        }
    }
    FreeFftBuffer(oldest);
}

bool FftPlansFit(const FftPlanPair& plans, const double* buffer)
{
    return plans.unaligned || fftw_alignment_of(const_cast<double*>(buffer)) == plans.alignment;
}

namespace {

// The rows [first, last) of a transform that are worked on.
struct RowSpan {
    std::int32_t first, last;
};

// Rows of the array that the transform touches, as at most two spans.
std::vector<RowSpan> SpansOf(const FftPlanPair& plans, const FftRows& rows)
{
    const std::int32_t h = plans.height;
    const std::int32_t leading = std::clamp(rows.leading, 0, h);
    const std::int32_t trailing = std::clamp(rows.trailing, 0, h);
    if (leading >= h - trailing) return {{0, h}};
    std::vector<RowSpan> spans;
    if (leading > 0) spans.push_back({0, leading});
    if (trailing > 0) spans.push_back({h - trailing, h});
    return spans;
}

void TransformRows(const FftPlanPair& plans, double* buffer, const std::vector<RowSpan>& spans, bool forward)
{
    const std::size_t stride = static_cast<std::size_t>(plans.width) + 2;
    for (const RowSpan& span : spans)
        for (std::int32_t y = span.first; y < span.last; ++y) {
            double* row = buffer + y * stride;
            auto* spectrum = reinterpret_cast<fftw_complex*>(row);
            if (forward)
                fftw_execute_dft_r2c(plans.rowForward, row, spectrum);
            else
                fftw_execute_dft_c2r(plans.rowBackward, spectrum, row);
        }
}

// Copies `count` complex values from the rows of `spans` of a spectrum to the same
// rows of a block, or back (rowStride: complex values from one row to the next).
// Rows of the block outside the spans are zeroed on the way in, and left alone on
// the way out.
template <bool ToBlock>
void CopyColumns(fftw_complex* spectrum, fftw_complex* block, std::int32_t rows, const std::vector<RowSpan>& spans,
                 std::size_t rowStride, std::int32_t count)
{
    const std::size_t bytes = sizeof(fftw_complex) * static_cast<std::size_t>(count);
    std::int32_t next = 0;  // the first row not yet copied or zeroed
    for (const RowSpan& span : spans) {
        if (ToBlock && span.first > next)
            std::memset(block + static_cast<std::size_t>(next) * count, 0, bytes * (span.first - next));
        for (std::int32_t y = span.first; y < span.last; ++y) {
            fftw_complex* inSpectrum = spectrum + y * rowStride;
            fftw_complex* inBlock = block + static_cast<std::size_t>(y) * count;
            if (ToBlock)
                std::memcpy(inBlock, inSpectrum, bytes);
            else
                std::memcpy(inSpectrum, inBlock, bytes);
        }
        next = span.last;
    }
    if (ToBlock && rows > next) std::memset(block + static_cast<std::size_t>(next) * count, 0, bytes * (rows - next));
}

// Blocks `part`, `part + parts`, ... of the column stage: each block's columns are
// gathered into `gathered`, transformed there and put back. `from` are the rows
// that can be non-zero on the way in; `to` the rows wanted on the way out.
void TransformColumnBlocks(const FftPlanPair& plans, double* buffer, fftw_complex* gathered, bool forward,
                           const std::vector<RowSpan>& from, const std::vector<RowSpan>& to, int part, int parts)
{
    const std::int32_t height = plans.height;
    const std::int32_t columns = (plans.width + 2) / 2;
    const std::int32_t block = plans.columnBlock;
    auto* spectrum = reinterpret_cast<fftw_complex*>(buffer);
    const std::int32_t blocks = (columns + block - 1) / block;
    for (std::int32_t b = part; b < blocks; b += parts) {
        const std::int32_t first = b * block;
        const std::int32_t count = std::min(block, columns - first);
        CopyColumns<true>(spectrum + first, gathered, height, from, static_cast<std::size_t>(columns), count);
        const fftw_plan plan = count == block ? (forward ? plans.columnsForward : plans.columnsBackward)
                                              : (forward ? plans.restForward : plans.restBackward);
        fftw_execute_dft(plan, gathered, gathered);
        CopyColumns<false>(spectrum + first, gathered, height, to, static_cast<std::size_t>(columns), count);
    }
}

// False when no memory for even one block could be had. Fewer threads than asked
// for run when the system refuses more.
bool TransformColumns(const FftPlanPair& plans, double* buffer, bool forward, const std::vector<RowSpan>& from,
                      const std::vector<RowSpan>& to, int threads)
{
    const std::size_t blockDoubles = 2 * static_cast<std::size_t>(plans.height) * plans.columnBlock;
    std::vector<std::unique_ptr<double, void (*)(double*)>> gathered;
    for (int part = 0; part < threads; ++part) {
        double* block = AllocateFftBuffer(blockDoubles);
        if (!block) break;
        gathered.emplace_back(block, FreeFftBuffer);
    }
    if (gathered.empty()) return false;
    std::vector<std::thread> helpers;
    const int parts = static_cast<int>(gathered.size());
    try {
        for (int part = 1; part < parts; ++part)
            helpers.emplace_back([&, part] {
                TransformColumnBlocks(plans, buffer, reinterpret_cast<fftw_complex*>(gathered[part].get()),
                                      forward, from, to, part, parts);
            });
    } catch (const std::system_error&) {
        // The helpers that did start keep their parts; this thread takes the rest.
    }
    const int started = static_cast<int>(helpers.size()) + 1;
    auto* own = reinterpret_cast<fftw_complex*>(gathered[0].get());
    TransformColumnBlocks(plans, buffer, own, forward, from, to, 0, parts);
    for (int part = started; part < parts; ++part)
        TransformColumnBlocks(plans, buffer, own, forward, from, to, part, parts);
    for (std::thread& helper : helpers) helper.join();
    return true;
}

}  // namespace

bool ExecuteForwardFft(const FftPlanPair& plans, double* buffer)
{
    return ExecuteForwardFft(plans, buffer, FftRows{});
}

bool ExecuteBackwardFft(const FftPlanPair& plans, double* buffer)
{
    return ExecuteBackwardFft(plans, buffer, FftRows{});
}

bool ExecuteForwardFft(const FftPlanPair& plans, double* buffer, const FftRows& rows)
{
    if (!plans.rowForward) {
        fftw_execute_dft_r2c(plans.forward, buffer, reinterpret_cast<fftw_complex*>(buffer));
        return true;
    }
    // Skipped rows stay zero through the row stage, so the column stage need not
    // read them either; it writes every row of the spectrum.
    const std::vector<RowSpan> spans = SpansOf(plans, rows);
    TransformRows(plans, buffer, spans, true);
    return TransformColumns(plans, buffer, true, spans, {{0, plans.height}}, std::max(1, rows.threads));
}

bool ExecuteBackwardFft(const FftPlanPair& plans, double* buffer, const FftRows& rows)
{
    if (!plans.rowBackward) {
        fftw_execute_dft_c2r(plans.backward, reinterpret_cast<fftw_complex*>(buffer), buffer);
        return true;
    }
    // Only the rows the row stage turns back need their columns put back.
    const std::vector<RowSpan> kept = SpansOf(plans, FftRows{rows.leading, 0, 1});
    if (!TransformColumns(plans, buffer, false, {{0, plans.height}}, kept, std::max(1, rows.threads))) return false;
    TransformRows(plans, buffer, kept, false);
    return true;
}
