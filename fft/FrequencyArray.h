#pragma once
// A two-dimensional plane of doubles that is transformed in place between real
// samples and the conjugate-even half spectrum.
//
// Layout: row-major with a row stride of width + 2 doubles. In the spatial
// domain sample (x, y) is data[y * (width + 2) + x] for 0 <= x < width; the last
// two doubles of a row are the room the in-place real transform needs. In the
// frequency domain a row holds bins 0 .. width / 2 as interleaved complex pairs
// (real part first), bin (u, v) starting at data[v * (width + 2) + 2 * u].
// Odd widths: a spectrum row keeps (width + 2) / 2 complex values, i.e. width + 1
// doubles, one fewer than a spatial row, so there bin (u, v) starts at
// data[v * (width + 1) + 2 * u]. The tool itself only uses even widths.
//
// The buffer is aligned for FFTW's SIMD code, and comes from the FFT backend's few
// kept buffers when one of the right length is free, so that a frame's arrays
// reuse the last frame's memory; Release hands it back. The transform plans
// (`descriptor`) belong to the FFT backend's process-wide cache
// (fft/FftPlans.h), shared by every array of the same size; Release only
// lets go of them.
//
// Transforms are unnormalised in both directions: Forward then Backward
// multiplies every sample by width * height.
#include "fft/SpectrumProduct.h"

#include <atomic>
#include <cstdint>

struct FftPlanPair;  // the FFT backend's plans for one size (fft/FftPlans.h)

class FrequencyArray {
public:
    FrequencyArray() = default;
    ~FrequencyArray() { Release(); }
    FrequencyArray(const FrequencyArray&) = delete;
    FrequencyArray& operator=(const FrequencyArray&) = delete;

    // Zero sizes empty the array; the current size keeps the contents; any other
    // size gives a fresh zeroed buffer. Throws std::runtime_error with
    // "FrequencyArray memory allocation failed", or "CreateDescriptor failed" /
    // "SetValue failed" followed by the backend's status text (FftStatusText): the
    // first when the size's plans cannot be made, the second when no plans fit the
    // buffer's alignment.
    void Create(std::uint32_t width, std::uint32_t height);
    // Create for an array whose top-left planeWidth x planeHeight samples the
    // caller fills at once (a plane read into it): only the rest is zeroed. At the
    // current size the contents are kept, as with Create.
    void CreateForPlane(std::uint32_t width, std::uint32_t height, std::uint32_t planeWidth,
                        std::uint32_t planeHeight);
    // CreateForPlane for an array that only ForwardRows, ForwardRowsForFilter or
    // Filter with the same `leadingRows` and `trailingRows` reads: only those rows
    // are zeroed outside the plane; the rows between keep whatever the buffer held
    // (kept buffers hold earlier arrays' samples), which those transforms never read.
    void CreateForRows(std::uint32_t width, std::uint32_t height, std::uint32_t planeWidth, std::uint32_t planeHeight,
                       std::int32_t leadingRows, std::int32_t trailingRows);
    // Return false (and leave the array empty) when the transform cannot run.
    bool Forward();
    bool Backward();
    // The same transforms for a plane whose only non-zero rows are the first
    // `leadingRows` and the last `trailingRows` (every other row must be zero):
    // the forward transform skips the zero rows, whose spectra are zero anyway,
    // and the inverse makes only the first `leadingRows` rows of its result,
    // leaving the others undefined. A padded image needs about half the rows.
    bool ForwardRows(std::int32_t leadingRows, std::int32_t trailingRows);
    bool BackwardRows(std::int32_t leadingRows);
    // ForwardRows for an array that is then only the `spectrum` of Filter: the
    // spectrum is left in the order Filter reads (column blocks, StagedTransform.h),
    // on a buffer of its own: the array's buffer goes back to the kept ones. The
    // array cannot be transformed again.
    bool ForwardRowsForFilter(std::int32_t leadingRows, std::int32_t trailingRows);
    // ForwardRows(leadingRows, trailingRows), `product` with the spectrum of an
    // array of the same size that ForwardRowsForFilter made, over every bin, then
    // BackwardRows(keptRows): the same result to the last bit, but each column
    // block goes through all three while in the core's cache, and the spectrum is
    // never written out whole. Throws std::runtime_error("Spectra differ in size")
    // when the sizes differ, and another when the spectrum was not made by
    // ForwardRowsForFilter; false as for the transforms.
    bool Filter(const FrequencyArray& spectrum, SpectrumProduct product, double parameter, std::int32_t leadingRows,
                std::int32_t trailingRows, std::int32_t keptRows);
    // Later transforms of this array split their column stage over `threads`
    // threads: for an array that other workers wait for, so that their cores
    // take part instead of idling. 1 (the default) keeps to the calling thread.
    void SetTransformThreads(int threads) { m_threads = threads < 1 ? 1 : threads; }
    // Later transforms stop between column blocks once `stop` is raised, and
    // return false, leaving the array empty: its render was abandoned.
    void SetStop(const std::atomic<bool>* stop) { m_stop = stop; }
    void Release();

    const FftPlanPair* descriptor = nullptr;
    double* data = nullptr;
    std::int32_t size = 0;  // (width + 2) * height
    std::int32_t height = 0;
    std::int32_t width = 0;

private:
    // Holds data and plans that fit it.
    bool Usable() const;
    bool Transform(bool forward, std::int32_t leadingRows, std::int32_t trailingRows);
    void ZeroOutside(std::uint32_t planeWidth, std::uint32_t planeHeight, std::int32_t leadingRows,
                     std::int32_t trailingRows);

    int m_threads = 1;
    const std::atomic<bool>* m_stop = nullptr;
    bool m_forFilter = false;
};
