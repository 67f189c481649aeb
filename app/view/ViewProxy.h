#pragma once
// Proxies for `lumivane view`: a frame shrunk by a whole factor for a quick
// look that matches the full-resolution picture.
//
// The frame is shrunk as the host shrinks images (ResizeOfImage's area filter:
// each proxy pixel is the mean of the pixels under it), to the full size
// divided by the factor and rounded (at least 1 pixel). Sizes in percent of
// the frame's width (Blur Size Unit "Relative") follow the smaller frame by
// themselves; sizes in pixels ("Absolute") are divided by the factor for the
// proxy render and put back afterwards, keys and all, so the tool's saved
// state never sees the proxy. A kernel image needs nothing: the tool resizes
// it to the blur size.
#include "host/Image.h"
#include "host/Input.h"

#include <map>
#include <vector>

class Operator;

// The proxy factors offered: 1 (full resolution), 2 and 4.
bool IsProxyFactor(int factor);

// The frame shrunk by `factor` (1: a copy).
Ref<Image> ProxyOf(const Image& frame, int factor);

// While alive, the tool's pixel-sized blur controls read 1/factor of their
// values at every time; nothing changes when the unit is relative at `time`.
class ProxySizes {
public:
    ProxySizes(Operator& tool, TimeStamp time, int factor);
    ~ProxySizes();
    ProxySizes(const ProxySizes&) = delete;
    ProxySizes& operator=(const ProxySizes&) = delete;

private:
    struct Saved {
        Input* input;
        Ref<Parameter> constant;  // of a control without keys
        std::map<double, double> keys;
    };
    std::vector<Saved> m_saved;
    TimeStamp m_time;
};
