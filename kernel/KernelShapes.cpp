#include "kernel/KernelShapes.h"

#include "kernel/KernelParams.h"
#include "host/Image.h"
#include "host/Object.h"
#include "host/Tags.h"
#include "kernel/KernelSize.h"
#include "util/Text.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

// 0.0001 as a float, widened: the smallest radius a Disk or Polygon gets, so a
// size of 1 or less still has a centre pixel inside the shape.
constexpr double kMinimumRadius = 9.999999747378752e-5;
constexpr double kShrunkDiskScale = 0.6;
constexpr double kPi = 3.141592653589793;
constexpr double kE = 2.718281828459045;
// A Gaussian or Laplacian kernel of blur size s has sigma = s / 6.
constexpr double kSigmasPerSize = 6.0;
// The third zero of J1. The Airy pattern is cut there, and the scale puts that
// ring at d = size / 2, so the disc and its first two bright rings fit.
constexpr double kAiryThirdZero = 10.1735;
constexpr double kAiryScaleDivisor = 20.347;
// J1(u) / u tends to 1/2 at u = 0; a tiny u gives that limit without a 0 / 0.
constexpr double kAiryCentreArgument = 1e-11;
constexpr std::int32_t kMinimumSides = 3;
constexpr double kFewTurns = 64.0;

// Makes an n by n kernel image and sets every pixel to value(dx, dy), the
// offsets of the pixel from the centre. For odd n the centre (n - 1) / 2 is a
// whole pixel, so the kernel is symmetric about it.
template <class ValueAt>
Image* FillKernel(const KernelParams& params, double size, std::int32_t minimumSize, ValueAt valueAt)
{
    const std::int32_t n = std::max(OddKernelSize(size), minimumSize);
    Image* kernel = NewImage({{IMG_Like, static_cast<const void*>(params.modelImage)},
                              {IMG_Width, n},
                              {IMG_Height, n},
                              {IMG_Depth, IMDP_Float32},
                              {TAG_DONE}});
    if (kernel->Height < 1) return kernel;

    const double centre = (n - 1) * 0.5;
    PixPtr out(kernel);
    FltPixel pixel;
    for (int y = 0; y < kernel->Height; ++y) {
        out.GotoXY(0, y);
        const double dy = y - centre;
        for (int x = 0; x < kernel->Width; ++x) {
            const double dx = x - centre;
            const auto value = static_cast<float>(valueAt(dx, dy));
            pixel.R = pixel.G = pixel.B = pixel.A = value;
            out.PutNextPixel(pixel);
        }
    }
    return kernel;
}

double Distance(double dx, double dy) { return std::sqrt(dx * dx + dy * dy); }

// A Disk or Polygon rim is up to 1 + 4 x Bad Bokeh times as bright as the
// centre; past the float range its pixels would be infinite, and the kernel
// blamed for it would be one the user never gave.
void CheckRimBrightness(double badBokeh)
{
    const double rim = 1.0 + 4.0 * badBokeh;
    if (!std::isfinite(static_cast<float>(rim)))
        throw std::runtime_error("Bad Bokeh " + FormatNumber(badBokeh) + " makes the kernel's rim " + FormatNumber(rim) +
                                 " times as bright as its centre, more than a kernel pixel holds (" +
                                 FormatNumber(std::numeric_limits<float>::max()) + ")");
}

}  // namespace

double GaussianValue(double a, double sigma)
{
    return std::pow(kE, -(a * a) / (sigma * sigma)) / (sigma * sigma);
}

double RimShading(double d, double e, double badBokeh)
{
    if (d <= e) return 1.0 + (4.0 * badBokeh) * std::pow(d / e, 4.0);
    if (d <= e + 1.0) {
        const double fallOff = e + 1.0 - d;
        const double rimGain = 4.0 * badBokeh;
        return fallOff * rimGain + fallOff;
    }
    return 0.0;
}

Image* MakeDiskKernel(const KernelParams& params, double size, std::int32_t minimumSize)
{
    double radius = (size - 1.0) * 0.5;
    if (radius < kMinimumRadius) radius = kMinimumRadius;
    if (params.shrinkDisk) radius = radius * kShrunkDiskScale;
    CheckRimBrightness(params.badBokeh);
    const double badBokeh = params.badBokeh;
    return FillKernel(params, size, minimumSize,
                      [=](double dx, double dy) { return RimShading(Distance(dx, dy), radius, badBokeh); });
}

Image* MakePolygonKernel(const KernelParams& params, double size, std::int32_t minimumSize)
{
    if (params.sideCount < kMinimumSides)
        throw std::runtime_error("Polygon Side Count " + std::to_string(params.sideCount) + " is below " +
                                 std::to_string(kMinimumSides) + ": a polygon needs at least " +
                                 std::to_string(kMinimumSides) + " sides");
    if (params.sideCount > kMaximumPolygonSides)
        throw std::runtime_error("Polygon Side Count " + std::to_string(params.sideCount) + " is above " +
                                 std::to_string(kMaximumPolygonSides) + ", the most sides a polygon takes");

    // halfSector is half the angle one side subtends at the centre. With angle 0
    // the middle of a side lies on +x; a positive angle turns the polygon toward
    // negative atan2 angles.
    const double halfSector = kPi / static_cast<double>(params.sideCount);
    double circumradius = (size - 1.0) * 0.5;
    if (circumradius < kMinimumRadius) circumradius = kMinimumRadius;
    const double apothem = circumradius * std::cos(halfSector);
    if (!std::isfinite(params.angle))
        throw std::runtime_error("Kernel Angle " + FormatNumber(params.angle) + " is not a finite angle");
    // The sector is found by stepping a full side at a time; an angle of many
    // turns is first brought near the range so that takes a few steps, not
    // millions. Angles of up to kFewTurns turns keep their exact values.
    double angle = params.angle;
    if (std::abs(angle) > kFewTurns * 2.0 * kPi) angle = std::fmod(angle, 2.0 * kPi);
    CheckRimBrightness(params.badBokeh);
    const double badBokeh = params.badBokeh;
    return FillKernel(params, size, minimumSize, [=](double dx, double dy) {
        double theta = std::atan2(dy, dx) + angle;
        while (theta >= halfSector) theta -= 2.0 * halfSector;
        while (theta < -halfSector) theta += 2.0 * halfSector;
        // theta is now measured from the middle of the nearest side.
        const double edge = apothem / std::cos(theta);
        return RimShading(Distance(dx, dy), edge, badBokeh);
    });
}

Image* MakeGaussianKernel(const KernelParams& params, double size, std::int32_t minimumSize)
{
    const double sigma = size / kSigmasPerSize;
    const double centreValue = GaussianValue(0.0, sigma);
    // No factor 2 in the exponent: e^(-d^2 / sigma^2), 1 at the centre.
    return FillKernel(params, size, minimumSize, [=](double dx, double dy) {
        const double d = Distance(dx, dy);
        return GaussianValue(d, sigma) / centreValue;
    });
}

Image* MakeAiryKernel(const KernelParams& params, double size, std::int32_t minimumSize)
{
    const double scale = size / kAiryScaleDivisor;
    return FillKernel(params, size, minimumSize, [=](double dx, double dy) {
        double u = Distance(dx, dy) / scale;
        if (!(u < kAiryThirdZero)) return 0.0;
        if (u == 0.0) u = kAiryCentreArgument;
        const double ratio = ::j1(u) / u;
        return 4.0 * (ratio * ratio);
    });
}

Image* MakeLaplacianKernel(const KernelParams& params, double size, std::int32_t minimumSize)
{
    const double sigma = size / kSigmasPerSize;
    const double divisor = sigma * sigma * 2.0;
    // An inverted hat, 1 at the centre with a negative ring; its negative values
    // are kept and PlaceKernel normalises by the larger of the two lobes.
    return FillKernel(params, size, minimumSize, [=](double dx, double dy) {
        const double q = (dx * dx + dy * dy) / divisor;
        return std::exp(-q) * (1.0 - q);
    });
}

Image* MakeKernel(const KernelParams& params, double size, std::int32_t minimumSize)
{
    switch (params.kernelStyle) {
    case 0: return MakeDiskKernel(params, size, minimumSize);
    case 1: return MakePolygonKernel(params, size, minimumSize);
    case 2: return MakeGaussianKernel(params, size, minimumSize);
    case 3: return MakeAiryKernel(params, size, minimumSize);
    case 4: return MakeLaplacianKernel(params, size, minimumSize);
    default:
        throw std::runtime_error("Blur Style " + std::to_string(params.kernelStyle) +
                                 " is not one of 0 Disk, 1 Polygon, 2 Gaussian, 3 Airy Disk, 4 Laplacian");
    }
}

Image* MakeChannelKernel(const KernelParams& params, double sizeX, double sizeY)
{
    if (!(sizeX > 0.0 && sizeY > 0.0))
        throw std::runtime_error("Blur size " + FormatNumber(sizeX) + " x " + FormatNumber(sizeY) +
                                 " pixels is not above 0 on both axes: a kernel needs a positive size");
    Ref<Image> square(MakeKernel(params, std::max(sizeX, sizeY), 0));
    if (sizeX == sizeY) return square.release();
    return square->ResizeOfImage({{RSZ_Width, OddKernelSize(sizeX)},
                                  {RSZ_Height, OddKernelSize(sizeY)},
                                  {RSZ_Filter, RSZ_FILTER_AREA},
                                  {TAG_DONE}});
}
