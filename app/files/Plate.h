#pragma once
// A frame as a compositor holds it, made ready for the tool and put back
// together after it.
//
// Colour. The tool filters light, so the colour of every colour layer is
// rendered in the linear working space (ColourSpaces.h) and written back in the
// output's space: --colorspace-out; else the input's when the output holds the
// same kind of data (integer or float) as the input, so a copy is exact; else
// linear for float outputs and sRGB for integer ones. --raw renders the values
// as stored.
//
// Windows. Relative sizes refer to the frame, the file's display window. The
// tool renders the union of the data and display windows: the outside of a
// bounding box is black, so a blur spreads beyond it; overscan is filtered and
// kept. The output's data window is that union, its display window the input's.
//
// Layers. Channels named LAYER.CHANNEL (or a lone channel such as Z) form
// layers besides the image's own red, green, blue and alpha. A colour layer has
// R, G and B, and may have A; any other layer holds data (normals, depth, IDs).
// Each layer chosen with --layers goes through the tool as an RGBA image of its
// own, at the same time and with the same settings, and comes back under its
// own names; the others pass through.
#include "app/files/ColourSpaces.h"
#include "app/files/FramePattern.h"
#include "app/files/ImageFiles.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct PlateOptions {
    std::string colourIn;   // empty: the file's own
    std::string colourOut;  // empty: see above
    bool raw = false;
    std::string layers;  // "all" or names separated by commas; empty: red, green, blue and alpha only
};

struct Layer {
    std::string name;
    int slot[4] = {-1, -1, -1, -1};  // extra channels holding red, green, blue, alpha; -1: none
    bool colour = false;
};

class Plate {
public:
    Plate(ImageFile file, const std::string& path, const PlateOptions& options, const ColourSpaces& colour);

    // The images to render, in order: the frame itself, then each chosen layer.
    const std::vector<Ref<Image>>& Sources() const { return m_sources; }
    // The file's data window as the file has it.
    const FileLayout& DataWindow() const { return m_data; }
    // Puts the tool's results (one per source) back into one image and writes
    // it. Returns what the output file could not hold, as warnings. `colourOut`,
    // when given, stands for the options' --colorspace-out.
    std::vector<std::string> Write(const std::string& path, const std::vector<const Image*>& results,
                                   std::optional<int> depth, const std::string& compression = {},
                                   const std::optional<std::string>& colourOut = std::nullopt) const;

    // The file's description over the union window (Sources()' raster): the
    // display window (fullX...) and the union (x, y, width, height); source
    // pixel (0, 0) is the file's pixel (x, y).
    const FileLayout& Layout() const { return m_like; }
    // The file's colour space the sources were brought from; empty with --raw.
    const std::string& Space() const { return m_space; }
    // The chosen layers, one per source after the first.
    const std::vector<Layer>& Layers() const { return m_layers; }

private:
    const PlateOptions& m_options;
    const ColourSpaces& m_colour;
    FileLayout m_like;       // the file's description over the union window
    FileLayout m_data;       // as the file has it
    std::string m_space;     // the file's colour; empty with --raw
    std::vector<Layer> m_layers;  // one per source after the first
    std::vector<Ref<Image>> m_sources;
};

// `data` laid over the union of its data window and the frame (its display
// window): the raster the tool renders. Throws a render ProgramError when the
// union is wider or taller than an image can be.
FileLayout UnionWindow(const FileLayout& data);

// The images a plate of the file whose header is `header` hands the tool, in
// Sources() order, as images without pixels of the same sizes, channels and
// aspect. Throws as Plate's constructor does for a layer the file lacks.
std::vector<Ref<Image>> PlateShapes(const FileHeader& header, const std::string& path, const PlateOptions& options);

// The plates of one pattern: the last one is kept, so a still used for every
// frame is read once.
class PlateSource {
public:
    // Throws a usage ProgramError for a colour space the configuration does not know.
    explicit PlateSource(const PlateOptions& options);
    // Called with the frame's PlateShapes before its file's pixels are read
    // (the previous plate already let go); it throws to stop the frame.
    using PlanFrame = std::function<void(const std::vector<Ref<Image>>& shapes)>;
    const Plate& At(const FramePattern& pattern, int frame, const PlanFrame& plan = {});
    // Each warning once a run.
    bool FirstTime(const std::string& warning) { return m_warned.insert(warning).second; }

private:
    const PlateOptions& m_options;
    ColourSpaces m_colour;
    std::string m_path;
    std::vector<Ref<Image>> m_shapes;  // the kept plate's
    std::unique_ptr<Plate> m_plate;
    std::set<std::string> m_warned;
};
