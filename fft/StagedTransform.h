#pragma once
// Running the plans of fft/FftPlans.h on a buffer.
//
// An even width is transformed in two stages of one-dimensional transforms: a real
// transform of every row in place, then a complex transform of every column of the
// half spectrum, the columns gathered a few at a time into a small contiguous
// block. FFTW's own two-dimensional plans do the same stages, but without
// measuring they stride down the columns of the whole array, which takes longer
// than both stages done this way (about 1.6 times as long at 2048 x 2048,
// bench/README.md). Splitting the stages also lets a caller skip rows known to be
// zero (their row transform is zero) and rows of the result nobody reads, and
// spread the column stage over threads. Odd widths run FFTW's two-dimensional plans.
#include "fft/FftPlans.h"

#include <climits>
#include <cstdint>

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
