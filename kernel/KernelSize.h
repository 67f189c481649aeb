#pragma once
#include <cstdint>

// The kernel edge for a blur size: the smallest odd integer not below ceil(size)
// (4 and 4.2 give 5, 5 gives 5, 6 gives 7, 1 gives 1).
std::int32_t OddKernelSize(double size);
