#pragma once
// Buffers for the transforms, aligned as FFTW's SIMD code wants (large ones on a
// huge page, util/AlignedMemory.h), and a few kept for reuse.
#include <cstddef>

double* AllocateFftBuffer(std::size_t count);
void FreeFftBuffer(double* buffer);
// The buffers of FrequencyArrays. A few buffers that arrays let go of are kept and
// handed to the next array of the same length: every chunk of a frame would
// otherwise have the system map, and zero, all of its pages again.
// At most kKeptFftBuffers are kept, the most recently returned; asking for a length
// none of them has frees them all (the renders have moved to another size). A kept
// buffer's contents are whatever its last array left.
constexpr int kKeptFftBuffers = 4;
double* TakeFftBuffer(std::size_t count);
void ReturnFftBuffer(double* buffer, std::size_t count);
// Lets go of every kept buffer (a render does at the end of its transforms).
void ReleaseKeptFftBuffers();
