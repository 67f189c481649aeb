// The length a file must have for its declared pixels is a lower bound: no
// real file falls below it. A constant image, the most any coder compresses,
// written at its format's highest compression, must still be read.
#include "ProgramRunner.h"

#include "app/ImageFiles.h"

#include <gtest/gtest.h>

#include <OpenImageIO/imagebuf.h>

namespace {

struct Coding {
    const char* file;
    const char* compression;  // OpenImageIO's name, or empty for the format's own
    OIIO::TypeDesc type;
    int channels;
    int tile = 0;
};

TEST(DeclaredPixels, ConstantImagesAtTheirHighestCompressionAreRead)
{
    ScratchFolder dir;
    const Coding codings[] = {
        {"grey.png", "", OIIO::TypeDesc::UINT8, 1},
        {"rgba16.png", "", OIIO::TypeDesc::UINT16, 4},
        {"grey.jpg", "", OIIO::TypeDesc::UINT8, 1},
        {"rgb.jpg", "", OIIO::TypeDesc::UINT8, 3},
        {"zip.tif", "zip:9", OIIO::TypeDesc::UINT8, 1},
        {"lzw.tif", "lzw", OIIO::TypeDesc::UINT16, 3},
        {"packbits.tif", "packbits", OIIO::TypeDesc::UINT8, 3},
        {"zip.exr", "zip:9", OIIO::TypeDesc::HALF, 4},
        {"zips.exr", "zips:9", OIIO::TypeDesc::FLOAT, 3},
        {"rle.exr", "rle", OIIO::TypeDesc::HALF, 4},
        {"tiled.exr", "zip:9", OIIO::TypeDesc::HALF, 4, 32},
    };
    for (const Coding& c : codings) {
        OIIO::ImageSpec layout(1536, 1024, c.channels, c.type);
        if (*c.compression) layout.attribute("compression", c.compression);
        layout.attribute("png:compressionLevel", 9);
        layout.attribute("CompressionQuality", 1);
        const std::string path = dir / c.file;
        OIIO::ImageBuf constant(layout, OIIO::InitializePixels::Yes);
        constant.set_write_tiles(c.tile, c.tile);
        WriteFile(constant, path, c.type);
        try {
            const FileHeader header = ReadImageHeader(path);
            EXPECT_EQ(header.layout.width, 1536) << c.file;
        } catch (const std::exception& e) {
            ADD_FAILURE() << c.file << ": " << e.what();
        }
    }
}

}  // namespace
