#include "frequency/FrequencyArray.h"
#include "frequency/SpectrumOps.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using Complex = std::complex<double>;

// A 2 x 2 array holds four complex bins, the spare doubles of each row included.
void SetBins(FrequencyArray& array, const std::vector<Complex>& bins)
{
    array.Create(2, 2);
    for (std::size_t j = 0; j < bins.size(); ++j) {
        array.data[2 * j] = bins[j].real();
        array.data[2 * j + 1] = bins[j].imag();
    }
}

Complex Bin(const FrequencyArray& array, std::size_t j) { return {array.data[2 * j], array.data[2 * j + 1]}; }

TEST(SpectrumOps, MultiplyEveryBin)
{
    FrequencyArray I, K;
    SetBins(I, {{1, 2}, {-3, 0.5}, {0, 1}, {4, -4}});
    SetBins(K, {{3, -1}, {2, 2}, {0, 1}, {0.25, 0}});
    MultiplySpectra(I, K);
    const std::vector<Complex> expected = {{5, 5}, {-7, -5}, {-1, 0}, {1, -1}};
    for (std::size_t j = 0; j < expected.size(); ++j) EXPECT_EQ(Bin(I, j), expected[j]) << "bin " << j;
}

TEST(SpectrumOps, WienerDivideEveryBin)
{
    FrequencyArray I, K;
    SetBins(I, {{1, 2}, {2, 0}, {0, 4}, {3, 3}});
    SetBins(K, {{3, -1}, {1, 1}, {0, 2}, {0, 0}});
    WienerDivideSpectra(I, K, 1.0);
    // (1+2i)(3+i)/11, 2(1-i)/3, 4i(-2i)/5, zero bin -> 0
    const std::vector<Complex> expected = {{1.0 / 11, 7.0 / 11}, {2.0 / 3, -2.0 / 3}, {8.0 / 5, 0}, {0, 0}};
    for (std::size_t j = 0; j < expected.size(); ++j) {
        EXPECT_NEAR(Bin(I, j).real(), expected[j].real(), 1e-15) << "bin " << j;
        EXPECT_NEAR(Bin(I, j).imag(), expected[j].imag(), 1e-15) << "bin " << j;
    }
}

TEST(SpectrumOps, WienerWithoutConstantIsDivision)
{
    std::mt19937 generator(3);
    std::uniform_real_distribution<double> value(-2.0, 2.0);
    std::vector<Complex> numerator(4), denominator(4);
    for (std::size_t j = 0; j < 4; ++j) {
        numerator[j] = {value(generator), value(generator)};
        denominator[j] = {value(generator), value(generator)};
    }
    FrequencyArray I, K;
    SetBins(I, numerator);
    SetBins(K, denominator);
    WienerDivideSpectra(I, K, 0.0);
    for (std::size_t j = 0; j < 4; ++j)
        EXPECT_LT(std::abs(Bin(I, j) - numerator[j] / denominator[j]), 1e-12 * std::abs(numerator[j] / denominator[j]));

    SetBins(I, {{1, 0}, {1, 0}, {1, 0}, {1, 0}});
    SetBins(K, {{0, 0}, {1, 0}, {1, 0}, {1, 0}});
    WienerDivideSpectra(I, K, 0.0);
    EXPECT_TRUE(std::isnan(I.data[0]));  // a zero bin is not guarded
    EXPECT_EQ(Bin(I, 1), Complex(1, 0));
}

TEST(SpectrumOps, DifferentSizesAreRefused)
{
    FrequencyArray I, K;
    I.Create(4, 2);
    K.Create(2, 4);
    EXPECT_THROW(MultiplySpectra(I, K), std::runtime_error);
    EXPECT_THROW(WienerDivideSpectra(I, K, 0.1), std::runtime_error);
}

}  // namespace
