#pragma once
// Every image format but plain OpenEXR goes through OpenImageIO, which brings
// some 250 libraries with it (video, camera raw, DICOM, ...). Binding them
// costs a quarter of a second and about 90 MiB at every start, so OpenImageIO
// lives in a module of its own (lumivane-oiio.so) that the program opens the
// first time a file, a colour conversion or a picture needs it; a render of
// OpenEXR frames in linear light never does.
#include "app/files/FileLayout.h"
#include "host/Image.h"
#include "host/Object.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct ImageFile {
    Ref<Image> image;
    FileLayout layout;
};

// A colour conversion of interleaved red, green and blue, in place.
class ColourProcessor {
public:
    virtual ~ColourProcessor() = default;
    virtual void Apply(float* rgb, int pixels) const = 0;
    // Whether an output channel depends on more than its own input channel.
    virtual bool Crosstalk() const = 0;
};

// OpenColorIO's configuration named by $OCIO, else OpenImageIO's built-in spaces.
class ColourConfig {
public:
    virtual ~ColourConfig() = default;
    // Why the configuration could not be read; empty when it was.
    virtual std::string Error() const = 0;
    // The space with `role`, or empty.
    virtual std::string SpaceOfRole(const std::string& role) const = 0;
    // Null when the configuration has no way from `from` to `to`.
    virtual std::unique_ptr<ColourProcessor> Processor(const std::string& from, const std::string& to) const = 0;
    virtual std::vector<std::string> Spaces() const = 0;
    virtual std::string Name() const = 0;
    // The displays a viewer may show on, each with its views, in the
    // configuration's order; none for the built-in spaces.
    using Displays = std::vector<std::pair<std::string, std::vector<std::string>>>;
    virtual Displays DisplaysAndViews() const = 0;
    // From the space `from` to the display and view; null when the
    // configuration has no such pair.
    virtual std::unique_ptr<ColourProcessor> DisplayProcessor(const std::string& display, const std::string& view,
                                                              const std::string& from) const = 0;
};

// What the module offers; ImageFiles.h documents what reading and writing do.
class ImageCodec {
public:
    virtual ~ImageCodec() = default;
    virtual ImageFile Read(const std::string& path) const = 0;
    // Writes to `temp` (the program puts it in place as `path`, which names
    // the format and the file in messages). A write that fails once the
    // temporary file is open gives the writer's reason in `failure`.
    struct Written {
        std::vector<std::string> warnings;
        std::string failure;
    };
    virtual Written Write(const std::string& path, const std::string& temp, const Image& image, const FileLayout& like,
                          std::optional<int> depth, const std::string& compression) const = 0;
    // The writer's name for the format `path` names ("openexr", "png"), or
    // empty when no writer takes it.
    virtual std::string FormatOf(const std::string& path) const = 0;
    // The file's header alone. Throws what Read throws for a file it cannot
    // open or that is too short for the pixels it declares.
    virtual FileHeader Header(const std::string& path) const = 0;
    // 8-bit RGB rows as a PNG (zlib `level`) or a JPEG (4:4:4 at `quality`).
    virtual std::string Encode(const unsigned char* rgb, int width, int height, bool png, int level,
                               int quality) const = 0;
    virtual std::unique_ptr<ColourConfig> Colours() const = 0;
};

// The module, opened on first use. Throws a file ProgramError naming the
// module's file and the loader's reason when it cannot be opened.
const ImageCodec& Codec();

// The symbol the module exports.
extern "C" {
using MakeImageCodec = ImageCodec* (*)();
}
#define LUMIVANE_IMAGE_CODEC_SYMBOL "LumivaneImageCodec"
