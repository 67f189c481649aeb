// The channel store's planes, and moving images in and out of them.
#include "fft/FrequencyArray.h"
#include "image/ChannelStore.h"
#include "image/ImageTransfer.h"
#include "support/DocHarness.h"
#include "support/Refusal.h"

namespace {

const RowBands kOneBand = [](int height, const std::function<void(int, int)>& rows) { rows(0, height); };

TEST(ImageTransfer, AlphaIsTheLargestOfTheThreeFilteredPlanesAndOtherChannelsPassThrough)
{
    Ref<Image> src(MakeImage(3, 1, [](int, int, int c) { return float(c); }, {"Z"}));
    ChannelStore store;
    store.Allocate(3, 1);
    ImportImage(*src, store, kOneBand);
    for (int chunk = 0; chunk < kChunks; ++chunk)
        EXPECT_EQ(store.GetChannel(kChunkPlanes[chunk])[1], chunk < 3 ? float(chunk) : 3.0f) << chunk;
    const float alphas[3][3] = {{0.2f, 0.7f, 0.5f}, {0.9f, 0.1f, 0.3f}, {0.4f, 0.4f, 0.4f}};
    for (int x = 0; x < 3; ++x)
        for (int k = 0; k < 3; ++k) store.GetChannel(kChunkPlanes[3 + k])[x] = alphas[x][k];
    Ref<Image> out(NewImage({{IMG_Like, static_cast<const void*>(src.get())}}));
    ExportImage(*src, *out, store, kOneBand);
    EXPECT_EQ((std::vector<float>{Sample(*out, 0, 0, 3), Sample(*out, 1, 0, 3), Sample(*out, 2, 0, 3)}),
              (std::vector<float>{0.7f, 0.9f, 0.4f}));
    EXPECT_EQ((std::vector<float>{Sample(*out, 1, 0, 0), Sample(*out, 1, 0, 2), Sample(*out, 1, 0, 4)}),
              (std::vector<float>{0.0f, 2.0f, 4.0f}));
}

// Pitch and planes at real sizes are exercised by the whole-frame filter tests.
TEST(ChannelStore, EmptyStoresAndBadChunks)
{
    ChannelStore store;
    store.Allocate(4, 0);
    FrequencyArray none;
    ReadPlane(none, store, 2);  // a zero-height store touches nothing
    WritePlane(none, store, 2);
    for (int chunk : {6, -1})
        EXPECT_EQ(Refusal<std::runtime_error>([&] { ReadPlane(none, store, chunk); }), "Unable to access storage channel");
}

}  // namespace
