#include "frequency/FrequencyArray.h"

#include "frequency/FftBackend.h"

#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

constexpr const char* kAllocationFailed = "FrequencyArray memory allocation failed";
constexpr const char* kCreateDescriptorFailed = "CreateDescriptor failed";
constexpr const char* kSetValueFailed = "SetValue failed";

}  // namespace

void FrequencyArray::Create(std::uint32_t newWidth, std::uint32_t newHeight)
{
    if (newWidth == 0 || newHeight == 0) {
        Release();
        return;
    }
    if (data && static_cast<std::uint32_t>(width) == newWidth
        && static_cast<std::uint32_t>(height) == newHeight)
        return;

    Release();
    // Counted in 64 bits so that a size whose buffer length does not fit the int32
    // `size` fails as an allocation instead of wrapping round to a small buffer.
    const std::uint64_t length = (std::uint64_t{newWidth} + 2) * newHeight;
    if (length > INT_MAX) throw std::runtime_error(kAllocationFailed);
    double* buffer = AllocateFftBuffer(static_cast<std::size_t>(length));
    if (!buffer) throw std::runtime_error(kAllocationFailed);
    std::memset(buffer, 0, static_cast<std::size_t>(length) * sizeof(double));
    data = buffer;
    width = static_cast<std::int32_t>(newWidth);
    height = static_cast<std::int32_t>(newHeight);
    size = static_cast<std::int32_t>(length);

    const FftPlanPair* plans = nullptr;
    FftStatus status = AcquireFftPlans(width, height, false, plans);
    if (status != FftStatus::NoError) {
        Release();
        throw std::runtime_error(std::string(kCreateDescriptorFailed) + FftStatusText(status));
    }
    // Plans made on an aligned scratch buffer rely on that alignment; a buffer the
    // allocator placed otherwise gets the size's alignment-agnostic plans instead.
    if (!FftPlansFit(*plans, data)) {
        status = AcquireFftPlans(width, height, true, plans);
        if (status != FftStatus::NoError) {
            Release();
            throw std::runtime_error(std::string(kSetValueFailed) + FftStatusText(status));
        }
    }
    descriptor = plans;
}

bool FrequencyArray::Forward() { return Transform(true); }

bool FrequencyArray::Backward() { return Transform(false); }

bool FrequencyArray::Transform(bool forward)
{
    if (!data) return false;
    if (!descriptor || descriptor->width != width || descriptor->height != height
        || !FftPlansFit(*descriptor, data)) {
        Release();
        return false;
    }
    if (forward)
        ExecuteForwardFft(*descriptor, data);
    else
        ExecuteBackwardFft(*descriptor, data);
    return true;
}

void FrequencyArray::Release()
{
    size = height = width = 0;
    FreeFftBuffer(data);
    data = nullptr;
    descriptor = nullptr;
}
