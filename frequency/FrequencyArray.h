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
// data[v * (width + 1) + 2 * u]. The tool itself only uses powers of two.
//
// The buffer is aligned for FFTW's SIMD code. The transform plans (`descriptor`)
// belong to the FFT backend's process-wide cache (frequency/FftBackend.h), shared
// by every array of the same size; Release only lets go of them.
//
// Transforms are unnormalised in both directions: Forward then Backward
// multiplies every sample by width * height.
#include <cstdint>

struct FftPlanPair;  // the FFT backend's plans for one size (frequency/FftBackend.h)

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
    // Return false (and leave the array empty) when the transform cannot run.
    bool Forward();
    bool Backward();
    void Release();

    const FftPlanPair* descriptor = nullptr;
    double* data = nullptr;
    std::int32_t size = 0;  // (width + 2) * height
    std::int32_t height = 0;
    std::int32_t width = 0;

private:
    bool Transform(bool forward);
};
