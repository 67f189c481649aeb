#pragma once
// The FFT backend behind FrequencyArray: FFTW3 plans for two-dimensional, double
// precision, in-place real <-> half-spectrum transforms in the FrequencyArray layout.
//
// Plans are made once per size (and alignment class) in a process and kept for the
// rest of it, so every later array of that size reuses them: the second frame of a
// sequence spends no time planning. FFTW's planner is not thread-safe, its execute
// functions are; planning is therefore serialised here, while transforms run
// concurrently on each array's own buffer through the new-array execute functions.
//
// How a transform runs. An even width is transformed in two stages of
// one-dimensional transforms: a real transform of every row in place, then a
// complex transform of every column of the half spectrum, the columns gathered a
// few at a time into a small contiguous block. FFTW's own two-dimensional plans do
// the same stages, but without measuring they stride down the columns of the whole
// array, which takes longer than both stages done this way (about 1.6 times as
// long at 2048 x 2048, bench/README.md). Splitting the stages
// also lets a caller skip rows known to be zero (their row transform is zero) and
// rows of the result nobody reads, and spread the column stage over threads. Odd
// widths, whose spectrum rows are shorter than the real rows, use FFTW's
// two-dimensional plans.
//
// Planning effort:
//   estimate  (default)  FFTW_ESTIMATE: a heuristic plan at once, no trial runs.
//   measure              FFTW_MEASURE: times candidate plans on a scratch buffer the
//                        first time a size is seen (one to two seconds for large
//                        sizes). The staged transform's one-dimensional plans gain
//                        little from it (a few per cent), so it pays only on long
//                        sequences, or with a wisdom file.
// A wisdom file, when one is set, is imported before the first plan is made and
// rewritten after every plan made in measure mode, so later runs of a sequence start
// with measured plans at estimate cost. Plans already made keep the effort they were
// made with; a change of mode applies to sizes not seen yet.
//
// Environment (read once, at the first use of the backend, as the defaults that
// SetFftPlanning overrides):
//   LUMIVANE_FFT_PLANNING=estimate|measure
//   LUMIVANE_FFT_WISDOM=/path/to/wisdom
#include <fftw3.h>

#include <cstddef>
#include <cstdint>
#include <string>

enum class FftPlanning { Estimate, Measure };

// FFTW reports failure only by returning no plan; these are the backend's own
// statuses, whose names are appended to FrequencyArray's construction messages.
enum class FftStatus {
    NoError,      // "FFTW_NO_ERROR"
    MemoryError,  // "FFTW_MEMORY_ERROR": no scratch buffer to plan on could be allocated
    InvalidSize,  // "FFTW_INVALID_SIZE": a side is not positive, or a stride or the
                  // buffer length does not fit FFTW's int
    PlanFailed,   // "FFTW_PLAN_FAILED": the planner returned no plan for the layout
};
const char* FftStatusText(FftStatus status);

// The forward and backward plans of one size. Owned by the plan cache for the life
// of the process, or by whoever called MakeFftPlans.
struct FftPlanPair {
    std::int32_t width = 0;
    std::int32_t height = 0;
    bool unaligned = false;  // planned with FFTW_UNALIGNED: runs on any buffer
    FftPlanning planning = FftPlanning::Estimate;
    int alignment = 0;       // fftw_alignment_of of the buffer planned on
    // Odd widths: the two-dimensional transforms.
    fftw_plan forward = nullptr;
    fftw_plan backward = nullptr;
    // Even widths: one row, real to half spectrum and back, in place ...
    fftw_plan rowForward = nullptr;
    fftw_plan rowBackward = nullptr;
    // ... and a block of `columnBlock` columns of `height` complex values,
    // interleaved as they lie in a stretch of spectrum rows, in place, both ways;
    // the `Rest` plans take the last, narrower block when the column count is not
    // a multiple of the block.
    std::int32_t columnBlock = 0;
    fftw_plan columnsForward = nullptr;
    fftw_plan columnsBackward = nullptr;
    fftw_plan restForward = nullptr;
    fftw_plan restBackward = nullptr;
};

// Sets the effort for sizes not planned yet and the wisdom file (empty: none).
void SetFftPlanning(FftPlanning mode, std::string wisdomFile);
FftPlanning CurrentFftPlanning();
// Writes the accumulated wisdom to the wisdom file; false when none is set or the
// file cannot be written.
bool ExportFftWisdom();
// Number of FFTW plans made so far in the process (two to six per size).
std::uint64_t FftPlansCreated();

// The cached plans for a size, made on first use. Thread-safe; the pointer stays
// valid for the life of the process.
FftStatus AcquireFftPlans(std::int32_t width, std::int32_t height, bool unaligned,
                          const FftPlanPair*& plans);
// Makes a plan pair outside the cache with the current planning effort (serialised
// with the cache's planning); the caller destroys it with DestroyFftPlans.
FftStatus MakeFftPlans(std::int32_t width, std::int32_t height, bool unaligned,
                       FftPlanPair& plans);
void DestroyFftPlans(FftPlanPair& plans);

// Buffers for the transforms, aligned as FFTW's SIMD code wants. Large ones start
// on a huge page and are advised for huge pages: each chunk of a render fills a new
// array, and faulting it in 4 KiB at a time shows as system time on every frame.
double* AllocateFftBuffer(std::size_t count);
void FreeFftBuffer(double* buffer);
// The buffers of FrequencyArrays. A few buffers that arrays let go of are kept and
// handed to the next array of the same length: every chunk of every frame of a
// sequence would otherwise have the system map, and zero, all of its pages again.
// At most kKeptFftBuffers are kept, the most recently returned; asking for a length
// none of them has frees them all (the renders have moved to another size). A kept
// buffer's contents are whatever its last array left.
constexpr int kKeptFftBuffers = 4;
double* TakeFftBuffer(std::size_t count);
void ReturnFftBuffer(double* buffer, std::size_t count);

// Whether plans made for one buffer may run on another.
bool FftPlansFit(const FftPlanPair& plans, const double* buffer);

// In place on buffer, laid out as FrequencyArray documents; the plans must fit it.
// False, with the buffer's contents undefined, when the column stage's small
// working block cannot be allocated.
bool ExecuteForwardFft(const FftPlanPair& plans, double* buffer);
bool ExecuteBackwardFft(const FftPlanPair& plans, double* buffer);

// Which rows a transform works on, and how many threads share its column stage
// (the calling thread and threads - 1 started for the call).
struct FftRows {
    // Forward: only rows [0, leading) and [height - trailing, height) may be
    // non-zero; the others must be zero and are not transformed. Backward: only
    // rows [0, leading) of the result are made; the others are left undefined.
    std::int32_t leading = INT32_MAX;
    std::int32_t trailing = 0;
    int threads = 1;
};
bool ExecuteForwardFft(const FftPlanPair& plans, double* buffer, const FftRows& rows);
bool ExecuteBackwardFft(const FftPlanPair& plans, double* buffer, const FftRows& rows);
