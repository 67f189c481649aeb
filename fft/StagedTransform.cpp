#include "fft/StagedTransform.h"

#include "fft/FftBuffers.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

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

bool Stopped(const std::atomic<bool>* stop) { return stop && stop->load(std::memory_order_relaxed); }

// What a filter does to each block between its two column stages.
struct BlockProduct {
    const double* spectrum;  // the other spectrum, in column-block order
    SpectrumProduct product;
    double parameter;
};

// Blocks `part`, `part + parts`, ... of the column stage: each block's columns are
// gathered into `gathered`, transformed there and put back. `from` are the rows
// that can be non-zero on the way in; `to` the rows wanted on the way out. With a
// product, each block is transformed forward, multiplied and transformed back
// before it is put back. With `blockOrder`, each transformed block is put there, in
// column-block order, instead of back into the array.
void TransformColumnBlocks(const FftPlanPair& plans, double* buffer, fftw_complex* gathered, bool forward,
                           const BlockProduct* filter, double* blockOrder, const std::vector<RowSpan>& from,
                           const std::vector<RowSpan>& to, int part, int parts, const std::atomic<bool>* stop)
{
    const std::int32_t height = plans.height;
    const std::int32_t columns = (plans.width + 2) / 2;
    const std::int32_t block = plans.columnBlock;
    auto* spectrum = reinterpret_cast<fftw_complex*>(buffer);
    const std::int32_t blocks = (columns + block - 1) / block;
    for (std::int32_t b = part; b < blocks; b += parts) {
        if (Stopped(stop)) return;
        const std::int32_t first = b * block;
        const std::int32_t count = std::min(block, columns - first);
        CopyColumns<true>(spectrum + first, gathered, height, from, static_cast<std::size_t>(columns), count);
        const bool whole = count == block;
        const fftw_plan plan = whole ? (forward ? plans.columnsForward : plans.columnsBackward)
                                     : (forward ? plans.restForward : plans.restBackward);
        fftw_execute_dft(plan, gathered, gathered);
        const std::size_t bins = static_cast<std::size_t>(height) * count;
        const std::size_t offset = 2 * static_cast<std::size_t>(first) * height;  // of the block, in doubles
        if (filter) {
            filter->product(reinterpret_cast<double*>(gathered), filter->spectrum + offset, bins, filter->parameter);
            fftw_execute_dft(whole ? plans.columnsBackward : plans.restBackward, gathered, gathered);
        }
        if (blockOrder)
            std::memcpy(blockOrder + offset, gathered, bins * sizeof(fftw_complex));
        else
            CopyColumns<false>(spectrum + first, gathered, height, to, static_cast<std::size_t>(columns), count);
    }
}

// False when no memory for even one block could be had, or when `rows.stop` was
// raised. Fewer threads than asked for run when the system refuses more.
//
// The helpers are threads of the transform's own, not the host's workers: the
// transform runs inside one of those workers (a chunk of a render), and the host's
// pool runs one batch at a time, so a nested batch would wait behind the very
// chunks it is part of. Helpers are asked for only for a kernel spectrum that
// other chunks wait for, whose workers sit idle meanwhile: the helpers use their
// cores. This layer also knows nothing of the host.
bool TransformColumns(const FftPlanPair& plans, double* buffer, bool forward, const BlockProduct* filter,
                      double* blockOrder, const std::vector<RowSpan>& from, const std::vector<RowSpan>& to,
                      const FftRows& rows)
{
    const int threads = std::max(1, rows.threads);
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
                                      forward, filter, blockOrder, from, to, part, parts, rows.stop);
            });
    } catch (const std::system_error&) {
        // The helpers that did start keep their parts; this thread takes the rest.
    }
    const int started = static_cast<int>(helpers.size()) + 1;
    auto* own = reinterpret_cast<fftw_complex*>(gathered[0].get());
    TransformColumnBlocks(plans, buffer, own, forward, filter, blockOrder, from, to, 0, parts, rows.stop);
    for (int part = started; part < parts; ++part)
        TransformColumnBlocks(plans, buffer, own, forward, filter, blockOrder, from, to, part, parts, rows.stop);
    for (std::thread& helper : helpers) helper.join();
    return !Stopped(rows.stop);
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
    return TransformColumns(plans, buffer, true, nullptr, nullptr, spans, {{0, plans.height}}, rows);
}

bool ExecuteBackwardFft(const FftPlanPair& plans, double* buffer, const FftRows& rows)
{
    if (!plans.rowBackward) {
        fftw_execute_dft_c2r(plans.backward, reinterpret_cast<fftw_complex*>(buffer), buffer);
        return true;
    }
    // Only the rows the row stage turns back need their columns put back.
    const std::vector<RowSpan> kept = SpansOf(plans, FftRows{rows.leading, 0, 1});
    if (!TransformColumns(plans, buffer, false, nullptr, nullptr, {{0, plans.height}}, kept, rows))
        return false;
    TransformRows(plans, buffer, kept, false);
    return true;
}

bool ExecuteFilterFft(const FftPlanPair& plans, double* buffer, const double* spectrum, SpectrumProduct product,
                      double parameter, const FftRows& rows, std::int32_t kept)
{
    if (!plans.rowForward) {
        // Odd widths: spectrum rows are shorter than the array's, and the product
        // runs over the whole buffer as the bin-by-bin operations do.
        fftw_execute_dft_r2c(plans.forward, buffer, reinterpret_cast<fftw_complex*>(buffer));
        const std::size_t length = (static_cast<std::size_t>(plans.width) + 2) * plans.height;
        product(buffer, spectrum, length / 2, parameter);
        fftw_execute_dft_c2r(plans.backward, reinterpret_cast<fftw_complex*>(buffer), buffer);
        return true;
    }
    const std::vector<RowSpan> in = SpansOf(plans, rows);
    const std::vector<RowSpan> out = SpansOf(plans, FftRows{kept, 0, 1});
    TransformRows(plans, buffer, in, true);
    const BlockProduct filter{spectrum, product, parameter};
    if (!TransformColumns(plans, buffer, true, &filter, nullptr, in, out, rows)) return false;
    TransformRows(plans, buffer, out, false);
    return true;
}

bool ExecuteForwardFftToBlocks(const FftPlanPair& plans, double* buffer, double* blocks, const FftRows& rows)
{
    if (!plans.rowForward) {
        if (!ExecuteForwardFft(plans, buffer, rows)) return false;
        std::memcpy(blocks, buffer, (static_cast<std::size_t>(plans.width) + 2) * plans.height * sizeof(double));
        return true;
    }
    const std::vector<RowSpan> spans = SpansOf(plans, rows);
    TransformRows(plans, buffer, spans, true);
    return TransformColumns(plans, buffer, true, nullptr, blocks, spans, {}, rows);
}
