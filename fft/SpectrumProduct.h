#pragma once
// The product a filter applies between its forward and inverse transforms: `bins`
// complex values of `a` (changed in place) with as many of `b` at the same
// frequencies, and a parameter of the product's own (fft/SpectrumOps.h has the
// two the tool uses).
#include <cstddef>

using SpectrumProduct = void (*)(double* a, const double* b, std::size_t bins, double parameter);
