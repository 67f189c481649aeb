#include "host/PixelBuffers.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace {

// Smaller buffers come and go through the ordinary allocator's own free lists.
constexpr std::size_t kPooledBytes = std::size_t{1} << 20;
constexpr std::size_t kKeptBuffers = 2;
constexpr std::size_t kAlignment = 64;

// Ordinary pages, not huge ones: the program counts its own resident memory into
// a frame's estimate, and huge pages would make that figure jump by 2 MiB steps.
float* Allocate(std::size_t bytes)
{
    void* p = nullptr;
    return posix_memalign(&p, kAlignment, bytes) == 0 ? static_cast<float*>(p) : nullptr;
}

struct Pool {
    std::mutex mutex;
    std::vector<std::pair<float*, std::size_t>> kept;  // oldest first
};

Pool& Kept()
{
    static Pool* pool = new Pool;  // never destroyed: images may outlive static destruction
    return *pool;
}

bool Pooled(std::size_t floats) { return floats * sizeof(float) >= kPooledBytes; }

}  // namespace

float* TakePixelBuffer(std::size_t floats)
{
    if (floats == 0) floats = 1;
    const std::size_t bytes = floats * sizeof(float);
    float* buffer = nullptr;
    if (Pooled(floats)) {
        std::vector<std::pair<float*, std::size_t>> stale;
        {
            Pool& pool = Kept();
            std::lock_guard<std::mutex> lock(pool.mutex);
            for (auto it = pool.kept.begin(); it != pool.kept.end(); ++it)
                if (it->second == floats) {
                    buffer = it->first;
                    pool.kept.erase(it);
                    break;
                }
            if (!buffer) stale.swap(pool.kept);
        }
        for (const auto& s : stale) std::free(s.first);
    }
    if (!buffer) buffer = Allocate(bytes);
    if (!buffer) throw std::bad_alloc();
    std::memset(buffer, 0, bytes);
    return buffer;
}

void GivePixelBuffer(float* buffer, std::size_t floats)
{
    if (!buffer) return;
    if (floats == 0) floats = 1;
    if (Pooled(floats)) {
        float* oldest = nullptr;
        {
            Pool& pool = Kept();
            std::lock_guard<std::mutex> lock(pool.mutex);
            pool.kept.push_back({buffer, floats});
            if (pool.kept.size() > kKeptBuffers) {
                oldest = pool.kept.front().first;
                pool.kept.erase(pool.kept.begin());
            }
        }
        std::free(oldest);
        return;
    }
    std::free(buffer);
}
