#include "python/PlateBindings.h"

#include "python/ArrayImages.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

namespace py = pybind11;

namespace {

constexpr const char* kColourNames[4] = {"R", "G", "B", "A"};

py::tuple Window(int x, int y, int width, int height) { return py::make_tuple(x, y, width, height); }

// "all", "diffuse,specular" or ["diffuse", "specular"] as --layers takes them.
std::string LayersArgument(const py::object& layers)
{
    if (layers.is_none()) return {};
    if (py::isinstance<py::str>(layers)) return layers.cast<std::string>();
    std::string joined;
    for (const py::handle& name : layers) {
        if (!py::isinstance<py::str>(name)) throw py::type_error("layers: give \"all\", a str or a list of str");
        joined += (joined.empty() ? "" : ",") + name.cast<std::string>();
    }
    return joined;
}

py::array_t<float> PixelsOf(const Image& image) { return ArrayFromImage(image, image.PixelStride(), false); }

}  // namespace

std::string TextArgument(const py::object& value, const char* what)
{
    if (value.is_none()) return {};
    if (py::isinstance<py::str>(value)) return value.cast<std::string>();
    if (py::isinstance<py::int_>(value)) return py::str(value).cast<std::string>();
    throw py::type_error(std::string(what) + ": give a str (or None)");
}

PlateOptions PlateOptionsOf(const py::object& layers, const py::object& colorspace, bool raw)
{
    PlateOptions options;
    options.layers = LayersArgument(layers);
    options.colourIn = TextArgument(colorspace, "colorspace");
    options.raw = raw;
    if (raw && !options.colourIn.empty())
        throw py::value_error("colorspace: a plate read raw is not converted; give one or the other");
    return options;
}

WriteChoices WriteChoicesOf(const py::object& compression, const py::object& colorspace, const py::object& depth)
{
    return {TextArgument(colorspace, "colorspace"), TextArgument(depth, "depth"), TextArgument(compression, "compression")};
}

void WarnAll(const std::vector<std::string>& warnings)
{
    for (const std::string& w : warnings)
        if (PyErr_WarnEx(PyExc_UserWarning, w.c_str(), 1) != 0) throw py::error_already_set();
}

Ref<Image> KernelImageOf(const py::object& kernel)
{
    if (kernel.is_none()) return {};
    if (py::isinstance<PlateImages>(kernel)) return kernel.cast<const PlateImages&>().images.front();
    if (!py::isinstance<py::array>(kernel)) throw py::type_error("kernel: give a numpy array, a Plate or None");
    return ImageFromArray(kernel.cast<py::array>(), "kernel", 1.0, 1.0);
}

void BindPlates(py::module_& m)
{
    py::class_<PlateImages>(m, "Plate", R"(An image file as the program holds it for a render.

Its pixels are in linear light (the file's colour space decoded, unless read raw),
over the union of the file's data and display windows; relative blur sizes refer
to the display window. A plate returned by Tool.render keeps its file's layout,
colour, layers and metadata, so lumivane.write puts them back as `lumivane render`
writes its output.)")
        .def_property_readonly(
            "pixels", [](const PlateImages& p) { return PixelsOf(*p.images.front()); },
            "A new float32 array, height x width x channels, in the order of `channels`: red, green,\n"
            "blue, alpha (1 where the file has none), then the file's other channels as stored.")
        .def_property_readonly(
            "channels",
            [](const PlateImages& p) {
                std::vector<std::string> names(std::begin(kColourNames), std::end(kColourNames));
                for (const std::string& extra : p.images.front()->ExtraChannels()) names.push_back(extra);
                return names;
            },
            "The names of the channels of `pixels`.")
        .def_property_readonly(
            "layers",
            [](const PlateImages& p) {
                std::vector<std::string> names;
                for (const Layer& layer : p.file->plate->Layers()) names.push_back(layer.name);
                return names;
            },
            "The layers chosen with read(layers=...), which render filters beside RGBA.")
        .def(
            "layer",
            [](const PlateImages& p, const std::string& name) {
                const std::vector<Layer>& layers = p.file->plate->Layers();
                for (std::size_t k = 0; k < layers.size(); ++k)
                    if (layers[k].name == name) return PixelsOf(*p.images.at(k + 1));
                throw py::key_error("layer \"" + name + "\" was not chosen when " + p.file->path + " was read");
            },
            py::arg("name"),
            "A chosen layer as a new RGBA float32 array (a colour layer in linear light; a data\n"
            "layer's values as stored). Raises KeyError for a layer not chosen.")
        .def_property_readonly(
            "data_window",
            [](const PlateImages& p) { return Window(p.file->data.x, p.file->data.y, p.file->data.width, p.file->data.height); },
            "The file's data window, (x, y, width, height).")
        .def_property_readonly(
            "display_window",
            [](const PlateImages& p) {
                const FileLayout& l = p.file->plate->Layout();
                return Window(l.fullX, l.fullY, l.fullWidth, l.fullHeight);
            },
            "The file's display window (the frame), (x, y, width, height).")
        .def_property_readonly(
            "window",
            [](const PlateImages& p) {
                const FileLayout& l = p.file->plate->Layout();
                return Window(l.x, l.y, l.width, l.height);
            },
            "The window `pixels` covers, the union of the data and display windows: (x, y, width, height).")
        .def_property_readonly(
            "pixel_aspect", [](const PlateImages& p) { return p.images.front()->XScale / p.images.front()->YScale; },
            "The file's pixel aspect (width over height of a pixel).")
        .def_property_readonly(
            "colorspace",
            [](const PlateImages& p) -> py::object {
                const std::string& space = p.file->plate->Space();
                return space.empty() ? py::object(py::none()) : py::object(py::str(space));
            },
            "The colour space the file's pixels were decoded from; None when read raw.")
        .def_property_readonly(
            "metadata",
            [](const PlateImages& p) {
                py::dict found;
                if (p.file->data.metadata)
                    for (const auto& [name, value] : p.file->data.metadata->Attributes()) found[py::str(name)] = value;
                return found;
            },
            "The file's header attributes, {name: value as text}.")
        .def_property_readonly("path", [](const PlateImages& p) { return p.file->path; }, "The file it was read from.")
        .def("__repr__", [](const PlateImages& p) {
            const Image& frame = *p.images.front();
            return "<lumivane.Plate " + p.file->path + " " + std::to_string(frame.Width) + "x" +
                   std::to_string(frame.Height) + "x" + std::to_string(frame.PixelStride()) + ">";
        });

    m.def(
        "read",
        [](const std::string& path, const py::object& layers, const py::object& colorspace, bool raw) {
            const PlateOptions options = PlateOptionsOf(layers, colorspace, raw);
            py::gil_scoped_release unlocked;
            return ReadPlate(path, options);
        },
        py::arg("path"), py::arg("layers") = py::none(), py::arg("colorspace") = py::none(), py::arg("raw") = false,
        R"(Reads an image file as `lumivane render` reads its input and returns a Plate.

path: any format the program reads (OpenEXR, TIFF, PNG, JPEG, DPX, HDR, PFM, ...).
layers: "all" (every colour layer), a layer name, or a list of names, as --layers:
    the layers render filters beside RGBA.
colorspace: the file's colour space, as --colorspace-in (default: what the file says,
    else sRGB for integer data and linear for float).
raw: keep the values as stored, as --raw.

Raises OSError naming the file and the reader's reason, and ValueError for a layer
the file lacks or a colour space the configuration does not know.

    plate = lumivane.read("shot.1001.exr", layers="all"))");

    m.def(
        "write",
        [](const py::object& image, const std::string& path, const py::object& compression, const py::object& colorspace,
           const py::object& depth) {
            const WriteChoices choices = WriteChoicesOf(compression, colorspace, depth);
            std::vector<std::string> warnings;
            if (py::isinstance<PlateImages>(image)) {
                const PlateImages& plate = image.cast<const PlateImages&>();
                py::gil_scoped_release unlocked;
                warnings = WritePlate(plate, path, choices);
            } else if (py::isinstance<py::array>(image)) {
                Ref<Image> loose = ImageFromArray(image.cast<py::array>(), "image", 1.0, 1.0);
                py::gil_scoped_release unlocked;
                warnings = WriteLooseImage(*loose, path, choices);
            } else {
                throw py::type_error("image: give a Plate or a numpy array");
            }
            WarnAll(warnings);
        },
        py::arg("image"), py::arg("path"), py::arg("compression") = py::none(), py::arg("colorspace") = py::none(),
        py::arg("depth") = py::none(),
        R"(Writes a Plate as `lumivane render` writes its output, or an array, whole or not at all.

image: a Plate (its file's channels, windows, layers, colour and metadata are put
    back), or an H x W x C array (written as R, G, B, A and its other channels).
path: the extension picks the format.
compression: an OpenEXR compression, as --compression ("zip", "dwaa:45", ...).
colorspace: the space to write in, as --colorspace-out. A plate's default is its
    file's space when the output holds the same kind of data, else linear for float
    files and sRGB for integer ones. An array is taken as linear light and encoded
    into it; without one, an array is written as it is.
depth: "8", "16", "half" or "float" (default: the plate's own).

Warns (UserWarning) naming what the format could not hold. Raises OSError naming
the file and the writer's reason (no file is left behind), ValueError for a bad
compression, depth or colour space.

    lumivane.write(tool.render(plate), "soft.1001.exr", compression="zip"))");
}
