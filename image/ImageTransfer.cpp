#include "image/ImageTransfer.h"

#include "fft/FrequencyArray.h"
#include "host/Image.h"
#include "image/ChannelStore.h"

#include <cstring>
#include <stdexcept>

const char* const kChunkPlanes[kChunks] = {"R", "G", "B", "AR", "AG", "AB"};

void ImportImage(Image& source, ChannelStore& channelStore, const RowBands& bands, bool alphaShared)
{
    Image* sourceImage = &source;
    float* plane[kChunks];
    for (int k = 0; k < kChunks; ++k) plane[k] = channelStore.GetChannel(kChunkPlanes[k]);
    const std::int32_t pitch = channelStore.pitch;
    bands(sourceImage->Height, [&](int first, int last) {
        PixPtr src(sourceImage);
        FltPixel p;
        for (int y = first; y < last; ++y) {
            src.GotoXY(0, y);
            const std::size_t row = static_cast<std::size_t>(y) * pitch;
            for (int x = 0; x < sourceImage->Width; ++x) {
                src.GetNextPixel(p);
                plane[0][row + x] = p.R;
                plane[1][row + x] = p.G;
                plane[2][row + x] = p.B;
                plane[3][row + x] = p.A;
            }
            if (alphaShared) continue;
            std::memcpy(plane[4] + row, plane[3] + row, sizeof(float) * static_cast<std::size_t>(sourceImage->Width));
            std::memcpy(plane[5] + row, plane[3] + row, sizeof(float) * static_cast<std::size_t>(sourceImage->Width));
        }
    });
}

void ExportImage(Image& source, Image& output, ChannelStore& channelStore, const RowBands& bands, bool alphaShared)
{
    Image* sourceImage = &source;
    Image* outputImage = &output;
    float* plane[kChunks];
    for (int k = 0; k < kChunks; ++k) plane[k] = channelStore.GetChannel(kChunkPlanes[k]);
    const std::int32_t pitch = channelStore.pitch;
    bands(outputImage->Height, [&](int first, int last) {
        PixPtr src(sourceImage), dst(outputImage);
        FltPixel p;
        for (int y = first; y < last; ++y) {
            src.GotoXY(0, y);
            dst.GotoXY(0, y);
            const std::size_t row = static_cast<std::size_t>(y) * pitch;
            for (int x = 0; x < outputImage->Width; ++x) {
                // The pixel starts as the source's, so channels other than red,
                // green, blue and alpha pass through.
                src.GetNextPixel(p);
                p.R = plane[0][row + x];
                p.G = plane[1][row + x];
                p.B = plane[2][row + x];
                const float ar = plane[3][row + x];
                if (alphaShared) {
                    p.A = ar;
                } else {
                    const float ag = plane[4][row + x], ab = plane[5][row + x];
                    p.A = ar > (ag > ab ? ag : ab) ? ar : (ag > ab ? ag : ab);
                }
                dst.PutNextPixel(p);
            }
        }
    });
}

void ReadPlane(FrequencyArray& array, ChannelStore& channelStore, std::int32_t chunk)
{
    if (static_cast<std::uint32_t>(chunk) > 5) throw std::runtime_error("Unable to access storage channel");
    const float* plane = channelStore.GetChannel(kChunkPlanes[chunk]);
    if (!plane) throw std::runtime_error("successful failed to access storage channel");
    if (channelStore.height < 1) return;
    const std::size_t stride = static_cast<std::size_t>(array.width) + 2;
    for (std::int32_t y = 0; y < channelStore.height; ++y) {
        const float* in = plane + static_cast<std::size_t>(y) * channelStore.pitch;
        double* out = array.data + y * stride;
        for (std::int32_t x = 0; x < channelStore.width; ++x) out[x] = in[x];
    }
}

void WritePlane(const FrequencyArray& array, ChannelStore& channelStore, std::int32_t chunk)
{
    const double scale = 1.0 / static_cast<double>(array.height * array.width);
    if (static_cast<std::uint32_t>(chunk) > 5) throw std::runtime_error("Unable to access storage channel");
    float* plane = channelStore.GetChannel(kChunkPlanes[chunk]);
    if (channelStore.height < 1) return;
    const std::size_t stride = static_cast<std::size_t>(array.width) + 2;
    for (std::int32_t y = 0; y < channelStore.height; ++y) {
        const double* in = array.data + y * stride;
        float* out = plane + static_cast<std::size_t>(y) * channelStore.pitch;
        for (std::int32_t x = 0; x < channelStore.width; ++x) out[x] = static_cast<float>(scale * in[x]);
    }
}
