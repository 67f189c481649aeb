#pragma once
// Pixel storage for host images. A sequence makes images of one size frame after
// frame, and fresh memory has every page faulted in and cleared by the system
// again (on a virtual machine about 2 ms per MiB), so large buffers a released
// image gives back are kept for the next image of the same size. At most two are
// kept, and asking for a large buffer of another size hands the kept ones back:
// the pool never holds more than the images of the last size did.
#include <cstddef>

// `floats` floats (at least one), all 0. Throws std::bad_alloc.
float* TakePixelBuffer(std::size_t floats);
// A buffer TakePixelBuffer gave for `floats` floats.
void GivePixelBuffer(float* buffer, std::size_t floats);

struct PixelBufferRelease {
    std::size_t floats = 0;
    void operator()(float* buffer) const { GivePixelBuffer(buffer, floats); }
};
