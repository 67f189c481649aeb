"""The lumivane module against the lumivane program: the program renders files,
the module renders the same data as arrays, and the pixels must be identical."""
import json
import os
import resource
import subprocess
import threading

import numpy as np
import OpenImageIO as oiio
import pytest

import lumivane

PROGRAM = os.environ["LUMIVANE_PROGRAM"]
NAMES = {1: ["Y"], 2: ["Y", "A"], 3: ["R", "G", "B"], 4: ["R", "G", "B", "A"], 5: ["R", "G", "B", "A", "Z"]}


def plate(h, w, c, seed):
    """Values above 1, negatives and a bright spot, so every kernel shows."""
    rng = np.random.default_rng(seed)
    a = rng.uniform(-0.2, 1.5, (h, w, c))
    a[h // 3, w // 2, :] = 40.0
    return a


def write(path, pixels, names, fmt="float", aspect=None, frame=None):
    layout = oiio.ImageSpec(pixels.shape[1], pixels.shape[0], pixels.shape[2], fmt)
    layout.channelnames = names
    if aspect:
        layout.attribute("PixelAspectRatio", float(aspect))
    if frame:  # a display window the data window overscans
        layout.x, layout.y, layout.full_width, layout.full_height = -6, -4, *frame
    out = oiio.ImageOutput.create(str(path))
    assert out.open(str(path), layout) and out.write_image(pixels) and out.close(), oiio.geterror()


def read(path, names):
    buf = oiio.ImageBuf(str(path))
    got = buf.get_pixels(oiio.FLOAT)
    return np.stack([got[:, :, list(buf.spec().channelnames).index(n)] for n in names], axis=2)


def program(*args):
    subprocess.run([PROGRAM, *args], check=True, capture_output=True)


def settings_args(settings):
    return [a for k, v in settings.items() for a in ("--set", f"{k}={v}")]


# (settings, channels, dtype, file format, with a kernel image, pixel aspect)
CASES = {
    "polygon-rgba-aspect": (dict(BlurStyle="Polygon", BlurSizeX=2.5, BadBokeh=0.4, ScaleBlurAspect=True), 4,
                            np.float32, "float", False, 2.0),
    "gaussian-wrap-grey": (dict(BlurStyle="Gaussian", BlurSizeX=4, Edges="Wrap"), 1, np.float64, "float", False, None),
    # Sizes of several pixels: a smaller kernel would be a copy, whatever the array's type.
    "airy-black-grey-alpha": (dict(BlurStyle="Airy", BlurSizeX=12, Edges="Black"), 2, np.float16, "half", False, None),
    "disk-rgb-uint8": (dict(BlurSizeX=3), 3, np.uint8, "uint8", False, None),
    "kernel-image-z": (dict(BlurSizeX=2), 5, np.float32, "float", True, None),
    # Three different kernels on a grey plate: grey comes back from red, as the program writes it.
    "kernel-image-grey": (dict(BlurSizeX=2), 1, np.float32, "float", True, None),
    "deconvolve-uint16": (dict(Operation="Deconvolve", WienerParam=0.002, BlurStyle="Gaussian", BlurSizeX=6), 3,
                          np.uint16, "uint16", False, None),
}


@pytest.mark.parametrize("name", CASES)
def test_pixels_are_the_programs(tmp_path, name):
    settings, c, dtype, fmt, with_kernel, aspect = CASES[name]
    data = plate(37, 53, c, seed=len(name))
    if np.issubdtype(dtype, np.integer):
        data = (np.clip(data, 0, 1) * np.iinfo(dtype).max).astype(dtype)
    else:
        data = data.astype(dtype)
    ext = "tif" if fmt.startswith("uint") else "exr"
    write(tmp_path / f"in.{ext}", data, NAMES[c], fmt, aspect)
    args = [str(tmp_path / f"in.{ext}"), str(tmp_path / "out.exr"), "--raw", "--depth", "float"]
    kernel = None
    if with_kernel:
        kernel = np.zeros((9, 7, 3), np.float32)
        kernel[2:7, 1:6] = [1.0, 0.5, 0.25]
        kernel[4, 3, 2] = 4.0  # blue's peak: a shape of its own, not just a scale
        write(tmp_path / "k.exr", kernel, NAMES[3])
        args += ["--kernel", str(tmp_path / "k.exr")]
    program("render", *args, *settings_args(settings))
    expected = read(tmp_path / "out.exr", NAMES[c])

    tool = lumivane.Tool()
    tool.set(**settings)
    # A view with other strides than a fresh array, left as it was.
    strided = np.ascontiguousarray(np.swapaxes(data, 0, 1)).swapaxes(0, 1)
    before = strided.copy()
    got = tool.render(strided, kernel=kernel, pixel_aspect=(aspect or 1.0, 1.0))
    assert np.array_equal(strided, before)
    assert got.dtype == np.float32 and got.shape == data.shape
    assert np.array_equal(got, expected), f"worst pixel {np.unravel_index(np.argmax(abs(got - expected)), got.shape)}"
    # The same values as float32, converted here: a type's own path must filter them too.
    as_float = data.astype(np.float32) / (np.iinfo(dtype).max if np.issubdtype(dtype, np.integer) else 1)
    assert not np.allclose(got, as_float, atol=1e-3)
    assert np.allclose(got, tool.render(as_float, kernel=kernel, pixel_aspect=(aspect or 1.0, 1.0)), rtol=1e-5, atol=1e-5)


# (file, its data type, channels, display window, layers to filter)
FILES = {
    "srgb-png": ("png", "uint8", NAMES[3], None, None),
    "16-bit-tif": ("tif", "uint16", NAMES[4], None, None),
    "overscan-exr": ("exr", "half", NAMES[4], (40, 28), None),
    "layers-exr": ("exr", "float", NAMES[4] + ["diffuse.R", "diffuse.G", "diffuse.B", "depth.Z"], None, "diffuse,depth"),
}


@pytest.mark.parametrize("name", FILES)
def test_files_are_the_programs(tmp_path, name):
    ext, fmt, names, frame, layers = FILES[name]
    data = plate(37, 53, len(names), seed=7)
    write(tmp_path / f"in.{ext}", np.clip(data, 0, 1) if fmt.startswith("uint") else data, names, fmt, frame=frame)
    settings = dict(BlurStyle="Polygon", BlurSizeX=3, BadBokeh=0.5)
    program("render", str(tmp_path / f"in.{ext}"), str(tmp_path / f"out.{ext}"), *settings_args(settings),
            *(["--layers", layers] if layers else []))
    tool = lumivane.Tool()
    tool.set(**settings)
    lumivane.write(tool.render(lumivane.read(str(tmp_path / f"in.{ext}"), layers=layers)), str(tmp_path / f"py.{ext}"))
    assert (tmp_path / f"py.{ext}").read_bytes() == (tmp_path / f"out.{ext}").read_bytes()
    if fmt == "uint8":  # the same picture as an array in sRGB, and as given with a warning
        array, expected = (oiio.ImageBuf(str(tmp_path / f)).get_pixels(oiio.UINT8) for f in (f"in.{ext}", f"out.{ext}"))
        assert np.array_equal(np.round(np.clip(tool.render(array, colorspace="sRGB"), 0, 1) * 255), expected)
        with pytest.warns(UserWarning, match="a uint8 array without colorspace= is filtered as given"):
            tool.render(array)


def test_kernel_preview_flow_and_controls_are_the_programs(tmp_path):
    program("kernel", str(tmp_path / "k.exr"), "--width", "200", "--height", "100",
            "--set", "BlurStyle=Polygon", "--set", "BlurSizeX=5")
    tool = lumivane.Tool()
    tool.set("BlurStyle", "polygon")
    tool.set(BlurSizeX=5)
    tool.save_flow(str(tmp_path / "before.flow"))
    drawing = lumivane.kernel_preview(tool, width=200, height=100)
    assert np.array_equal(drawing, read(tmp_path / "k.exr", NAMES[4]))
    tool.save_flow(str(tmp_path / "after.flow"))  # the preview leaves the tool's Edges alone
    assert (tmp_path / "before.flow").read_text() == (tmp_path / "after.flow").read_text()

    image = plate(20, 30, 4, seed=3).astype(np.float32)
    again = lumivane.Tool.from_flow(str(tmp_path / "after.flow"))
    assert np.array_equal(again.render(image), tool.render(image))

    described = json.loads(subprocess.run([PROGRAM, "describe", "--json"], check=True, capture_output=True,
                                          text=True).stdout)["tools"][0]
    ids = [c["id"] for page in described["pages"] for c in page["controls"]]
    assert [c["id"] for c in lumivane.Tool().controls] == ids


def straight_line(keys, frame):
    """The value a compositor shows at `frame`: linear between keys, constant past the ends."""
    (f0, v0), (f1, v1) = keys[0], keys[-1]
    if frame <= f0 or frame >= f1:
        return v0 if frame <= f0 else v1
    (f0, v0), (f1, v1) = next((a, b) for a, b in zip(keys, keys[1:]) if a[0] <= frame <= b[0])
    return v0 + (v1 - v0) * (frame - f0) / (f1 - f0)


def test_keys_set_at_frames_read_back_and_survive_a_flow(tmp_path):
    tool = lumivane.Tool()
    tool.set("BlurSizeX", 1)
    tool.animate("BlurSizeX", 1001)
    tool.set("BlurSizeX", 5, frame=1010)
    tool.set("BlurSizeX", 3, frame=1004)
    tool.set("BlurSizeX", 4, frame=1004)  # replaces the key at 1004
    keys = [(1001, 1), (1004, 4), (1010, 5)]
    tool.save_flow(str(tmp_path / "keys.flow"))
    again = lumivane.Tool.from_flow(str(tmp_path / "keys.flow"))
    for t in (tool, again):
        assert t.keys("BlurSizeX") == keys
        for frame in (1000, 1001, 1002.5, 1004, 1007, 1010, 1012):
            assert t.get("BlurSizeX", frame=frame) == pytest.approx(straight_line(keys, frame)), frame
    again.delete_key("BlurSizeX", 1004)
    again.remove_animation("BlurSizeX", 1005.5)  # static at its value there
    assert again.keys("BlurSizeX") == [] and again.get("BlurSizeX") == pytest.approx(1 + 4 * 4.5 / 9)
    tool.set(BlurSizeX=2)  # no frame: the value at every frame, as --set
    assert tool.keys("BlurSizeX") == [] and tool.get("BlurSizeX", frame=1004) == 2


def test_a_sequence_is_the_programs_and_stops_at_a_missing_frame(tmp_path):
    for frame in (1, 2, 3):
        write(tmp_path / f"in.{frame}.exr", plate(23, 31, 4, seed=frame), NAMES[4])
    tool = lumivane.Tool()
    tool.animate("BlurSizeX", 1)
    tool.set("BlurSizeX", 6, frame=3)
    tool.save_flow(str(tmp_path / "keys.flow"))
    program("render", "--flow", str(tmp_path / "keys.flow"), str(tmp_path / "in.#.exr"), str(tmp_path / "out.#.exr"))
    written = lumivane.render_sequence(tool, str(tmp_path / "in.#.exr"), str(tmp_path / "py.#.exr"), "1-3")
    assert written == [str(tmp_path / f"py.{f}.exr") for f in (1, 2, 3)]
    assert all((tmp_path / f"py.{f}.exr").read_bytes() == (tmp_path / f"out.{f}.exr").read_bytes() for f in (1, 2, 3))
    (tmp_path / "in.2.exr").unlink()
    with pytest.raises(OSError, match="frame 2: .*in.2.exr"):
        lumivane.render_sequence(tool, str(tmp_path / "in.#.exr"), str(tmp_path / "again.#.exr"), [1, 2, 3])
    assert [f.name for f in tmp_path.glob("again.*")] == ["again.1.exr"]
    before = (tmp_path / "in.3.exr").read_bytes()
    with pytest.raises(ValueError, match=r"output .*in.3.exr is the same file as input .*in.3.exr"):
        lumivane.render_sequence(tool, str(tmp_path / "in.#.exr"), str(tmp_path / "./in.#.exr"), [3])
    assert (tmp_path / "in.3.exr").read_bytes() == before


ERRORS = [
    (lambda t: t.get("BlurSizeX", frame=float("nan")), ValueError, "frame: nan is not a finite number"),
    (lambda t: t.set("BlurSizeX", 1, frame=float("-inf")), ValueError, "frame: -inf is not a finite number"),
    (lambda t: t.animate("BlurSizeX", 7) or t.get("BlurSizeX"), ValueError, '"BlurSizeX" is animated (keys at 7)'),
    (lambda t: t.delete_key("BlurSizeX", 3), ValueError, '"BlurSizeX" is not animated'),
    (lambda t: t.animate("CompanyName", 1), ValueError, '"CompanyName" is not a number control'),
    (lambda t: t.set("NoSuchControl", 1), ValueError, 'no control "NoSuchControl"'),
    (lambda t: t.set(BlurStyle="Trapezoid"), ValueError, '"Trapezoid" is not one of them'),
    (lambda t: t.set(BlurSizeX="wide"), ValueError, '"wide" is not a number'),
    (lambda t: t.set(BlurSizeX=[2]), TypeError, "BlurSizeX: a value of type list"),
    (lambda t: t.render(np.zeros((4, 4, 3), np.int32)), TypeError, "arrays of int32 are not accepted"),
    (lambda t: t.render(np.zeros(4, np.float32)), ValueError, "shape (4,) is not an image"),
    (lambda t: t.render(np.zeros((0, 4, 3), np.float32)), ValueError, "shape (0, 4, 3)"),
    (lambda t: t.render(np.zeros((4, 4, 3)), pixel_aspect=(0, 1)), ValueError, "is not a pixel aspect"),
    (lambda t: t.render(np.zeros((4, 4, 3)), frame=float("nan")), ValueError, "frame: nan is not a finite number"),
    (lambda t: t.render(np.zeros((4, 4, 3)), colorspace="Sepia"), ValueError, 'colorspace: colour space "Sepia"'),
    (lambda t: lumivane.read("/nonexistent/in.exr"), OSError, "/nonexistent/in.exr"),
    (lambda t: t.set(BlurSizeX=20) or t.render(np.ones((8, 8, 3)), kernel=np.zeros((3, 3, 3))), RuntimeError, "kernel is black"),
    (lambda t: lumivane.Tool.from_flow("/nonexistent/look.flow"), OSError, "/nonexistent/look.flow"),
    (lambda t: t.set(BlurSizeX=np.float64(1e39)), ValueError, "BlurSizeX: 1e+39 is past the largest value"),
]


@pytest.mark.parametrize("call,kind,message", ERRORS)
def test_errors_name_the_value(call, kind, message):
    with pytest.raises(kind, match=None) as raised:
        call(lumivane.Tool())
    assert message in str(raised.value)


def test_a_flows_bad_value_is_refused_as_by_set(tmp_path):
    flow = tmp_path / "bad.flow"
    flow.write_text(json.dumps({"format": "lumivane-flow", "version": 1,
                                "tools": [{"class": "tevrinworks.Lumivane2", "inputs": {"BlurSizeX": -3}}]}))
    with pytest.raises(ValueError) as raised:
        lumivane.Tool.from_flow(str(flow))
    assert "bad.flow: tools[0].inputs.BlurSizeX: BlurSizeX: -3 is less than the lowest value 0" in str(raised.value)


@pytest.mark.parametrize("shape", [(12000, 12000, 4), (200000, 200000, 4)])
def test_a_frame_past_the_limit_is_refused_before_the_array_is_copied(monkeypatch, shape):
    monkeypatch.setenv("LUMIVANE_MAX_MEMORY", "1G")
    image = np.broadcast_to(np.float32(0.5), shape)  # no memory of its own
    peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    with pytest.raises(MemoryError, match=r"the frame needs about [\d.]+ GiB .* LUMIVANE_MAX_MEMORY is 1.0 GiB"):
        lumivane.Tool().render(image)
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - peak < 256 * 1024  # KiB


def test_two_threads_match_one_after_the_other():
    tools = [lumivane.Tool(), lumivane.Tool()]
    tools[0].set(BlurStyle="Polygon", BlurSizeX=3)
    tools[1].set(BlurStyle="Gaussian", BlurSizeX=5, Edges="Wrap")
    images = [plate(120, 160, 4, seed=s).astype(np.float32) for s in (1, 2)]
    alone = [t.render(i) for t, i in zip(tools, images)]
    together = [[], []]
    threads = [threading.Thread(target=lambda k=k: [together[k].append(tools[k].render(images[k]))
                                                    for _ in range(5)]) for k in (0, 1)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for k in (0, 1):
        assert all(np.array_equal(r, alone[k]) for r in together[k]) and len(together[k]) == 5


def resident_kib():
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))


def test_resident_memory_flat_over_200_renders():
    tool = lumivane.Tool()
    image = plate(64, 64, 4, seed=5).astype(np.float32)
    for _ in range(20):
        tool.render(image)
    start = resident_kib()
    for _ in range(200):
        tool.render(image)
    # A leaked input or output image alone would be 64 KiB a render, 12.5 MiB in all.
    assert resident_kib() - start < 3 * 1024
