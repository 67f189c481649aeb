#pragma once
// The analytic blur kernels, one generator per BlurStyle entry.
//
// Each generator returns a new square host image of OddKernelSize(size) pixels
// (at least minimumSize), made like params.modelImage, with all four float
// components of a pixel equal to the kernel value. The kernel's centre is the
// image's centre pixel. Nothing is normalised here: PlaceKernel scales the
// kernel when it moves it into a frequency array. The caller owns the image and
// releases it with Recycle().
#include <cstdint>

class Image;
struct KernelParams;

// e^(-a^2 / sigma^2) / sigma^2.
double GaussianValue(double a, double sigma);

// Brightness of a Disk or Polygon pixel at distance d from the centre whose
// edge lies at distance e in the pixel's direction: 1 + 4 * badBokeh * (d / e)^4
// inside (a flat 1 when badBokeh is 0), falling linearly from the rim's
// brightness to 0 over the pixel beyond the edge, 0 further out.
double RimShading(double d, double e, double badBokeh);

// The most sides a Polygon takes. Past a thousand sides a polygon lies within
// 1 - cos(pi / 1000), about 5e-6, of its circumcircle, closer than any kernel
// pixel can show, while the work still grows with the count.
constexpr std::int32_t kMaximumPolygonSides = 1000;

// Disk and Polygon throw std::runtime_error when params.badBokeh makes the rim
// brighter than a float pixel holds; Polygon too when params.sideCount is below
// 3 or above kMaximumPolygonSides.
Image* MakeDiskKernel(const KernelParams& params, double size, std::int32_t minimumSize);
Image* MakePolygonKernel(const KernelParams& params, double size, std::int32_t minimumSize);
Image* MakeGaussianKernel(const KernelParams& params, double size, std::int32_t minimumSize);
Image* MakeAiryKernel(const KernelParams& params, double size, std::int32_t minimumSize);
Image* MakeLaplacianKernel(const KernelParams& params, double size, std::int32_t minimumSize);

// The generator for params.kernelStyle: 0 Disk, 1 Polygon, 2 Gaussian, 3 Airy
// Disk, 4 Laplacian. Throws std::runtime_error for any other style.
Image* MakeKernel(const KernelParams& params, double size, std::int32_t minimumSize);

// The synthesised kernel one colour is filtered with for blur sizes sizeX by
// sizeY (pixels): the square kernel for the larger size, resized with the
// host's area filter to OddKernelSize(sizeX) by OddKernelSize(sizeY) when the
// two differ. Throws std::runtime_error unless both sizes are above 0.
Image* MakeChannelKernel(const KernelParams& params, double sizeX, double sizeY);
