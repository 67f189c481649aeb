#pragma once
// Margins around an image held in the top-left W x H corner of a spatial-domain
// FrequencyArray. The transform treats the array as periodic, so the columns right
// of the image and the last columns of the array (which it sees as lying left of
// the image), and likewise the rows below and the last rows, are what a kernel
// reaches past the image's borders. ExtendEdges fills them, about half a kernel
// wide, by duplicating the border samples, wrapping the image, or with black.
//
// Rectangles are inclusive and in array coordinates (x a column of 0 .. width - 1,
// y a row of 0 .. height - 1). Samples that would fall outside the array are
// skipped, so no argument can write outside the buffer.
#include <cstdint>

class FrequencyArray;

// Sets every sample with x0 <= x <= x1 and y0 <= y <= y1 to value.
void FillRect(FrequencyArray& array, std::int32_t x0, std::int32_t x1, std::int32_t y0,
              std::int32_t y1, double value);
// Copies the w x h block whose top-left sample is (srcX, srcY) to (dstX, dstY),
// sample by sample in row order; dst and src may be the same array.
void CopyBlock(FrequencyArray& dst, const FrequencyArray& src, std::int32_t w, std::int32_t h,
               std::int32_t srcX, std::int32_t srcY, std::int32_t dstX, std::int32_t dstY);
// Sum of the samples of the rectangle, every coordinate first clamped into the
// array; a one-sample rectangle is thus a clamped sample read. 0 for an empty array.
double SumRect(const FrequencyArray& array, std::int32_t x0, std::int32_t x1, std::int32_t y0,
               std::int32_t y1);

// Fills the margins for a kernelWidth x kernelHeight kernel, hw = (kernelWidth + 1) / 2
// columns and hh = (kernelHeight + 1) / 2 rows on each side, by the Edges value:
//   0 Duplicate  the nearest border sample repeated outward. The counts are uneven
//                on purpose: the wrapped corners are hw + 1 columns by hh + 1 rows,
//                the right and bottom ones hw by hh; hh + 1 rows are copied on each
//                side over the image's columns, hw columns on each side over its
//                rows; over the image's rows the wrapped side's extra column
//                (width - hw - 1) keeps its value.
//   1 Wrap       the opposite side of the image (periodic continuation).
//   2 Black      everything right of and below the image set to 0.
// The array is expected at least imageWidth + kernelWidth + 1 by imageHeight +
// kernelHeight + 1. When it is exactly that, the Duplicate margins of the two sides
// meet in one column or row, and the later write of the order above stands.
// Throws std::runtime_error("Invalid Edge Type") for any other value.
void ExtendEdges(FrequencyArray& image, std::int32_t imageWidth, std::int32_t imageHeight,
                 std::int32_t kernelWidth, std::int32_t kernelHeight, std::int32_t edgeType);
