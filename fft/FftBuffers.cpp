#include "fft/FftBuffers.h"

#include "util/AlignedMemory.h"

#include <cstdint>
#include <iterator>
#include <mutex>
#include <vector>

namespace {

// The alignment FFTW's SIMD code wants; large buffers start on a huge page.
constexpr std::size_t kSimdAlignment = 64;

}  // namespace

// A plain aligned allocation, which is what fftw_malloc is: it shares no state
// with the planner and needs no lock.
double* AllocateFftBuffer(std::size_t count)
{
    if (count > SIZE_MAX / sizeof(double)) return nullptr;
    return static_cast<double*>(AllocateAligned(count * sizeof(double), kSimdAlignment));
}

void FreeFftBuffer(double* buffer) { FreeAligned(buffer); }

namespace {

struct KeptBuffer {
    double* buffer;
    std::size_t count;
};

std::mutex& KeptMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Newest last.
std::vector<KeptBuffer>& Kept()
{
    static std::vector<KeptBuffer> kept;
    return kept;
}

// Lets go of every kept buffer when the module holding them is unloaded, or the
// process ends: a host that unloads a plug-in gets its memory back. Made after
// what it releases, so it is destroyed before them.
struct ReleaseAtUnload {
    ReleaseAtUnload()
    {
        KeptMutex();
        Kept();
    }
    ~ReleaseAtUnload()
    {
        std::lock_guard<std::mutex> lock(KeptMutex());
        for (const KeptBuffer& k : Kept()) FreeFftBuffer(k.buffer);
        Kept().clear();
    }
} releaseAtUnload;

}  // namespace

double* TakeFftBuffer(std::size_t count)
{
    std::vector<KeptBuffer> stale;
    {
        std::lock_guard<std::mutex> lock(KeptMutex());
        std::vector<KeptBuffer>& kept = Kept();
        for (auto it = kept.rbegin(); it != kept.rend(); ++it)
            if (it->count == count) {
                double* buffer = it->buffer;
                kept.erase(std::next(it).base());
                return buffer;
            }
        // Renders have moved on to another size: what is kept would only sit there.
        stale.swap(kept);
    }
    for (const KeptBuffer& k : stale) FreeFftBuffer(k.buffer);
    return AllocateFftBuffer(count);
}

void ReturnFftBuffer(double* buffer, std::size_t count)
{
    if (!buffer) return;
    double* oldest = nullptr;
    {
        std::lock_guard<std::mutex> lock(KeptMutex());
        std::vector<KeptBuffer>& kept = Kept();
        kept.push_back({buffer, count});
        if (kept.size() > static_cast<std::size_t>(kKeptFftBuffers)) {
            oldest = kept.front().buffer;
            kept.erase(kept.begin());
        }
    }
    FreeFftBuffer(oldest);
}


void ReleaseKeptFftBuffers()
{
    std::vector<KeptBuffer> stale;
    {
        std::lock_guard<std::mutex> lock(KeptMutex());
        stale.swap(Kept());
    }
    for (const KeptBuffer& k : stale) FreeFftBuffer(k.buffer);
}
