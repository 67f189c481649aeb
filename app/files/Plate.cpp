#include "app/files/Plate.h"

#include "app/files/ExitCodes.h"

#include "util/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <sstream>

namespace {

constexpr const char* kAllLayers = "all";
constexpr const char* kColourChannels[4] = {"R", "G", "B", "A"};

std::string Strip(const std::string& s)
{
    const auto first = s.find_first_not_of(" \t");
    if (first == std::string::npos) return {};
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

// The layers among `extras`, in the order their first channel comes: each
// name with the channel indices under it and their own names.
struct FoundLayer {
    std::string name;
    std::vector<std::pair<std::string, int>> channels;
};

std::vector<FoundLayer> FindLayers(const std::vector<std::string>& extras)
{
    std::vector<FoundLayer> layers;
    for (int i = 0; i < static_cast<int>(extras.size()); ++i) {
        const std::string& full = extras[i];
        const auto dot = full.rfind('.');
        const std::string name = dot == std::string::npos ? full : full.substr(0, dot);
        const std::string channel = dot == std::string::npos ? full : full.substr(dot + 1);
        auto it = std::find_if(layers.begin(), layers.end(), [&](const FoundLayer& l) { return l.name == name; });
        if (it == layers.end()) it = layers.insert(layers.end(), FoundLayer{name, {}});
        it->channels.emplace_back(channel, i);
    }
    return layers;
}

// A colour layer's red, green, blue and alpha; for a data layer, its first
// three channels, a lone channel standing for all three (written back from red).
Layer MakeLayer(const FoundLayer& found)
{
    Layer layer;
    layer.name = found.name;
    for (int c = 0; c < 4; ++c)
        for (const auto& [channel, index] : found.channels)
            if (SameIgnoringCase(channel, kColourChannels[c])) layer.slot[c] = index;
    layer.colour = layer.slot[0] >= 0 && layer.slot[1] >= 0 && layer.slot[2] >= 0;
    if (layer.colour) return layer;
    std::fill(std::begin(layer.slot), std::end(layer.slot), -1);
    for (int c = 0; c < 3; ++c) {
        const std::size_t k = found.channels.size() == 1 ? 0 : static_cast<std::size_t>(c);
        if (k < found.channels.size()) layer.slot[c] = found.channels[k].second;
    }
    return layer;
}

std::string LayerList(const std::vector<FoundLayer>& found)
{
    std::vector<std::string> names;
    for (const FoundLayer& f : found) names.push_back(f.name + (MakeLayer(f).colour ? "" : " (data)"));
    return names.empty() ? "none besides RGBA" : Join(names);
}

// The layers `chosen` names, in the file's order.
std::vector<Layer> ChooseLayers(const std::vector<std::string>& extras, const std::string& chosen,
                                const std::string& path)
{
    const std::vector<FoundLayer> found = FindLayers(extras);
    std::vector<Layer> layers;
    if (chosen.empty()) return layers;
    std::vector<std::string> names;
    std::stringstream list(chosen);
    for (std::string n; std::getline(list, n, ',');)
        if (!Strip(n).empty()) names.push_back(Strip(n));
    const bool all = names.size() == 1 && SameIgnoringCase(names[0], kAllLayers);
    for (const std::string& name : names) {
        const bool known = std::any_of(found.begin(), found.end(), [&](const FoundLayer& f) { return f.name == name; });
        if (!all && !known && !SameIgnoringCase(name, "RGBA"))
            throw UsageError("--layers " + chosen + ": " + path + " has no layer \"" + name +
                             "\"; its layers: " + LayerList(found));
    }
    for (const FoundLayer& f : found) {
        Layer layer = MakeLayer(f);
        if (all ? layer.colour : std::find(names.begin(), names.end(), f.name) != names.end())
            layers.push_back(layer);
    }
    return layers;
}

// `image` laid over the union of its data window and the frame, black outside.
Ref<Image> OverUnion(const Ref<Image>& image, const FileLayout& data, const FileLayout& over)
{
    if (over.width == data.width && over.height == data.height) return image;
    Ref<Image> out(new Image(over.width, over.height, image->Depth, image->ExtraChannels()));
    out->XScale = image->XScale;
    out->YScale = image->YScale;
    const std::size_t row = sizeof(float) * static_cast<std::size_t>(image->Width) * image->PixelStride();
    for (int y = 0; y < image->Height; ++y)
        std::memcpy(out->Pixel(data.x - over.x, data.y - over.y + y), image->Pixel(0, y), row);
    return out;
}

}  // namespace

FileLayout UnionWindow(const FileLayout& data)
{
    FileLayout over = data;
    if (over.fullWidth <= 0 || over.fullHeight <= 0) {
        over.fullX = data.x;
        over.fullY = data.y;
        over.fullWidth = data.width;
        over.fullHeight = data.height;
    }
    // In 64 bits: windows far apart make a union wider than an int holds.
    using Wide = std::int64_t;
    const Wide x = std::min<Wide>(data.x, over.fullX), y = std::min<Wide>(data.y, over.fullY);
    const Wide width = std::max(Wide{data.x} + data.width, Wide{over.fullX} + over.fullWidth) - x;
    const Wide height = std::max(Wide{data.y} + data.height, Wide{over.fullY} + over.fullHeight) - y;
    if (width > std::numeric_limits<int>::max() || height > std::numeric_limits<int>::max())
        throw RenderError("cannot render " + data.path + ": the union of its data and display windows, " +
                          std::to_string(width) + "x" + std::to_string(height) +
                          " pixels, is larger than an image can be");
    over.x = static_cast<int>(x);
    over.y = static_cast<int>(y);
    over.width = static_cast<int>(width);
    over.height = static_cast<int>(height);
    return over;
}

std::vector<Ref<Image>> PlateShapes(const FileHeader& header, const std::string& path, const PlateOptions& options)
{
    const FileLayout over = UnionWindow(header.layout);
    const auto shape = [&](const std::vector<std::string>& extras) {
        Ref<Image> image(new Image(over.width, over.height, header.depth, extras, ImagePixels::None));
        image->XScale = header.pixelAspect;
        image->FrameWidth = over.fullWidth;
        return image;
    };
    std::vector<Ref<Image>> shapes{shape(header.extras)};
    const std::size_t layers = ChooseLayers(header.extras, options.layers, path).size();
    for (std::size_t k = 0; k < layers; ++k) shapes.push_back(shape({}));
    return shapes;
}

Plate::Plate(ImageFile file, const std::string& path, const PlateOptions& options, const ColourSpaces& colour)
    : m_options(options), m_colour(colour), m_like(UnionWindow(file.layout))
{
    const FileLayout& data = file.layout;
    Ref<Image> frame = OverUnion(file.image, data, m_like);
    file.image = Ref<Image>();
    frame->FrameWidth = m_like.fullWidth;
    if (!options.raw) {
        m_space = options.colourIn.empty() ? colour.OfFile(data) : options.colourIn;
        colour.ToWorking(*frame, m_space, path);
    }

    m_layers = ChooseLayers(frame->ExtraChannels(), options.layers, path);
    m_sources.push_back(frame);
    for (const Layer& layer : m_layers) {
        Ref<Image> image(new Image(frame->Width, frame->Height, frame->Depth));
        image->XScale = frame->XScale;
        image->YScale = frame->YScale;
        image->FrameWidth = frame->FrameWidth;
        for (int y = 0; y < frame->Height; ++y)
            for (int x = 0; x < frame->Width; ++x) {
                const float* extra = frame->Pixel(x, y) + 4;
                float* p = image->Pixel(x, y);
                for (int c = 0; c < 3; ++c) p[kRecordPosition[c]] = layer.slot[c] >= 0 ? extra[layer.slot[c]] : 0.0f;
                p[3] = layer.slot[3] >= 0 ? extra[layer.slot[3]] : 1.0f;
            }
        // Data is not light: depth, normals and IDs keep their values.
        if (layer.colour && !m_space.empty()) colour.ToWorking(*image, m_space, path);
        m_sources.push_back(image);
    }
}

std::vector<std::string> Plate::Write(const std::string& path, const std::vector<const Image*>& results,
                                      std::optional<int> depth, const std::string& compression) const
{
    const Image& frame = *results.at(0);
    FileLayout like = m_like;
    std::string space;
    if (!m_space.empty()) {
        const bool floatOut = HoldsFloat(path, depth.value_or(frame.Depth));
        space = !m_options.colourOut.empty()                  ? m_options.colourOut
                : floatOut == like.floating                   ? m_space
                : floatOut                                    ? m_colour.Working()
                                                              : std::string(ColourSpaces::kIntegerDefault);
        like.colourSpace = space;
    }
    // Linear light back into a float file, with no layers to put back: the
    // tool's result is written as it is, without a copy.
    if (m_layers.empty() && (space.empty() || m_colour.IsWorking(space)))
        return WriteImageFile(path, frame, like, depth, compression);
    Ref<Image> out(frame.CopyOfImage());
    for (std::size_t k = 0; k < m_layers.size(); ++k) {
        const Layer& layer = m_layers[k];
        Ref<Image> result(results.at(k + 1)->CopyOfImage());
        if (layer.colour && !space.empty()) m_colour.FromWorking(*result, space);
        for (int y = 0; y < out->Height; ++y)
            for (int x = 0; x < out->Width; ++x) {
                float* extra = out->Pixel(x, y) + 4;
                const float* p = result->Pixel(x, y);
                // A lone data channel stands for all three colours; it comes back from red.
                for (int c = 3; c >= 0; --c)
                    if (layer.slot[c] >= 0) extra[layer.slot[c]] = p[kRecordPosition[c]];
            }
    }
    if (!space.empty()) m_colour.FromWorking(*out, space);
    return WriteImageFile(path, *out, like, depth, compression);
}

PlateSource::PlateSource(const PlateOptions& options) : m_options(options)
{
    if (!options.colourIn.empty()) m_colour.Check(options.colourIn, "--colorspace-in");
    if (!options.colourOut.empty()) m_colour.Check(options.colourOut, "--colorspace-out");
}

const Plate& PlateSource::At(const FramePattern& pattern, int frame, const PlanFrame& plan)
{
    const std::string path = pattern.At(frame);
    if (path != m_path || !m_plate) {
        m_plate.reset();
        m_path.clear();
        m_shapes = PlateShapes(ReadImageHeader(path), path, m_options);
        if (plan) plan(m_shapes);
        m_plate = std::make_unique<Plate>(ReadImageFile(path), path, m_options, m_colour);
        m_path = path;
    } else if (plan) {
        plan(m_shapes);
    }
    return *m_plate;
}
