#pragma once
// Aligned buffers for planes and transforms. Buffers from kHugePage bytes up
// start on a huge page and are advised for huge pages: a frame writes every page
// of its planes and arrays at once, and faulting them in 4 KiB at a time shows
// as system time on every frame. The huge page is only a hint: where the system
// gives none, the pages are ordinary ones.
#include <cstddef>

constexpr std::size_t kHugePage = std::size_t{2} << 20;

// At least `bytes` (and never less than `alignment`) bytes, aligned to
// `alignment` (a power of two, at least sizeof(void*)); null when the memory
// cannot be had. Released with FreeAligned.
void* AllocateAligned(std::size_t bytes, std::size_t alignment);
void FreeAligned(void* buffer);
