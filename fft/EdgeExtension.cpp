#include "fft/EdgeExtension.h"

#include "fft/FrequencyArray.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr std::int32_t kEdgeDuplicate = 0;
constexpr std::int32_t kEdgeWrap = 1;
constexpr std::int32_t kEdgeBlack = 2;
constexpr const char* kInvalidEdgeType = "Invalid Edge Type";

std::int64_t RowStride(const FrequencyArray& array) { return std::int64_t{array.width} + 2; }

double* Sample(FrequencyArray& array, std::int32_t x, std::int32_t y)
{
    return array.data + y * RowStride(array) + x;
}

// Clipped to the array; a coordinate outside it drops the write.
void SetSample(FrequencyArray& array, std::int32_t x, std::int32_t y, double value)
{
    if (x >= 0 && x < array.width && y >= 0 && y < array.height) *Sample(array, x, y) = value;
}

// SumRect of the one sample, without its loops: the sample at the nearest place
// inside the array, added to 0.0 as the sum starts (so -0.0 reads as 0.0).
double ClampedSample(const FrequencyArray& array, std::int32_t x, std::int32_t y)
{
    if (!array.data || array.width <= 0 || array.height <= 0) return 0.0;
    x = std::clamp(x, 0, array.width - 1);
    y = std::clamp(y, 0, array.height - 1);
    return 0.0 + array.data[y * RowStride(array) + x];
}

// The part [first, first + count) of one axis that stays inside [0, extent) after
// shifting by both offsets, as a range of offsets within the block.
void ClipSpan(std::int64_t srcStart, std::int64_t dstStart, std::int64_t count,
              std::int64_t srcExtent, std::int64_t dstExtent, std::int64_t& begin,
              std::int64_t& end)
{
    begin = std::max({std::int64_t{0}, -srcStart, -dstStart});
    end = std::min({count, srcExtent - srcStart, dstExtent - dstStart});
}

void ExtendBlack(FrequencyArray& I, std::int32_t W, std::int32_t H)
{
    const std::int32_t C = I.width;
    const std::int32_t R = I.height;
    FillRect(I, W, C - 1, 0, R - 1, 0.0);
    FillRect(I, 0, W, H, R - 1, 0.0);
}

void ExtendWrap(FrequencyArray& I, std::int32_t W, std::int32_t H, std::int32_t hw,
                std::int32_t hh)
{
    const std::int32_t C = I.width;
    const std::int32_t R = I.height;
    // Corners first, each image corner to the diagonally opposite margin corner.
    CopyBlock(I, I, hw, hh, W - hw, H - hh, C - hw, R - hh);
    CopyBlock(I, I, hw, hh, 0, H - hh, W, R - hh);
    CopyBlock(I, I, hw, hh, W - hw, 0, C - hw, H);
    CopyBlock(I, I, hw, hh, 0, 0, W, H);
    CopyBlock(I, I, W, hh, 0, H - hh, 0, R - hh);
    CopyBlock(I, I, W, hh, 0, 0, 0, H);
    CopyBlock(I, I, hw, H, W - hw, 0, C - hw, 0);
    CopyBlock(I, I, hw, H, 0, 0, W, 0);
}

void ExtendDuplicate(FrequencyArray& I, std::int32_t W, std::int32_t H, std::int32_t hw,
                     std::int32_t hh)
{
    const std::int32_t C = I.width;
    const std::int32_t R = I.height;
    FillRect(I, C - hw - 1, C - 1, R - hh - 1, R - 1, ClampedSample(I, 0, 0));
    FillRect(I, W, W + hw - 1, R - hh - 1, R - 1, ClampedSample(I, W - 1, 0));
    FillRect(I, C - hw - 1, C - 1, H, H + hh - 1, ClampedSample(I, 0, H - 1));
    FillRect(I, W, W + hw - 1, H, H + hh - 1, ClampedSample(I, W - 1, H - 1));

    // Each pass copies the row the previous pass wrote, so both sides grow outward
    // from the image's first and last rows.
    for (std::int32_t k = 0; k <= hh; ++k) {
        for (std::int32_t x = 0; x < W; ++x) {
            SetSample(I, x, R - k - 1, ClampedSample(I, x, (R - k) % R));
            SetSample(I, x, H + k, ClampedSample(I, x, H + k - 1));
        }
    }
    for (std::int32_t k = 0; k < hw; ++k) {
        for (std::int32_t y = 0; y < H; ++y) {
            SetSample(I, C - k - 1, y, ClampedSample(I, (C - k) % C, y));
            SetSample(I, W + k, y, ClampedSample(I, W + k - 1, y));
        }
    }
}

}  // namespace

void FillRect(FrequencyArray& array, std::int32_t x0, std::int32_t x1, std::int32_t y0,
              std::int32_t y1, double value)
{
    const std::int32_t left = std::max(x0, 0);
    const std::int32_t right = std::min(x1, array.width - 1);
    const std::int32_t top = std::max(y0, 0);
    const std::int32_t bottom = std::min(y1, array.height - 1);
    for (std::int32_t y = top; y <= bottom; ++y)
        std::fill(Sample(array, left, y), Sample(array, left, y) + (right - left + 1), value);
}

void CopyBlock(FrequencyArray& dst, const FrequencyArray& src, std::int32_t w, std::int32_t h,
               std::int32_t srcX, std::int32_t srcY, std::int32_t dstX, std::int32_t dstY)
{
    std::int64_t columnBegin, columnEnd, rowBegin, rowEnd;
    ClipSpan(srcX, dstX, w, src.width, dst.width, columnBegin, columnEnd);
    ClipSpan(srcY, dstY, h, src.height, dst.height, rowBegin, rowEnd);
    const std::int64_t srcStride = RowStride(src);
    const std::int64_t dstStride = RowStride(dst);
    for (std::int64_t j = rowBegin; j < rowEnd; ++j) {
        const double* from = src.data + (srcY + j) * srcStride + srcX;
        double* to = dst.data + (dstY + j) * dstStride + dstX;
        for (std::int64_t i = columnBegin; i < columnEnd; ++i) to[i] = from[i];
    }
}

double SumRect(const FrequencyArray& array, std::int32_t x0, std::int32_t x1, std::int32_t y0,
               std::int32_t y1)
{
    if (!array.data || array.width <= 0 || array.height <= 0) return 0.0;
    const std::int32_t lastX = array.width - 1;
    const std::int32_t lastY = array.height - 1;
    x0 = std::clamp(x0, 0, lastX);
    x1 = std::clamp(x1, 0, lastX);
    y0 = std::clamp(y0, 0, lastY);
    y1 = std::clamp(y1, 0, lastY);
    double sum = 0.0;
    for (std::int32_t y = y0; y <= y1; ++y) {
        const double* row = array.data + y * RowStride(array);
        for (std::int32_t x = x0; x <= x1; ++x) sum += row[x];
    }
    return sum;
}

void ExtendEdges(FrequencyArray& image, std::int32_t imageWidth, std::int32_t imageHeight,
                 std::int32_t kernelWidth, std::int32_t kernelHeight, std::int32_t edgeType)
{
    if (edgeType != kEdgeDuplicate && edgeType != kEdgeWrap && edgeType != kEdgeBlack)
        throw std::runtime_error(kInvalidEdgeType);
    if (!image.data) return;
    const std::int32_t hw = (kernelWidth + 1) / 2;
    const std::int32_t hh = (kernelHeight + 1) / 2;
    if (edgeType == kEdgeBlack)
        ExtendBlack(image, imageWidth, imageHeight);
    else if (edgeType == kEdgeWrap)
        ExtendWrap(image, imageWidth, imageHeight, hw, hh);
    else
        ExtendDuplicate(image, imageWidth, imageHeight, hw, hh);
}
