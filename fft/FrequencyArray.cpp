#include "fft/FrequencyArray.h"

#include "fft/FftBuffers.h"
#include "fft/FftPlans.h"
#include "fft/StagedTransform.h"

#include <algorithm>
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
    CreateForPlane(newWidth, newHeight, 0, 0);
}

void FrequencyArray::CreateForPlane(std::uint32_t newWidth, std::uint32_t newHeight, std::uint32_t planeWidth,
                                    std::uint32_t planeHeight)
{
    CreateForRows(newWidth, newHeight, planeWidth, planeHeight, INT32_MAX, 0);
}

void FrequencyArray::CreateForRows(std::uint32_t newWidth, std::uint32_t newHeight, std::uint32_t planeWidth,
                                   std::uint32_t planeHeight, std::int32_t leadingRows, std::int32_t trailingRows)
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
    double* buffer = TakeFftBuffer(static_cast<std::size_t>(length));
    if (!buffer) throw std::runtime_error(kAllocationFailed);
    data = buffer;
    width = static_cast<std::int32_t>(newWidth);
    height = static_cast<std::int32_t>(newHeight);
    size = static_cast<std::int32_t>(length);
    ZeroOutside(planeWidth, planeHeight, leadingRows, trailingRows);

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

bool FrequencyArray::Forward() { return Transform(true, height, 0); }

bool FrequencyArray::Backward() { return Transform(false, height, 0); }

bool FrequencyArray::ForwardRows(std::int32_t leadingRows, std::int32_t trailingRows)
{
    return Transform(true, leadingRows, trailingRows);
}

bool FrequencyArray::BackwardRows(std::int32_t leadingRows) { return Transform(false, leadingRows, 0); }

bool FrequencyArray::Filter(const FrequencyArray& spectrum, SpectrumProduct product, double parameter,
                            std::int32_t leadingRows, std::int32_t trailingRows, std::int32_t keptRows)
{
    if (spectrum.width != width || spectrum.height != height || spectrum.size != size)
        throw std::runtime_error("Spectra differ in size");
    if (!spectrum.m_forFilter)
        throw std::runtime_error("the spectrum to filter with was not made by ForwardRowsForFilter");
    if (!Usable() || !spectrum.data) {
        Release();
        return false;
    }
    const FftRows rows{leadingRows, trailingRows, m_threads, m_stop};
    if (ExecuteFilterFft(*descriptor, data, spectrum.data, product, parameter, rows, keptRows)) return true;
    Release();
    return false;
}

bool FrequencyArray::ForwardRowsForFilter(std::int32_t leadingRows, std::int32_t trailingRows)
{
    if (!data) return false;
    double* blocks = Usable() ? TakeFftBuffer(static_cast<std::size_t>(size)) : nullptr;
    const FftRows rows{leadingRows, trailingRows, m_threads, m_stop};
    if (!blocks || !ExecuteForwardFftToBlocks(*descriptor, data, blocks, rows)) {
        ReturnFftBuffer(blocks, static_cast<std::size_t>(size));
        Release();
        return false;
    }
    ReturnFftBuffer(data, static_cast<std::size_t>(size));
    data = blocks;
    m_forFilter = true;
    return true;
}

bool FrequencyArray::Usable() const
{
    return data && !m_forFilter && descriptor && descriptor->width == width && descriptor->height == height
           && FftPlansFit(*descriptor, data);
}

bool FrequencyArray::Transform(bool forward, std::int32_t leadingRows, std::int32_t trailingRows)
{
    if (!data || m_forFilter) return false;
    if (!Usable()) {
        Release();
        return false;
    }
    const FftRows rows{leadingRows, trailingRows, m_threads, m_stop};
    if (forward ? ExecuteForwardFft(*descriptor, data, rows) : ExecuteBackwardFft(*descriptor, data, rows))
        return true;
    Release();
    return false;
}

void FrequencyArray::ZeroOutside(std::uint32_t planeWidth, std::uint32_t planeHeight, std::int32_t leadingRows,
                                 std::int32_t trailingRows)
{
    const std::size_t stride = static_cast<std::size_t>(width) + 2;
    const std::size_t columns = std::min<std::size_t>(planeWidth, static_cast<std::size_t>(width));
    const std::uint32_t planeRows = std::min<std::uint32_t>(planeHeight, static_cast<std::uint32_t>(height));
    const std::int32_t rows = columns == 0 ? 0 : static_cast<std::int32_t>(planeRows);
    // The rows the transforms read, as StagedTransform's row spans have them.
    const std::int32_t leading = std::clamp(leadingRows, 0, height);
    const std::int32_t trailing = std::clamp(trailingRows, 0, height);
    const bool every = leading >= height - trailing;
    for (std::int32_t y = 0; y < height; ++y) {
        if (!every && y >= leading && y < height - trailing) {
            y = height - trailing - 1;  // on to the trailing rows
            continue;
        }
        const std::size_t first = y < rows ? columns : 0;
        std::memset(data + y * stride + first, 0, (stride - first) * sizeof(double));
    }
}

void FrequencyArray::Release()
{
    ReturnFftBuffer(data, static_cast<std::size_t>(size));
    size = height = width = 0;
    m_threads = 1;
    m_stop = nullptr;
    m_forFilter = false;
    data = nullptr;
    descriptor = nullptr;
}
