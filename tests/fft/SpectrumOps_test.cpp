#include "fft/FrequencyArray.h"
#include "fft/SpectrumOps.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

namespace {

using Complex = std::complex<double>;

// A 2 x 2 array holds four complex bins, the spare doubles of each row included.
void SetBins(FrequencyArray& a, const std::vector<Complex>& bins)
{
    a.Create(2, 2);
    std::copy(bins.begin(), bins.end(), reinterpret_cast<Complex*>(a.data));
}

Complex Bin(const FrequencyArray& a, int j) { return {a.data[2 * j], a.data[2 * j + 1]}; }

TEST(SpectrumOps, MultiplyAndWienerDivideEveryBin)
{
    const std::vector<Complex> i = {{1, 2}, {2, 0}, {0, 4}, {3, 3}}, k = {{3, -1}, {1, 1}, {0, 2}, {0, 0}};
    const std::vector<Complex> product = {{5, 5}, {2, 2}, {-8, 0}, {0, 0}};
    // w = 1: (1+2i)(3+i)/11, 2(1-i)/3, 4i(-2i)/5, and a zero bin of K gives 0.
    const std::vector<Complex> wiener = {{1.0 / 11, 7.0 / 11}, {2.0 / 3, -2.0 / 3}, {8.0 / 5, 0}, {0, 0}};
    FrequencyArray I, K;
    SetBins(I, i);
    SetBins(K, k);
    MultiplySpectra(I, K);
    for (int j = 0; j < 4; ++j) EXPECT_EQ(Bin(I, j), product[j]) << "bin " << j;
    SetBins(I, i);
    WienerDivideSpectra(I, K, 1.0);
    for (int j = 0; j < 4; ++j) EXPECT_LT(std::abs(Bin(I, j) - wiener[j]), 1e-15) << "bin " << j;
    // Without the constant it is plain division; a zero bin is not guarded against.
    const std::vector<Complex> i0 = {{0.3, -1.7}, {-2, 0.5}, {1e-3, 4}, {1, 0}}, k0 = {{-0.8, 0.6}, {3, 0}, {1e-3, -1e-4}, {0, 0}};
    SetBins(I, i0);
    SetBins(K, k0);
    WienerDivideSpectra(I, K, 0.0);
    for (int j = 0; j < 3; ++j) EXPECT_LT(std::abs(Bin(I, j) - i0[j] / k0[j]), 1e-12 * std::abs(i0[j] / k0[j])) << j;
    EXPECT_TRUE(std::isnan(I.data[6]));
}

}  // namespace
