#include "fft/SpectrumOps.h"

#include "fft/FrequencyArray.h"

#include <cstdint>
#include <stdexcept>

namespace {

constexpr const char* kSizeMismatch = "Spectra differ in size";

std::int64_t CheckedBinCount(const FrequencyArray& I, const FrequencyArray& K)
{
    if (I.size != K.size || I.width != K.width || I.height != K.height)
        throw std::runtime_error(kSizeMismatch);
    return I.data && K.data ? I.size / 2 : 0;
}

}  // namespace

void MultiplyBins(double* a, const double* b, std::size_t bins, double /*unused*/)
{
    for (std::size_t j = 0; j < bins; ++j) {
        const double ar = a[2 * j], ai = a[2 * j + 1];
        const double br = b[2 * j], bi = b[2 * j + 1];
        a[2 * j] = ar * br - ai * bi;
        a[2 * j + 1] = ar * bi + ai * br;
    }
}

void WienerDivideBins(double* a, const double* b, std::size_t bins, double w)
{
    for (std::size_t j = 0; j < bins; ++j) {
        const double br = b[2 * j], bi = b[2 * j + 1];
        const double d = br * br + bi * bi + w;
        // conj(K) / d first, then the complex product, each part divided on its own.
        const double cr = br / d, ci = -bi / d;
        const double ar = a[2 * j], ai = a[2 * j + 1];
        a[2 * j] = ar * cr - ai * ci;
        a[2 * j + 1] = ar * ci + ai * cr;
    }
}

void MultiplySpectra(FrequencyArray& I, const FrequencyArray& K)
{
    MultiplyBins(I.data, K.data, static_cast<std::size_t>(CheckedBinCount(I, K)), 0.0);
}

void WienerDivideSpectra(FrequencyArray& I, const FrequencyArray& K, double w)
{
    WienerDivideBins(I.data, K.data, static_cast<std::size_t>(CheckedBinCount(I, K)), w);
}
