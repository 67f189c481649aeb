#!/usr/bin/python3
"""Ten HD frames from file to file: lumivane.render_sequence against a Python loop of
read, render and write, and against `lumivane render` of the same frames.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_sequence.py --build build [--rounds 3] [--frames 10]

The frames are 1920x1080 RGBA half-float OpenEXR with ZIP compression, noise-like
data, filtered by a disk of 2.5 % of the width, written with ZIP. The three ways
alternate each round; the medians of wall time are printed, with the outputs
checked to be the same files.
"""
import argparse
import os
import statistics
import subprocess
import tempfile
import time

import numpy as np
import OpenImageIO as oiio

SETTINGS = {"BlurSizeX": 2.5}


def make_frames(folder, count):
    rng = np.random.default_rng(1)
    layout = oiio.ImageSpec(1920, 1080, 4, "half")
    layout.attribute("compression", "zip")
    for frame in range(1001, 1001 + count):
        pixels = rng.uniform(0, 1.5, (1080, 1920, 4)).astype(np.float32)
        out = oiio.ImageOutput.create("x.exr")
        path = os.path.join(folder, f"in.{frame}.exr")
        assert out.open(path, layout) and out.write_image(pixels) and out.close(), oiio.geterror()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default="build")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--frames", type=int, default=10)
    args = parser.parse_args()
    os.environ.setdefault("LUMIVANE_PLUGIN_PATH", os.path.join(args.build, "plugins"))
    import lumivane

    program = os.path.join(args.build, "app", "lumivane")
    frames = f"1001-{1000 + args.frames}"
    with tempfile.TemporaryDirectory() as folder:
        make_frames(folder, args.frames)
        inputs, outputs = os.path.join(folder, "in.####.exr"), os.path.join(folder, "{}.####.exr")
        tool = lumivane.Tool()
        tool.set(**SETTINGS)

        def loop():
            for frame in range(1001, 1001 + args.frames):
                plate = lumivane.read(inputs.replace("####", str(frame)))
                lumivane.write(tool.render(plate, frame=frame), outputs.format("loop").replace("####", str(frame)))

        def sequence():
            lumivane.render_sequence(tool, inputs, outputs.format("sequence"), frames)

        def command():
            subprocess.run([program, "render", inputs, outputs.format("program"), "--frames", frames, "-q",
                            *[a for k, v in SETTINGS.items() for a in ("--set", f"{k}={v}")]], check=True)

        ways = {"Python loop of read, render, write": loop, "render_sequence": sequence, "lumivane render": command}
        times = {name: [] for name in ways}
        for _ in range(args.rounds):
            for name, way in ways.items():
                start = time.monotonic()
                way()
                times[name].append(time.monotonic() - start)
        for frame in range(1001, 1001 + args.frames):
            files = [open(outputs.format(w).replace("####", str(frame)), "rb").read() for w in ("loop", "sequence", "program")]
            assert files[0] == files[1] == files[2], f"frame {frame} differs"
    print(f"{args.frames} frames 1920x1080 RGBA half ZIP, disk {SETTINGS['BlurSizeX']} %, "
          f"{os.cpu_count()} cores, median of {args.rounds} rounds:")
    for name, seconds in times.items():
        median = statistics.median(seconds)
        print(f"  {name:36s} {median:6.2f} s  ({median / args.frames * 1000:5.0f} ms a frame)")


if __name__ == "__main__":
    main()
