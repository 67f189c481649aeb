#pragma once
// Moving a kernel image into a frequency array, centred at the origin and
// normalised, ready for the forward transform.
#include <cstdint>

class FrequencyArray;
class Image;
struct FltPixel;

// The component of a host pixel that the channel index selects: 0 red, 1 green,
// 2 blue, 3 alpha. The host record holds blue, green, red, alpha in that order.
// Throws std::runtime_error for any other index.
float KernelComponent(const FltPixel& pixel, std::int32_t channel);

// Writes the kernel's component for `channel` into `destination`, which must be
// zero wherever the kernel does not land (a freshly created array). The
// kernel's centre pixel (kw / 2, kh / 2) lands on element (0, 0) so the
// convolution does not shift the image; pixels left of and above it wrap to the
// far end of the row and column. The whole buffer, spare elements included, is
// then scaled by 1 / max(sum of positive values, sum of magnitudes of negative
// values), so the larger lobe sums to 1.
//
// Throws std::runtime_error for a null or empty kernel, one larger than the
// array, a channel outside 0..3, a kernel with no weight in the channel, and a
// value in the channel that is not finite.
// The kernel stays the caller's.
void PlaceKernel(FrequencyArray& destination, Image* kernel, std::int32_t channel);

// A kernel image the filter can use: every red, green and blue value finite
// (one NaN or infinity would spread over the whole channel), and some weight in
// each of them. The colour chunks place their kernels at once, so this is
// checked before they start, to name the first fault in reading order: the
// first non-finite pixel, else the first black channel. Throws the same
// std::runtime_error texts as PlaceKernel. Alpha filters with red's kernel.
void CheckKernelImage(Image* kernel);
