#pragma once
// The padded transform size for an image and one colour's kernel.
#include "host/EngineSettings.h"

#include <cstdint>

// A kernel edge and the transform size: each side strictly greater than image
// plus kernel, so the image and the kernel's reach on both sides never meet in
// the periodic array, and even, because the in-place half spectrum of an odd
// width has a different row layout. The default rule gives powers of two; the
// smooth rule the smallest even number above image plus kernel with no prime
// factor above 7 (never larger than the power of two), which FFTW transforms
// nearly as fast per sample. The cropped result does not depend on the rule.
struct TransformSize {
    std::int32_t kernelWidth = 0, kernelHeight = 0, width = 0, height = 0;
};

// The largest transform side, and the largest blur size, in pixels.
constexpr std::int32_t kLargestTransformSide = 1 << 30;

// For `colour` (0 red, 1 green, 2 blue, named in messages) blurred by sizeX by
// sizeY pixels. Throws std::runtime_error for a size not above 0 or one past
// the largest transform side.
TransformSize TransformSizeFor(std::int32_t imageWidth, std::int32_t imageHeight, double sizeX, double sizeY,
                               std::int32_t colour, TransformSizes rule);
