#include "tool/HostServices.h"

#include "fft/FftPlans.h"
#include "host/WorkerPool.h"

#include <algorithm>

namespace {

// Fewer rows than this per band are not worth handing to another thread.
constexpr int kRowsPerBand = 64;

}  // namespace

RowBands HostRowBands()
{
    return [](int height, const std::function<void(int, int)>& rows) {
        WorkerPool& pool = WorkerPool::Shared();
        const int bands = std::max(1, std::min(static_cast<int>(pool.ThreadCount()), height / kRowsPerBand));
        if (bands == 1) {
            rows(0, height);
            return;
        }
        pool.Run(bands, [&](int band) {
            rows(static_cast<int>(static_cast<long long>(height) * band / bands),
                 static_cast<int>(static_cast<long long>(height) * (band + 1) / bands));
        });
    };
}

unsigned HostThreadCount() { return WorkerPool::Shared().ThreadCount(); }

std::uint64_t HostMemoryLimit() { return MemoryLimit(); }

std::string HostMemoryLimitSource() { return MemoryLimitSource(); }

std::uint64_t HostHeldMemory() { return HostFrameMemory(); }

TransformSizes HostTransformSizes() { return EngineTransformSizes(); }
bool HostKeepsBuffers() { return HostKeepsTransformBuffers(); }

void ApplyHostFftSettings()
{
    const FftPlanning effort =
        EngineFftPlanning() == FftEffort::Measure ? FftPlanning::Measure : FftPlanning::Estimate;
    SetFftPlanning(effort, EngineFftWisdom());
}
