#pragma once
// Plates for the Python module: files read and written by the program's own
// file layer (Plate.h, ImageFiles.h), with its colour conversions, windows,
// layers and messages. Nothing here knows about Python.
#include "app/files/Plate.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// The colour configuration every plate and array of the process converts
// with, made on first use. Throws a file ProgramError for an $OCIO that cannot
// be read (and tries again next time).
const ColourSpaces& ModuleColourSpaces();

// A file read as `lumivane render` reads its input. The plates rendered from
// it share it for the file's layout, colour and layers, which writing puts back.
class PlateFile {
public:
    PlateFile(const std::string& path, const PlateOptions& options);
    PlateFile(const PlateFile&) = delete;
    PlateFile& operator=(const PlateFile&) = delete;

    const std::string path;
    const PlateOptions options;  // before plate, which refers to it
    FileLayout data;             // the file's own windows, colour and metadata
    std::unique_ptr<Plate> plate;
};

// A plate as Python holds it: the file, and its images in Plate::Sources()
// order (the frame, then each chosen layer): the file's own, or a render's.
struct PlateImages {
    std::shared_ptr<const PlateFile> file;
    std::vector<Ref<Image>> images;
};

// Reads `path` (throws the program's file ProgramError naming it, or a usage
// one for a colour space or layer the file or configuration lacks).
PlateImages ReadPlate(const std::string& path, const PlateOptions& options);

// What write() was asked: each empty when not given; `what` names them in errors.
struct WriteChoices {
    std::string colourSpace, depth, compression;
};

// Writes a plate as `lumivane render` writes its output (colourSpace standing
// for --colorspace-out); returns the writer's warnings.
std::vector<std::string> WritePlate(const PlateImages& plate, const std::string& path, const WriteChoices& choices);

// Writes an image that came from no file in the default layout (R, G, B, A and
// its extras): as it is, or with colourSpace, from linear light into that space.
std::vector<std::string> WriteLooseImage(Image& image, const std::string& path, const WriteChoices& choices);

// An array's image from `space` into linear light and back; usage
// ProgramErrors naming "colorspace" for a space the configuration lacks.
void ArrayToLinear(Image& image, const std::string& space);
void ArrayFromLinear(Image& image, const std::string& space);
