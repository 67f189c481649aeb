#include "python/PlateFiles.h"

#include "app/files/ExitCodes.h"
#include "app/files/ImageFiles.h"

#include <mutex>

namespace {

constexpr const char* kColourArgument = "colorspace";

std::optional<int> DepthOf(const WriteChoices& choices)
{
    if (choices.depth.empty()) return std::nullopt;
    return ParseDepth(choices.depth);
}

std::string CompressionOf(const WriteChoices& choices, const std::string& path)
{
    return choices.compression.empty() ? std::string() : ParseCompression(choices.compression, path);
}

}  // namespace

const ColourSpaces& ModuleColourSpaces()
{
    static std::mutex lock;
    // Never destroyed: plates may outlive the module's other statics at exit.
    static const ColourSpaces* colour = nullptr;
    const std::lock_guard<std::mutex> hold(lock);
    if (!colour) colour = new ColourSpaces();
    return *colour;
}

PlateFile::PlateFile(const std::string& p, const PlateOptions& o) : path(p), options(o)
{
    const ColourSpaces& colour = ModuleColourSpaces();
    if (!options.colourIn.empty()) colour.Check(options.colourIn, kColourArgument);
    ImageFile file = ReadImageFile(path);
    data = file.layout;
    plate = std::make_unique<Plate>(std::move(file), path, options, colour);
}

PlateImages ReadPlate(const std::string& path, const PlateOptions& options)
{
    auto file = std::make_shared<const PlateFile>(path, options);
    std::vector<Ref<Image>> images = file->plate->Sources();
    return {std::move(file), std::move(images)};
}

std::vector<std::string> WritePlate(const PlateImages& plate, const std::string& path, const WriteChoices& choices)
{
    const std::optional<int> depth = DepthOf(choices);
    const std::string compression = CompressionOf(choices, path);
    std::optional<std::string> colourOut;
    if (!choices.colourSpace.empty()) {
        if (plate.file->plate->Space().empty())
            throw UsageError(std::string(kColourArgument) + ": " + plate.file->path +
                             " was read raw; its values are written as they are");
        ModuleColourSpaces().Check(choices.colourSpace, kColourArgument);
        colourOut = choices.colourSpace;
    }
    std::vector<const Image*> images;
    for (const Ref<Image>& image : plate.images) images.push_back(image.get());
    return plate.file->plate->Write(path, images, depth, compression, colourOut);
}

std::vector<std::string> WriteLooseImage(Image& image, const std::string& path, const WriteChoices& choices)
{
    const std::optional<int> depth = DepthOf(choices);
    const std::string compression = CompressionOf(choices, path);
    FileLayout like;
    if (!choices.colourSpace.empty()) {
        ArrayFromLinear(image, choices.colourSpace);
        like.colourSpace = choices.colourSpace;
    }
    return WriteImageFile(path, image, like, depth, compression);
}

void ArrayToLinear(Image& image, const std::string& space)
{
    const ColourSpaces& colour = ModuleColourSpaces();
    colour.Check(space, kColourArgument);
    colour.ToWorking(image, space, kColourArgument);
}

void ArrayFromLinear(Image& image, const std::string& space)
{
    const ColourSpaces& colour = ModuleColourSpaces();
    colour.Check(space, kColourArgument);
    colour.FromWorking(image, space);
}
