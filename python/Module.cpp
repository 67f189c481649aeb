// The lumivane Python module: the tool of the Lumivane plug-in, driven from
// Python on numpy arrays. Like the program it is a host: it loads the plug-in
// modules and reaches the tool through the registry (ToolSession.h).
//
// Arrays become host images exactly as the program makes them from image
// files, so a render gives the very pixels `lumivane render --raw` writes:
//   H x W or H x W x 1   grey: red, green and blue alike, alpha 1
//   H x W x 2            grey and alpha
//   H x W x 3            red, green, blue; alpha 1
//   H x W x 4 or more    red, green, blue, alpha, then extra channels the tool passes through
// and back the same way (grey from red). Integer data is scaled to 0..1 as
// OpenImageIO converts it (multiplied by the float 1/255 or 1/65535); half and
// double are rounded to float.
#include "python/ArrayImages.h"
#include "python/PlateBindings.h"
#include "python/Sequence.h"
#include "python/ToolSession.h"

#include "app/files/ExitCodes.h"
#include "app/files/FramePattern.h"
#include "host/EngineSettings.h"
#include "util/OwnFile.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#ifndef LUMIVANE_PLUGIN_FOLDER
#error "LUMIVANE_PLUGIN_FOLDER must name the folder the plug-in modules are built into"
#endif
#ifndef LUMIVANE_PLUGIN_FOLDER_FROM_MODULE
#error "LUMIVANE_PLUGIN_FOLDER_FROM_MODULE must name the installed plug-in folder relative to the module's"
#endif

namespace py = pybind11;

namespace {

constexpr int kColourChannels = 4;
// The size of the frame `lumivane kernel` draws the kernels of by default.
constexpr int kKernelFrameWidth = 1920;
constexpr int kKernelFrameHeight = 1080;

// An installed module finds its plug-ins beside itself, wherever the install
// was moved; one in the build tree uses the build's folder.
std::string DefaultPluginFolder()
{
    return BesideOwnFile(reinterpret_cast<const void*>(&DefaultPluginFolder), LUMIVANE_PLUGIN_FOLDER_FROM_MODULE, Beside::Folder,
                         LUMIVANE_PLUGIN_FOLDER);
}

// A Python value as --set would have it typed: names and numbers as text,
// booleans as on/off, floats in their shortest exact form.
Setting SettingOf(const std::string& id, const py::handle& value)
{
    std::string text;
    if (py::isinstance<py::str>(value)) text = value.cast<std::string>();
    else if (py::isinstance<py::bool_>(value)) text = value.cast<bool>() ? "on" : "off";
    else if (py::isinstance<py::int_>(value) || py::isinstance<py::float_>(value)) text = py::repr(value).cast<std::string>();
    // numpy scalars and other numbers, by their exact double
    else if (PyNumber_Check(value.ptr()) && !py::isinstance<py::array>(value)) text = py::repr(py::float_(py::reinterpret_borrow<py::object>(value))).cast<std::string>();
    else
        throw py::type_error(id + ": a value of type " + py::str(value.get_type().attr("__name__")).cast<std::string>() +
                             " is not accepted; give a number, an entry name or a bool");
    return Setting{id, text, id + "=" + text};
}

// Program failures as Python exceptions: a value the tool does not take is a
// ValueError, a file that cannot be read or written an OSError, the rest
// (the tool set no output) a RuntimeError.
void TranslateProgramError(const ProgramError& e)
{
    switch (e.Kind()) {
    case Exit::Usage: PyErr_SetString(PyExc_ValueError, e.what()); return;
    case Exit::File: PyErr_SetString(PyExc_OSError, e.what()); return;
    default: PyErr_SetString(PyExc_RuntimeError, e.what()); return;
    }
}

// A frame given from Python: a finite number (None is no frame).
std::optional<double> FrameArgument(const py::handle& frame)
{
    if (frame.is_none()) return std::nullopt;
    if (!PyNumber_Check(frame.ptr()) || py::isinstance<py::str>(frame) || py::isinstance<py::array>(frame))
        throw py::type_error("frame: give a number (or None)");
    const double f = py::float_(py::reinterpret_borrow<py::object>(frame));
    ToolSession::CheckFrame(f);
    return f;
}

// Binds a keyframe verb of the host as a method (id, frame).
template <class Class>
void BindKeyVerb(Class& tool, const char* name, ToolSession::KeyVerb verb, const char* doc)
{
    tool.def(
        name,
        [verb](ToolSession& s, const std::string& id, const py::handle& frame) {
            const std::optional<double> at = FrameArgument(frame);
            if (!at) throw py::type_error("frame: give the frame to act at (a number)");
            py::gil_scoped_release unlocked;
            s.Key(id, verb, *at);
        },
        py::arg("id"), py::arg("frame"), doc);
}

std::unique_ptr<ToolSession> MakeSession(const std::string& flow)
{
    auto session = std::make_unique<ToolSession>(DefaultPluginFolder(), flow);
    for (const std::string& w : session->Warnings())
        PyErr_WarnEx(PyExc_RuntimeWarning, w.c_str(), 1);
    return session;
}

py::object JsonToPython(const nlohmann::ordered_json& j)
{
    return py::module_::import("json").attr("loads")(j.dump());
}

// "1001-1010x2" as --frames, or numbers.
std::vector<int> FramesArgument(const py::object& frames)
{
    if (py::isinstance<py::str>(frames)) {
        try {
            return FrameList::Parse(frames.cast<std::string>()).Frames();
        } catch (const std::invalid_argument& e) {
            throw py::value_error(std::string("frames: ") + e.what());
        }
    }
    std::vector<int> list;
    for (const py::handle& frame : frames) {
        if (!py::isinstance<py::int_>(frame)) throw py::type_error("frames: give \"FIRST-LAST\" or whole frame numbers");
        list.push_back(frame.cast<int>());
    }
    return list;
}

// tool.render: a plate through the program's plate render, an array as an image
// of its own, in the colour space it is given in.
py::object RenderForPython(ToolSession& s, const py::object& image, const py::object& kernel, const py::handle& frame,
                           const py::object& pixelAspect, const py::object& colorspace)
{
    const double time = FrameArgument(frame).value_or(0.0);
    const Ref<Image> kernelImage = KernelImageOf(kernel);
    if (py::isinstance<PlateImages>(image)) {
        if (!pixelAspect.is_none()) throw py::value_error("pixel_aspect: a plate has its file's pixel aspect");
        if (!colorspace.is_none())
            throw py::value_error("colorspace: a plate is in linear light already; name its file's space with "
                                  "lumivane.read(path, colorspace=...)");
        PlateImages rendered = image.cast<PlateImages>();
        {
            py::gil_scoped_release unlocked;
            rendered.images = s.RenderSources(rendered.images, kernelImage.get(), time);
        }
        return py::cast(std::move(rendered));
    }
    if (!py::isinstance<py::array>(image)) throw py::type_error("image: give a Plate or a numpy array");
    const py::array array = image.cast<py::array>();
    const auto aspect = pixelAspect.is_none() ? std::make_pair(1.0, 1.0) : pixelAspect.cast<std::pair<double, double>>();
    if (!(aspect.first > 0.0) || !(aspect.second > 0.0) || !std::isfinite(aspect.first) || !std::isfinite(aspect.second))
        throw py::value_error("pixel_aspect: " + py::repr(py::make_tuple(aspect.first, aspect.second)).cast<std::string>() +
                              " is not a pixel aspect; give two positive finite numbers");
    const std::string space = TextArgument(colorspace, "colorspace");
    const int channels = ChannelsOf(array, "image");
    if (space.empty() && array.dtype().kind() == 'u') {
        const std::string type = py::str(array.dtype()).cast<std::string>();
        const std::string warning = "image: a " + type + " array without colorspace= is filtered as given, in its "
                                    "encoded values; say colorspace=\"sRGB\" to filter it in linear light as the "
                                    "program filters an sRGB file";
        if (PyErr_WarnEx(PyExc_UserWarning, warning.c_str(), 1) != 0) throw py::error_already_set();
    }
    Ref<Image> shape = ShapeOfArray(array, "image", aspect.first, aspect.second, ImagePixels::None);
    {
        // The frame is planned from the array's shape before the array is copied.
        py::gil_scoped_release unlocked;
        s.Plan(*shape, kernelImage.get(), time);
    }
    Ref<Image> source = ImageFromArray(array, "image", aspect.first, aspect.second);
    Ref<Image> result;
    {
        py::gil_scoped_release unlocked;
        if (!space.empty()) ArrayToLinear(*source, space);
        result = s.Render(*source, kernelImage.get(), time);
        if (!space.empty()) ArrayFromLinear(*result, space);
    }
    return ArrayFromImage(*result, channels, array.ndim() == 2);
}
}  // namespace

PYBIND11_MODULE(lumivane, m)
{
    m.doc() = R"(Lumivane 2, the frequency-domain blur and deconvolution tool, on image files and numpy arrays.

The tool is loaded from its plug-in module and created through the host registry,
as the lumivane program does. Plates are read and written by the program's own file
layer, so read, render and write give the very files `lumivane render` writes with the
same settings; arrays render to the pixels `lumivane render --raw` writes.

    import lumivane
    tool = lumivane.Tool()
    tool.set(BlurStyle="Polygon", BlurSizeX=2.5, BadBokeh=0.4)
    lumivane.write(tool.render(lumivane.read("plate.exr")), "soft.exr")
    soft = tool.render(image)          # H x W x C float32 (C = 1 grey, 2 grey+alpha, 3 RGB, 4+ RGBA+extras)

Plug-ins are looked for in LUMIVANE_PLUGIN_PATH, else beside the installed module,
else in the build tree. LUMIVANE_MAX_MEMORY, LUMIVANE_THREADS and the other engine
settings are read from the environment as by the program.)";

    py::register_exception<FrameMemoryError>(m, "FrameMemoryError", PyExc_MemoryError)
        .doc() = "The frame would need more memory than LUMIVANE_MAX_MEMORY (or the memory available, at most 75% of "
                 "the machine's) allows; refused before the array is copied.";
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const ProgramError& e) {
            TranslateProgramError(e);
        }
    });

    BindPlates(m);

    py::class_<ToolSession> tool(m, "Tool", R"(One Lumivane 2 tool, in a document of its own.

Controls are set by their IDs with the values, names, checks and messages of the
program's --set; `controls` lists them. Each Tool renders one frame at a time;
separate Tools render at the same time from separate threads (the GIL is released
while rendering).

Number controls are static or animated, as in the host: keys at frames, linear
between them and constant past the first and last. get, keys, animate, set with
frame=, delete_key and remove_animation read and edit them:

    tool.set(BlurSizeX=2.5)
    tool.animate("BlurSizeX", 1001)        # a key at 1001 holding 2.5
    tool.set("BlurSizeX", 5, frame=1010)   # a second key
    tool.get("BlurSizeX", frame=1005.5)    # 3.75, on the line between them
    tool.keys("BlurSizeX")                 # [(1001.0, 2.5), (1010.0, 5.0)]
    tool.delete_key("BlurSizeX", 1010)     # one key left
    tool.remove_animation("BlurSizeX", 1001)  # static again, at 2.5)");
    tool.def(py::init([]() { return MakeSession({}); }), "A new tool with its default settings.")
        .def_static("from_flow", [](const std::string& path) { return MakeSession(path); }, py::arg("path"),
                    "The tool a flow file holds, with its values and keys (as `lumivane render --flow`).\n"
                    "Raises OSError naming the file when it cannot be read or is not a flow, and\n"
                    "ValueError naming the place in it for a value its control does not take (as --set).")
        .def(
            "set",
            [](ToolSession& s, py::args args, py::kwargs kwargs) {
                std::vector<Setting> settings;
                const std::optional<double> frame =
                    kwargs.contains("frame") ? FrameArgument(kwargs["frame"]) : std::nullopt;
                if (args.size() == 2) {
                    if (!py::isinstance<py::str>(args[0]))
                        throw py::type_error("set(id, value): the control ID must be a str");
                    settings.push_back(SettingOf(args[0].cast<std::string>(), args[1]));
                } else if (!args.empty()) {
                    throw py::type_error("set takes a control ID and a value, or ID=value keywords (got " +
                                         std::to_string(args.size()) + " positional arguments)");
                }
                for (const auto& [key, value] : kwargs)
                    if (key.cast<std::string>() != "frame") settings.push_back(SettingOf(key.cast<std::string>(), value));
                if (frame)
                    for (Setting& setting : settings) setting.apply = Setting::Apply::AtTime;
                py::gil_scoped_release unlocked;
                s.Set(settings, frame.value_or(0.0));
            },
            R"(Sets controls by ID, in order, each as a user's edit (with the tool's change
notifications): set("BlurStyle", "Polygon") or set(BlurSizeX=2.5, BadBokeh=0.4).

Values: numbers; entry names of a multi-button in any case, or a unique beginning
("airy"); bools or on/off for a checkbox; text for a text control.

With frame=F, as a user sets a value at frame F in the host: on an animated control
it sets (adds or replaces) the key at F and keeps the others; on a static one it
sets the value at every frame. Without a frame, as the program's --set, the value
holds at every frame: an animated control's keys are replaced by it.

Raises ValueError with the program's message for an unknown control, a read-only
one, a value the control does not take or a frame that is not finite; settings
before it stay applied.)")
        .def(
            "get",
            [](ToolSession& s, const std::string& id, const py::handle& frame) {
                const std::optional<double> at = FrameArgument(frame);
                py::gil_scoped_release unlocked;
                return s.Value(id, at);
            },
            py::arg("id"), py::arg("frame") = py::none(),
            R"(The value of control `id` at `frame` (between keys, on the straight line between
them): a float, or a str for a text control. Without a frame, the value of a static
control; an animated one raises ValueError asking for the frame, since its value
depends on it. Raises ValueError for an unknown control or a frame that is not finite.)")
        .def(
            "keys",
            [](ToolSession& s, const std::string& id) {
                py::gil_scoped_release unlocked;
                return s.Keys(id);
            },
            py::arg("id"),
            "The keys of control `id`, [(frame, value), ...] in frame order; [] when it is static.")
        .def("render", &RenderForPython, py::arg("image"), py::arg("kernel") = py::none(), py::arg("frame") = 0.0,
             py::arg("pixel_aspect") = py::none(), py::arg("colorspace") = py::none(),
             R"(Renders a Plate as `lumivane render` renders its input, or an array, at time `frame`.

image: a Plate (lumivane.read): relative sizes refer to its display window, the
    union of its windows is filtered, its chosen layers too; returns a new Plate that
    lumivane.write writes as the program would. Or an array, H x W or H x W x C
    (C = 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA, more pass through), float32,
    float64, float16, uint8 (/255) or uint16 (/65535), any strides, never modified;
    returns a new float32 array of its shape.
kernel: an optional kernel image (the tool's kernel input): an array or a Plate
    (read it raw=True to use its values as stored, as the program's --kernel).
frame: the time, a finite number.
pixel_aspect: an array's (x, y) pixel aspect (a plate has its file's).
colorspace: an array's colour space: "sRGB" decodes it to linear light before the
    render and encodes the result after, as files are. Without it the values are
    filtered as given (`lumivane render --raw`); a uint8 or uint16 array then warns.

Raises ValueError or TypeError for an image or frame that is not one,
lumivane.FrameMemoryError (a MemoryError) when the frame would pass the memory
limit, and RuntimeError with the tool's console line when it sets no output.

    soft = tool.render(lumivane.read("shot.1001.exr"), frame=1001))")
        .def_property_readonly(
            "controls",
            [](ToolSession& s) {
                py::list controls;
                const nlohmann::ordered_json tool = s.Describe();
                for (const auto& page : tool["pages"])
                    for (auto control : page["controls"]) {
                        control["page"] = page["name"];
                        controls.append(JsonToPython(control));
                    }
                return controls;
            },
            "Every control, in page order, as `lumivane describe --json` lists it (a dict: id,\n"
            "label, kind, entries, min, sliderTop, default, integer, notify, readOnly, visible,\n"
            "and its page), with the tool's current labels and visibility.")
        .def_property_readonly(
            "description", [](ToolSession& s) { return JsonToPython(s.Describe()); },
            "The whole tool as `lumivane describe --json` lists it: identity, pages, inputs, outputs.")
        .def(
            "save_flow",
            [](ToolSession& s, const std::string& path) {
                py::gil_scoped_release unlocked;
                s.Save(path);
            },
            py::arg("path"),
            "Saves the tool's control values (and keys) to a flow file that `lumivane render\n"
            "--flow` and Tool.from_flow read. Written whole or not at all; raises OSError.");
    BindKeyVerb(tool, "animate", ToolSession::KeyVerb::Animate,
                "Keys the value control `id` has at `frame`: a static control becomes animated with\n"
                "that one key; an animated one gains a key there and its values stay as they were.\n"
                "Raises ValueError for a text or read-only control, or a frame that is not finite.");
    BindKeyVerb(tool, "delete_key", ToolSession::KeyVerb::DeleteKey,
                "Removes the key of control `id` at `frame`; removing the last one leaves it static at\n"
                "that key's value. Raises ValueError when there is no key at `frame`.");
    BindKeyVerb(tool, "remove_animation", ToolSession::KeyVerb::RemoveAnimation,
                "Makes control `id` static at the value it has at `frame`; a static control is left\n"
                "as it is. Raises ValueError for a text or read-only control, or a frame that is not finite.");

    m.def(
        "render_sequence",
        [](ToolSession& s, const std::string& input, const std::string& output, const py::object& frames, int threads,
           const py::object& layers, const py::object& colorspaceIn, bool raw, const py::object& colorspaceOut,
           const py::object& compression, const py::object& depth) {
            SequenceJob job{input, output, FramesArgument(frames), PlateOptionsOf(layers, colorspaceIn, raw),
                            WriteChoicesOf(compression, colorspaceOut, depth), threads};
            std::vector<std::string> warnings, written;
            {
                py::gil_scoped_release unlocked;
                written = RenderSequence(s, job, warnings);
            }
            WarnAll(warnings);
            return written;
        },
        py::arg("tool"), py::arg("input"), py::arg("output"), py::arg("frames"), py::arg("threads") = 2,
        py::arg("layers") = py::none(), py::arg("colorspace_in") = py::none(), py::arg("raw") = false,
        py::arg("colorspace_out") = py::none(), py::arg("compression") = py::none(), py::arg("depth") = py::none(),
        R"(Renders frames of a sequence as `lumivane render INPUT OUTPUT --frames ...` does, reading
the next frames and writing the last ones while a frame renders. Returns the files written.

input, output: frame patterns ("shot.####.exr", "soft.%04d.exr"); an input without a
    frame field is the same still at every frame.
frames: "1001-1100x2" (as --frames) or a list of frame numbers; each renders at its time.
threads: how many frames are read ahead, and written behind, at most.
layers, colorspace_in, raw: as lumivane.read; colorspace_out, compression, depth: as
    lumivane.write.

Raises what read, render and write raise, its message beginning with the frame; the
frames before it are written, none after it.

    lumivane.render_sequence(tool, "shot.####.exr", "soft.####.exr", "1001-1010"))");

    m.def(
        "set_fast_sizes",
        [](bool enabled) {
            SetEngineTransformSizes(enabled ? TransformSizes::Smooth : TransformSizes::PowersOfTwo);
        },
        py::arg("enabled") = true,
        R"(Chooses the transform sizes of every render started afterwards in this process, as
the program's --fast-sizes does: with `enabled`, the smallest sizes with no prime factor
above 7 (faster, and less memory); without, powers of two (the default, unless
LUMIVANE_TRANSFORM_SIZES says otherwise). `lumivane render --fast-sizes` gives the very
same pixels as renders made after set_fast_sizes(True).)");

    m.def(
        "kernel_preview",
        [](ToolSession& s, double frame, int width, int height) {
            Ref<Image> drawing;
            {
                py::gil_scoped_release unlocked;
                drawing = s.KernelDrawing(width, height, frame);
            }
            return ArrayFromImage(*drawing, kColourChannels, false);
        },
        py::arg("tool"), py::arg("frame") = 0.0, py::arg("width") = kKernelFrameWidth,
        py::arg("height") = kKernelFrameHeight,
        R"(The picture `lumivane kernel` draws: the kernels the tool's settings filter red,
green and blue with at `frame`, for a width x height frame, side by side in the
colour channels of an RGBA float32 array cropped to their extent, each channel
scaled to a peak magnitude of 1. The tool itself is left unchanged.)");
}
