#pragma once
// The files FFTW wisdom is kept in. Wisdom is written only where no file is,
// or over a file that already holds wisdom (or nothing), so a mistyped
// --fft-wisdom never turns an image or a flow into wisdom text.
#include <string>

// Why the existing file `path` is not to be replaced by wisdom, or "". FFTW's
// wisdom text starts "(fftw-3.3.10 fftw_wisdom ...", the version varying.
std::string NotFftwWisdom(const std::string& path);
