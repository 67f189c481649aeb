// Plain OpenEXR frames are read and written through OpenEXR itself (uncompressed
// and ZIP lines chunk by chunk through its core library, the other codecs
// through its own decoders); OpenImageIO, which reads every other file, is the
// second opinion on what they hold.
#include "support/ProgramRunner.h"

#include "app/files/ImageFiles.h"

#include <gtest/gtest.h>

#include <OpenImageIO/imagebuf.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>

namespace {

using OIIO::ImageBuf;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

struct Plain {
    const char* name;
    std::vector<std::string> channels;
    TypeDesc format;
    bool decreasing;  // line order
};

// Values no half holds exactly, some large, some tiny, negative ones too.
std::vector<float> Noise(std::size_t n, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<float> normal(0.3f, 2.0f);
    std::vector<float> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = normal(random) * (i % 7 == 0 ? 3000.0f : i % 11 == 0 ? 1e-5f : 1.0f);
    return v;
}

TypeDesc StoredFormat(const std::string& path) { return OIIO::ImageInput::open(path)->spec().format; }

bool MapsCodecModule()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find("lumivane-oiio.so") != std::string::npos) return true;
    return false;
}

// Grey spreads to red, green and blue, alpha is 1 where the file has none,
// Z is an extra channel; windows, pixel aspect, line order, compression and the
// header's own attributes come back on writing, and OpenImageIO is never loaded
// for it. Each codec the program decodes or encodes itself, and one it leaves
// to OpenEXR.
class ExrCodec : public ::testing::TestWithParam<const char*> {};

TEST_P(ExrCodec, PlainFramesReadAndWriteAsOpenImageIoSeesThem)
{
    constexpr int kHeight = 300;
    // Run in one process with the others, an earlier test may have opened the module.
    const bool openedBefore = MapsCodecModule();
    ScratchFolder dir;
    const Plain plains[] = {{"y.exr", {"Y"}, TypeDesc::HALF, true},
                            {"rgb.exr", {"R", "G", "B"}, TypeDesc::FLOAT, false},
                            {"rgba.exr", {"R", "G", "B", "A"}, TypeDesc::HALF, false},
                            {"yaz.exr", {"Y", "A", "Z"}, TypeDesc::FLOAT, false}};
    for (const Plain& plain : plains) {
        SCOPED_TRACE(plain.name);
        const int n = static_cast<int>(plain.channels.size());
        // Taller than one band of lines written at once, so the bands' order counts.
        ImageSpec layout(13, kHeight, n, plain.format);
        layout.channelnames = plain.channels;
        layout.x = 4;
        layout.y = -2;
        layout.full_width = 20;
        layout.full_height = kHeight + 2;
        layout.attribute("PixelAspectRatio", 2.0f);
        layout.attribute("studio:shot", "sq010_0040");
        layout.attribute("compression", GetParam());
        if (plain.decreasing) layout.attribute("openexr:lineOrder", "decreasingY");
        const std::vector<float> values = Noise(static_cast<std::size_t>(13) * kHeight * n, 7);
        ImageBuf written(layout);
        written.set_pixels(written.roi(), TypeDesc::FLOAT, values.data());
        ASSERT_TRUE(written.write(dir / plain.name)) << written.geterror();

        const ImageBuf stored = ReadFile(dir / plain.name);
        const ImageFile file = ReadImageFile(dir / plain.name);
        const Image& image = *file.image;
        ASSERT_EQ(image.Width, 13);
        ASSERT_EQ(image.Height, kHeight);
        EXPECT_EQ(image.XScale, 2.0);
        EXPECT_EQ(file.layout.x, 4);
        EXPECT_EQ(file.layout.y, -2);
        EXPECT_EQ(file.layout.fullWidth, 20);
        const bool grey = plain.channels[0] == "Y";
        const auto& names = plain.channels;
        const int alpha = static_cast<int>(std::find(names.begin(), names.end(), "A") - names.begin());
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < 13; ++x) {
                const float* p = image.Pixel(x, y);
                const auto at = [&](int c) { return stored.getchannel(4 + x, y - 2, 0, c); };
                EXPECT_EQ(p[2], at(0));
                EXPECT_EQ(p[1], at(grey ? 0 : 1));
                EXPECT_EQ(p[0], at(grey ? 0 : 2));
                EXPECT_EQ(p[3], alpha < n ? at(alpha) : 1.0f);
                if (n == 3 && grey) {
                    EXPECT_EQ(p[4], at(2));
                }
            }

        const std::string out = dir / (std::string("out-") + plain.name);
        ASSERT_TRUE(WriteImageFile(out, image, file.layout).empty());
        const ImageBuf back = ReadFile(out);
        EXPECT_EQ(back.spec().channelnames, stored.spec().channelnames);
        EXPECT_EQ(StoredFormat(out), plain.format);
        EXPECT_EQ(back.roi(), stored.roi());
        EXPECT_EQ(back.roi_full(), stored.roi_full());
        EXPECT_EQ(back.spec().get_float_attribute("PixelAspectRatio"), 2.0f);
        EXPECT_EQ(back.spec().get_string_attribute("studio:shot"), "sq010_0040");
        EXPECT_EQ(back.spec().get_string_attribute("compression"), GetParam());
        EXPECT_EQ(back.spec().get_string_attribute("openexr:lineOrder"),
                  stored.spec().get_string_attribute("openexr:lineOrder"));
        EXPECT_EQ(Compare(back, stored).worst, 0.0);
    }
    EXPECT_TRUE(openedBefore || !MapsCodecModule());
}

INSTANTIATE_TEST_SUITE_P(Codecs, ExrCodec, ::testing::Values("none", "zip", "zips", "piz"));

// Float results written as half round exactly as OpenImageIO rounds them, and
// float results stay as they are, whatever the codec and level. Several ZIP
// chunks, the last one short; noise that ZIP cannot shrink is stored raw.
TEST(ExrFiles, OutputPixelsAreTheImagesWhateverTheCodec)
{
    constexpr int kWidth = 61, kHeight = 40;
    ScratchFolder dir;
    Image image(kWidth, kHeight, IMDP_Float32);
    const std::vector<float> values = Noise(static_cast<std::size_t>(kWidth) * kHeight * 4, 11);
    ImageBuf reference(ImageSpec(kWidth, kHeight, 4, TypeDesc::FLOAT));
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const float* v = &values[(static_cast<std::size_t>(y) * kWidth + x) * 4];
            float rgba[4];
            for (int c = 0; c < 4; ++c) {
                rgba[c] = y < kHeight / 2 ? v[c] : (x + y % 3 + c) / 64.0f;
                image.Pixel(x, y)[kRecordPosition[c]] = rgba[c];
            }
            reference.setpixel(x, y, rgba);
        }
    for (const TypeDesc format : {TypeDesc::HALF, TypeDesc::FLOAT}) {
        // OpenImageIO keeps what it read by name: every file has its own.
        const std::string theirsPath = dir / (std::string("theirs-") + format.c_str() + ".exr");
        WriteFile(reference, theirsPath, format);
        const ImageBuf theirs = ReadFile(theirsPath);
        for (const char* codec : {"none", "zip", "zip:1", "zip:9", "zips", "piz"}) {
            SCOPED_TRACE(std::string(format.c_str()) + " " + codec);
            const std::string path = dir / (std::string("ours-") + format.c_str() + "-" + codec + ".exr");
            WriteImageFile(path, image, {}, format == TypeDesc::HALF ? IMDP_Float16 : IMDP_Float32, codec);
            const ImageBuf ours = ReadFile(path);
            EXPECT_EQ(StoredFormat(path), format);
            const std::string name(codec);
            EXPECT_EQ(ours.spec().get_string_attribute("compression"), name.substr(0, name.find(':')));
            EXPECT_EQ(Compare(ours, theirs).worst, 0.0) << Compare(ours, theirs);
        }
    }
}

// Values exactly halfway between two halves go to the one with an even last
// bit, worked out here by hand: normal, subnormal, negative, and the tie past
// the largest half, which overflows to infinity.
TEST(ExrFiles, HalfOutputRoundsTiesToEven)
{
    const float ulp11 = std::ldexp(1.0f, -11), tiny = std::ldexp(1.0f, -25);
    const struct { float value, half; } ties[] = {
        {1 + ulp11, 1},              {1 + 3 * ulp11, 1 + 4 * ulp11}, {-(1 + ulp11), -1},
        {0.5f + ulp11 / 2, 0.5f},    {2049, 2048},                   {2051, 2052},
        {tiny, 0},                   {3 * tiny, 4 * tiny},           {65520, INFINITY}};
    const int n = static_cast<int>(std::size(ties));
    Image image(n, 1, IMDP_Float32);
    for (int x = 0; x < n; ++x)
        for (int c = 0; c < 4; ++c) image.Pixel(x, 0)[c] = ties[x].value;
    ScratchFolder dir;
    WriteImageFile(dir / "ties.exr", image, {}, IMDP_Float16, "none");
    const ImageBuf back = ReadFile(dir / "ties.exr");
    for (int x = 0; x < n; ++x) EXPECT_EQ(back.getchannel(x, 0, 0, 0), ties[x].half) << "from " << ties[x].value;
}

}  // namespace
