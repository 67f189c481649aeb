// The channel store's planes, and moving images in and out of them.
#include "fft/FrequencyArray.h"
#include "image/ChannelStore.h"
#include "image/ImageTransfer.h"
#include "support/DocHarness.h"

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
    EXPECT_EQ(Sample(*out, 0, 0, 3), 0.7f);
    EXPECT_EQ(Sample(*out, 1, 0, 3), 0.9f);
    EXPECT_EQ(Sample(*out, 2, 0, 3), 0.4f);
    EXPECT_EQ(Sample(*out, 1, 0, 0), 0.0f);
    EXPECT_EQ(Sample(*out, 1, 0, 2), 2.0f);
    EXPECT_EQ(Sample(*out, 1, 0, 4), 4.0f);
}

TEST(ChannelStore, PitchNamesAndBadChunks)
{
    ChannelStore store;
    for (auto [w, pitch] : {std::pair{5, 8}, {8, 8}, {1, 4}, {11, 12}}) {
        store.Allocate(w, 2);
        EXPECT_EQ(store.pitch, pitch) << w;
    }
    store.GetChannel("R");
    store.GetChannel("AB");
    store.Allocate(5, 3);  // names are kept, sizes are not
    std::vector<std::string> names;
    for (const auto& p : store.planes) names.push_back(p.first);
    EXPECT_EQ(names, (std::vector<std::string>{"AB", "R"}));
    EXPECT_EQ(store.width, 5);
    store.Allocate(4, 0);
    FrequencyArray none;
    ReadPlane(none, store, 2);  // a zero-height store touches nothing
    WritePlane(none, store, 2);
    for (int chunk : {6, -1}) {
        try {
            ReadPlane(none, store, chunk);
            ADD_FAILURE() << chunk;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "Unable to access storage channel");
        }
    }
}

}  // namespace
