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
//
// A filter (forward transform, a product with another spectrum, inverse) runs the
// column stages of both directions on each block while it is gathered: the
// spectrum is never written back to the array, and the array is read once and
// written once between the two row stages.
#include "fft/FftPlans.h"
#include "fft/SpectrumProduct.h"

#include <atomic>
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
    // When given and raised (by any thread), the column stage takes no further
    // block and the transform returns false: the caller no longer wants it.
    const std::atomic<bool>* stop = nullptr;
};
bool ExecuteForwardFft(const FftPlanPair& plans, double* buffer, const FftRows& rows);
bool ExecuteBackwardFft(const FftPlanPair& plans, double* buffer, const FftRows& rows);

// The forward transform of buffer, its spectrum written to `blocks` (as long as
// buffer) in column-block order, the order a filter reads it in: the columns
// [first, first + count) of each block of plans.columnBlock columns lie together,
// row by row, bin (u, v) at complex value first * height + v * count + u - first.
// Odd widths have no blocks: their spectrum is copied there as FrequencyArray lays
// it out. buffer's contents are undefined afterwards.
bool ExecuteForwardFftToBlocks(const FftPlanPair& plans, double* buffer, double* blocks, const FftRows& rows);

// Forward transform of buffer, `product` with `spectrum` (a spectrum of the same
// size from ExecuteForwardFftToBlocks), inverse: the result of ExecuteForwardFft, the
// product over every bin and ExecuteBackwardFft, to the last bit. rows.leading
// and rows.trailing say which rows may be non-zero on the way in, as for the
// forward transform; `kept` rows of the result are made, as rows.leading is for
// the inverse.
bool ExecuteFilterFft(const FftPlanPair& plans, double* buffer, const double* spectrum, SpectrumProduct product,
                      double parameter, const FftRows& rows, std::int32_t kept);
