#pragma once
// The spectrum of a FrequencyArray computed the slow, obvious way, to check the
// transforms against.
#include "fft/FrequencyArray.h"

#include <complex>
#include <cstdint>
#include <vector>

// Complex bin (u, v) of a transformed array. Spectrum rows keep (width + 2) / 2
// complex values: one double short of a spatial row when the width is odd.
inline std::complex<double> Bin(const FrequencyArray& a, std::int32_t u, std::int32_t v)
{
    const double* at = a.data + v * 2 * ((a.width + 2) / 2) + 2 * u;
    return {at[0], at[1]};
}

// Bin (u, v) of the w x h real samples laid out with a row stride of w + 2.
inline std::complex<double> DirectDft(const std::vector<double>& samples, std::int32_t w, std::int32_t h,
                                      std::int32_t u, std::int32_t v)
{
    constexpr double kPi = 3.14159265358979323846;
    std::complex<double> sum;
    for (std::int32_t y = 0; y < h; ++y)
        for (std::int32_t x = 0; x < w; ++x)
            sum += samples[y * (w + 2) + x] * std::polar(1.0, -2 * kPi * (double(u * x) / w + double(v * y) / h));
    return sum;
}
