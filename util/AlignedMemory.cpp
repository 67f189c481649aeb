#include "util/AlignedMemory.h"

#include <sys/mman.h>

#include <cstdlib>

void* AllocateAligned(std::size_t bytes, std::size_t alignment)
{
    if (bytes < alignment) bytes = alignment;
    const bool huge = bytes >= kHugePage;
    void* p = nullptr;
    if (posix_memalign(&p, huge ? kHugePage : alignment, bytes) != 0) return nullptr;
    if (huge) madvise(p, bytes / kHugePage * kHugePage, MADV_HUGEPAGE);
    return p;
}

void FreeAligned(void* buffer) { std::free(buffer); }
