// What the page's viewer probes: the linear values under the cursor, the
// frame's windows and layers, and the displays the colour configuration has.
#include "app/view/ViewSession.h"

#include "app/files/ExitCodes.h"
#include "util/Text.h"

#include <cmath>

using json = nlohmann::ordered_json;

namespace {

constexpr const char* kFrameLayer = "RGBA";

json Window(long x, long y, long width, long height) { return json::array({x, y, width, height}); }

// A float exactly (as the double it widens to); what JSON has no number for, as text.
json Value(float v)
{
    if (std::isnan(v)) return "nan";
    if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
    return static_cast<double>(v);
}

}  // namespace

std::size_t ViewSession::LayerIndex(const std::string& layer)
{
    if (layer.empty() || layer == kFrameLayer) return 0;
    const std::vector<Layer>& layers = CurrentPlate().Layers();
    std::vector<std::string> names{kFrameLayer};
    for (std::size_t k = 0; k < layers.size(); ++k) {
        if (layers[k].name == layer) return k + 1;
        names.push_back(layers[k].name);
    }
    throw UsageError("layer \"" + layer + "\": not among the layers viewed (" + Join(names) +
                     "; --layers chooses them)");
}

const Image& ViewSession::FullImage(const std::string& which, std::size_t layer)
{
    if (which == "input") return *CurrentPlate().Sources().at(layer);
    if (which != "output") throw UsageError("which: expected input or output, got \"" + which + "\"");
    RenderIfStale();
    if (!m_failure.empty()) throw RenderError(m_failure);
    if (m_rendered.images.empty()) throw RenderError("interrupted");
    return *m_rendered.images.at(layer);
}

json ViewSession::Pixels(const std::string& which, const std::string& layer, long x, long y, long width, long height)
{
    if (width < 1 || height < 1 || width > kPixelsAtOnce || height > kPixelsAtOnce || width * height > kPixelsAtOnce)
        throw UsageError("w=" + std::to_string(width) + ", h=" + std::to_string(height) +
                         ": expected a region of 1 to " + std::to_string(kPixelsAtOnce) + " pixels (64x64)");
    const FileLayout& over = CurrentPlate().Layout();
    // Source pixel (0, 0) is the file's (over.x, over.y); both are of the union of the windows.
    const long left = x - over.x, top = y - over.y;
    if (left < 0 || top < 0 || left + width > over.width || top + height > over.height)
        throw UsageError("x=" + std::to_string(x) + ", y=" + std::to_string(y) + ", w=" + std::to_string(width) +
                         ", h=" + std::to_string(height) + ": outside the image, whose pixels are x " +
                         std::to_string(over.x) + " to " + std::to_string(over.x + over.width - 1) + ", y " +
                         std::to_string(over.y) + " to " + std::to_string(over.y + over.height - 1));
    const Image& image = FullImage(which, LayerIndex(layer));
    json pixels = json::array();
    for (long row = top; row < top + height; ++row)
        for (long column = left; column < left + width; ++column) {
            const float* p = image.Pixel(static_cast<int>(column), static_cast<int>(row));
            pixels.push_back(json::array({Value(p[kRecordPosition[0]]), Value(p[kRecordPosition[1]]),
                                          Value(p[kRecordPosition[2]]), Value(p[kRecordPosition[3]])}));
        }
    return json{{"which", which}, {"layer", layer.empty() ? kFrameLayer : layer}, {"x", x}, {"y", y},
                {"w", width}, {"h", height}, {"channels", {"R", "G", "B", "A"}}, {"pixels", pixels},
                {"frame", m_frame}, {"version", m_version}};
}

json ViewSession::PlateDocument()
{
    const Plate& plate = CurrentPlate();
    const FileLayout &over = plate.Layout(), &data = plate.DataWindow();
    json layers = json::array({kFrameLayer});
    for (const Layer& layer : plate.Layers()) layers.push_back(layer.name);
    json displays = json::array();
    for (const auto& [display, views] : m_colour.Displays())
        displays.push_back({{"display", display}, {"views", views}});
    return json{{"frame", m_frame},
                {"pixels", Window(over.x, over.y, over.width, over.height)},
                {"dataWindow", Window(data.x, data.y, data.width, data.height)},
                {"displayWindow", Window(over.fullX, over.fullY, over.fullWidth, over.fullHeight)},
                {"layers", layers},
                {"displays", displays}};
}
