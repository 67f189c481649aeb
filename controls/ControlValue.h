#pragma once
// A number control's value as a double: the value a change notification
// carries, or the control's value for a render request.
#include "host/Input.h"
#include "host/Parameter.h"
#include "host/Request.h"

inline double ValueOf(Parameter* p) { return *static_cast<Number*>(p); }
inline double ValueOf(Input* in, Request* req) { return ValueOf(in->GetValue(req, 0)); }
