#pragma once
// FFTW3 plans for two-dimensional, double precision, in-place real <-> half-spectrum
// transforms in the FrequencyArray layout, made once per size and kept.
//
// Plans are made once per size (and alignment class) in a process and kept for the
// rest of it, so every later array of that size reuses them: the second frame of a
// sequence spends no time planning. FFTW's planner is not thread-safe, its execute
// functions are; planning is therefore serialised here, while transforms run
// concurrently on each array's own buffer through the new-array execute functions
// (fft/StagedTransform.h).
//
// Even widths get the one-dimensional plans of the staged transform; odd widths,
// whose spectrum rows are shorter than the real rows, FFTW's two-dimensional plans.
//
// Planning effort:
//   Estimate  (default)  FFTW_ESTIMATE: a heuristic plan at once, no trial runs.
//   Measure              FFTW_MEASURE: times candidate plans on a scratch buffer the
//                        first time a size is seen (one to two seconds for large
//                        sizes). The staged transform's one-dimensional plans gain
//                        little from it (a few per cent), so it pays only on long
//                        sequences, or with a wisdom file.
// A wisdom file, when one is set, is imported before the first plan is made and
// rewritten after every plan made in measure mode, so later runs of a sequence start
// with measured plans at estimate cost. Plans already made keep the effort they were
// made with; a change of mode applies to sizes not seen yet. The host decides the
// effort and the file (the tool passes them on before each render).
#include <fftw3.h>

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

// Whether plans made for one buffer may run on another.
bool FftPlansFit(const FftPlanPair& plans, const double* buffer);

