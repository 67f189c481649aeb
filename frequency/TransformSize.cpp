#include "frequency/TransformSize.h"

#include "kernel/KernelSize.h"
#include "util/Text.h"

#include <stdexcept>
#include <string>

namespace {

constexpr const char* kColourNames[3] = {"red", "green", "blue"};

// Whether n has no prime factor above 7.
bool IsSevenSmooth(std::int64_t n)
{
    for (const std::int64_t p : {2, 3, 5, 7})
        while (n % p == 0) n /= p;
    return n == 1;
}

// The side of the periodic array for image plus kernel `n`.
std::int32_t TransformSide(std::int64_t n, const char* axis, TransformSizes rule)
{
    if (n >= kLargestTransformSide)
        throw std::runtime_error(std::string("the transform ") + axis + " for image plus kernel of " +
                                 std::to_string(n) + " pixels would pass the largest side of " +
                                 std::to_string(kLargestTransformSide));
    std::int32_t side = 1;
    while (side <= n) side *= 2;
    if (rule == TransformSizes::Smooth)
        for (std::int64_t even = (n + 2) / 2 * 2; even < side; even += 2)
            if (IsSevenSmooth(even)) return static_cast<std::int32_t>(even);
    return side;
}

}  // namespace

TransformSize TransformSizeFor(std::int32_t imageWidth, std::int32_t imageHeight, double sx, double sy,
                               std::int32_t colour, TransformSizes rule)
{
    if (!(sx > 0.0 && sy > 0.0))
        throw std::runtime_error(std::string("the ") + kColourNames[colour] + " blur size " + FormatNumber(sx) +
                                 " x " + FormatNumber(sy) +
                                 " is not above 0 pixels, so there is no kernel to filter with");
    for (double s : {sx, sy})
        if (s >= kLargestTransformSide)
            throw std::runtime_error(std::string("the ") + kColourNames[colour] + " blur size of " +
                                     FormatNumber(s) + " pixels passes the largest kernel of " +
                                     std::to_string(kLargestTransformSide) + " pixels");
    TransformSize t;
    t.kernelWidth = OddKernelSize(sx);
    t.kernelHeight = OddKernelSize(sy);
    t.width = TransformSide(std::int64_t{imageWidth} + t.kernelWidth, "width", rule);
    t.height = TransformSide(std::int64_t{imageHeight} + t.kernelHeight, "height", rule);
    return t;
}
