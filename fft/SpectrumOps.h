#pragma once
// Bin-by-bin operations on two half spectra of the same size (FrequencyArray
// layout). They run over the whole buffer, size / 2 complex values, the spare
// doubles at the end of each spectrum row included, so the loops need no row
// bookkeeping.
#include "fft/SpectrumProduct.h"

#include <cstddef>

class FrequencyArray;

// I = I * K: convolution of the two planes.
void MultiplySpectra(FrequencyArray& I, const FrequencyArray& K);
// I = I * conj(K) / (|K|^2 + w): Wiener deconvolution with the constant w. No guard
// against a zero denominator: with w = 0 a zero bin of K gives infinities or NaNs,
// which pass through to the result.
void WienerDivideSpectra(FrequencyArray& I, const FrequencyArray& K, double w);

// The same operations on `bins` complex values of a and b, for a filter's product
// (SpectrumProduct, fft/StagedTransform.h). MultiplyBins ignores the parameter;
// WienerDivideBins takes w.
void MultiplyBins(double* a, const double* b, std::size_t bins, double unused);
void WienerDivideBins(double* a, const double* b, std::size_t bins, double w);
