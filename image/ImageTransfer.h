#pragma once
// Moving an image between the host's image and the planes of a channel store,
// and between a plane and a chunk's frequency array.
//
// A render is cut into kChunks chunks, one plane each: red, green and blue, then
// alpha three times, once for each colour's kernel ("AR", "AG", "AB"). The
// output's alpha is the largest of the three.
#include <cstdint>
#include <functional>

class ChannelStore;
class FrequencyArray;
class Image;

constexpr std::int32_t kChunks = 6;
// The store's plane name of each chunk.
extern const char* const kChunkPlanes[kChunks];

// Runs rows(first, last) over bands of the rows 0 .. height - 1, on as many
// threads as it likes; the bands are disjoint. The host's worker pool, say.
using RowBands = std::function<void(int height, const std::function<void(int first, int last)>& rows)>;

// Fills the six planes of `store` (already allocated at the image's size) from
// the source image. With `alphaShared` (one kernel for all three colours,
// KernelSpectra::AlphaShared) the three alpha results would be the same, so
// only the first alpha plane is filled.
void ImportImage(Image& source, ChannelStore& store, const RowBands& bands, bool alphaShared = false);
// Writes the planes into `output` (the source's size): red, green and blue from
// their planes, alpha the largest of the three alpha planes (the first alone
// with `alphaShared`), and every other channel as the source has it.
void ExportImage(Image& source, Image& output, ChannelStore& store, const RowBands& bands, bool alphaShared = false);

// The chunk's plane into the top-left corner of `array` (at least the store's
// size), and back, scaled by 1 / (array width * height) to undo the unnormalised
// transforms. Throw std::runtime_error for a chunk outside 0 .. 5.
void ReadPlane(FrequencyArray& array, ChannelStore& store, std::int32_t chunk);
void WritePlane(const FrequencyArray& array, ChannelStore& store, std::int32_t chunk);
