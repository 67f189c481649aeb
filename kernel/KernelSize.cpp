#include "kernel/KernelSize.h"

#include <cmath>

std::int32_t OddKernelSize(double size)
{
    const auto half = static_cast<std::int32_t>(std::ceil(size) * -0.5);
    return 1 - 2 * half;
}
