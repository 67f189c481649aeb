#pragma once
// A number control's value as a double: the value a change notification
// carries, or the control's value for a render request.
#include "host/Input.h"
#include "host/Parameter.h"
#include "host/Request.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

inline double ValueOf(Parameter* p) { return *static_cast<Number*>(p); }
inline double ValueOf(Input* in, Request* req) { return ValueOf(in->GetValue(req, 0)); }

// A value as a whole number for the tool's state, defined for any double: a
// value past the 32-bit range is clamped first (the tool's own checks then
// refuse it by value), NaN becomes the lowest, which no control accepts.
inline std::int32_t ClampedWhole(double v)
{
    constexpr double lo = std::numeric_limits<std::int32_t>::min();
    constexpr double hi = std::numeric_limits<std::int32_t>::max();
    if (std::isnan(v)) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(std::clamp(v, lo, hi));
}

// A whole-number control's value for a render. The host refuses what a user
// cannot set, but a script may set anything: a value that is not finite is
// refused here with the control named.
inline std::int32_t WholeValueOf(Input* in, Request* req)
{
    const double v = ValueOf(in, req);
    if (!std::isfinite(v)) throw std::runtime_error(in->Decl().Label + " is not a finite number");
    return ClampedWhole(v);
}
