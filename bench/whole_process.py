#!/usr/bin/python3
"""The whole program, one frame per process, against other tools doing the same job
from file to file: RGBA float EXR of noise-like data, uncompressed with a disk of
2.5 % of the width, ZIP in and out with disks of 2.5 % and 10 %.

    bench/whole_process.py --build build [--rounds 3] [--sizes 1920x1080,3840x2160] [--quick]
    bench/whole_process.py --build build --old OLD_BUILD [--rounds 5]

Per file, in alternating rounds: `lumivane render`, a pass-through render (no blur),
`oiiotool IN -o OUT`, scipy.signal.fftconvolve in float64 and cv2.filter2D (both
reading and writing through OpenImageIO's Python module, with the kernel the
program writes with `lumivane kernel`). Each row carries the load average while it
ran and, for ZIP, the size of our output against the same pixels written by
OpenEXR's own ZIP at its default level (`oiiotool OUT -o REF`). Then start-up
(`describe`, a 1x1 render), ten HD ZIP frames in one process against ten processes
and ten oiiotool copies, and the write time of each OpenEXR compression (a
pass-through with --compression). Prints medians of wall time and the largest peak
resident memory; "met" and "MISSED" hold each ratio to its target.

With --old: ZIP in, ZIP out only, this build's program against another build's
and an `oiiotool IN -o OUT` copy, disks of 2.5 % and 10 %, in alternating
rounds; each row carries the load average while it ran and the output's size
against the input's (written by OpenEXR's own ZIP at its default level).
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

SIZE_PERCENT = 2.5
# (file, disk %) -> targets by width: render / oiiotool at most, scipy f64 / render and
# cv2 / render at least; None where no target is set.
TARGETS = {
    ("none", "2.5"): {1920: (1.0, 3.0, 2.0), 3840: (None, None, None)},
    ("zip", "2.5"): {1920: (0.8, 2.5, 2.0), 3840: (1.0, 2.5, 2.0)},
    ("zip", "10"): {1920: (None, 2.5, 2.0), 3840: (None, 2.5, 2.0)},
}
CODECS = ["none", "rle", "zips", "zip:1", "zip", "piz", "pxr24", "b44", "b44a", "dwaa", "dwab"]


def run(cmd, env=None):
    """Runs cmd to completion; returns (seconds, peak resident MiB) of that process alone.
    GNU time measures the peak: a child forked from this Python process would count
    the parent's own memory (Linux keeps the high-water mark across exec)."""
    with tempfile.NamedTemporaryFile() as peak, tempfile.TemporaryFile() as errors:
        start = time.monotonic()
        done = subprocess.run(["/usr/bin/time", "-f", "%M", "-o", peak.name] + cmd, stdout=subprocess.DEVNULL,
                              stderr=errors, env=env)
        seconds = time.monotonic() - start
        if done.returncode != 0:
            errors.seek(0)
            raise RuntimeError(f"{' '.join(cmd)} failed: {errors.read().decode(errors='replace').strip()}")
        return seconds, int(open(peak.name).read().split()[-1]) / 1024.0


# ---------------------------------------------------------------- a peer, in its own process

def peer(tool, src, dst, kernel_path):
    """Reads src, filters RGBA with the kernel, writes dst with src's layout and compression."""
    import numpy as np
    import OpenImageIO as oiio
    inp = oiio.ImageInput.open(src)
    layout = oiio.ImageSpec(inp.spec())
    pixels = inp.read_image(0, 0, 0, layout.nchannels, "float")
    inp.close()
    kernel = np.load(kernel_path)
    if tool == "scipy":
        import scipy.signal
        k = kernel.astype(np.float64)
        result = np.dstack([scipy.signal.fftconvolve(pixels[..., c].astype(np.float64), k, mode="same")
                            for c in range(pixels.shape[2])]).astype(np.float32)
    else:
        import cv2
        # filter2D correlates: the kernel turned half round convolves.
        result = cv2.filter2D(pixels, -1, np.ascontiguousarray(cv2.flip(kernel.astype(np.float32), -1)),
                              borderType=cv2.BORDER_CONSTANT)
    out = oiio.ImageOutput.create(dst)
    if not out.open(dst, layout) or not out.write_image(np.ascontiguousarray(result)) or not out.close():
        raise RuntimeError(f"cannot write {dst}: {out.geterror()}")


# ---------------------------------------------------------------- the files

def write_plate(path, w, h, compression, seed=1):
    """Noise over smooth ramps, alpha between 0.5 and 1: what compresses like film grain."""
    import numpy as np
    import OpenImageIO as oiio
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:h, 0:w].astype(np.float32)
    rgba = rng.normal(0.0, 0.05, (h, w, 4)).astype(np.float32)
    rgba[..., 0] += x / w
    rgba[..., 1] += y / h
    rgba[..., 2] += 0.5
    rgba[..., 3] = 0.75 + 0.25 * np.sin(x / 97.0)
    layout = oiio.ImageSpec(w, h, 4, "float")
    layout.attribute("compression", compression)
    out = oiio.ImageOutput.create(path)
    if not out.open(path, layout) or not out.write_image(rgba) or not out.close():
        raise RuntimeError(f"cannot write {path}: {out.geterror()}")


def kernel_npy(lumivane, plugins, work, w, h, disk):
    """The kernel the program filters with at this size, as a normalised 2-D array."""
    import numpy as np
    import OpenImageIO as oiio
    exr = os.path.join(work, f"kernel-{w}x{h}-{disk}.exr")
    subprocess.run([lumivane, "--plugins", plugins, "kernel", exr, "--width", str(w), "--height", str(h),
                    "--set", f"BlurSizeX={disk}"], check=True, stdout=subprocess.DEVNULL)
    inp = oiio.ImageInput.open(exr)
    k = inp.read_image(0, 0, 0, 1, "float")[..., 0].astype(np.float64)
    inp.close()
    rows, cols = np.nonzero(k)  # the drawing is as large as the frame: keep the disk
    k = k[rows.min():rows.max() + 1, cols.min():cols.max() + 1]
    path = os.path.join(work, f"kernel-{w}x{h}-{disk}.npy")
    np.save(path, k / k.sum())
    return path


# ---------------------------------------------------------------- the runs

def alternate(commands, rounds, env):
    """commands: name -> argv. Runs them in turn, `rounds` times; name -> (median s, peak MiB)."""
    times = {name: [] for name in commands}
    peaks = {name: 0.0 for name in commands}
    for _ in range(rounds):
        for name, cmd in commands.items():
            seconds, peak = run(cmd, env)
            times[name].append(seconds)
            peaks[name] = max(peaks[name], peak)
    return {name: (statistics.median(times[name]), peaks[name]) for name in commands}


def old_against_new(ours, old, oiiotool, work, sizes, rounds, env):
    print("| size | disk | new | old | oiiotool copy | new / oiiotool | new / old | output / input size | load |")
    print("|---|---|---|---|---|---|---|---|---|")
    for size in sizes:
        w, h = (int(v) for v in size.split("x"))
        src = os.path.join(work, f"in-{size}-zip.exr")
        write_plate(src, w, h, "zip")
        for disk in ["2.5", "10"]:
            before = os.getloadavg()[0]
            outs = {name: os.path.join(work, f"{name}.exr") for name in ["new", "old", "oiiotool"]}
            r = alternate({
                "new": ours + [src, outs["new"], "--set", f"BlurSizeX={disk}"],
                "old": old + [src, outs["old"], "--set", f"BlurSizeX={disk}"],
                "oiiotool": [oiiotool, src, "-o", outs["oiiotool"]],
            }, rounds, env)
            load = f"{before:.1f}-{os.getloadavg()[0]:.1f}"
            cell = {k: f"{v[0]:.2f} s {v[1]:.0f} MiB" for k, v in r.items()}
            ratio = os.path.getsize(outs["new"]) / os.path.getsize(src)
            print(f"| {size} | {disk} % | {cell['new']} | {cell['old']} | {cell['oiiotool']} | "
                  f"{r['new'][0] / r['oiiotool'][0]:.2f} | {r['new'][0] / r['old'][0]:.2f} | {ratio:.3f} | {load} |")


def verdict(ok):
    return "met" if ok else "MISSED"


def ratio(value, target, at_most, digits=2):
    """value as a table cell, with its verdict where a target is set."""
    if target is None:
        return f"{value:.{digits}f}"
    ok = value <= target if at_most else value >= target
    return f"{value:.{digits}f} {verdict(ok)} ({'<=' if at_most else '>='} {target})"


def loads():
    return f"{os.getloadavg()[0]:.1f}"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", help="build folder holding app/lumivane and plugins/")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--sizes", default="1920x1080,3840x2160")
    parser.add_argument("--quick", action="store_true", help="1920x1080 only, no sequence or codec tables")
    parser.add_argument("--old", help="another build folder: only its render against this one's, ZIP in and out")
    parser.add_argument("--peer", nargs=4, metavar=("TOOL", "IN", "OUT", "KERNEL"), help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.peer:
        return peer(*args.peer)

    build = os.path.abspath(args.build)
    lumivane = os.path.join(build, "app", "lumivane")
    plugins = os.path.join(build, "plugins")
    oiiotool = shutil.which("oiiotool")
    env = dict(os.environ)
    env.pop("LUMIVANE_FFT_WISDOM", None)
    sizes = ["1920x1080"] if args.quick else args.sizes.split(",")
    rounds = max(3, args.rounds)
    load = os.getloadavg()
    print(f"Whole program, one frame per process: medians of {rounds} alternating rounds, "
          f"{os.cpu_count()} cores, load average at start {load[0]:.2f} {load[1]:.2f} {load[2]:.2f}")
    work = tempfile.mkdtemp(prefix="lumivane-whole-")
    ours = [lumivane, "--plugins", plugins, "render", "-q"]
    me = [sys.executable, os.path.abspath(__file__)]
    try:
        if args.old:
            old = os.path.abspath(args.old)
            print()
            old_against_new(ours, [os.path.join(old, "app", "lumivane"), "--plugins", os.path.join(old, "plugins"),
                                   "render", "-q"], oiiotool, work, args.sizes.split(","), rounds, env)
            return
        print()
        print("| size | file | disk | render | pass-through | oiiotool | scipy f64 | cv2 | render / oiiotool | "
              "scipy / render | cv2 / render | output / OpenEXR's ZIP | load |")
        print("|---|---|---|---|---|---|---|---|---|---|---|---|---|")
        peaks = []
        for size in sizes:
            w, h = (int(v) for v in size.split("x"))
            for (compression, disk), by_width in TARGETS.items():
                src = os.path.join(work, f"in-{size}-{compression}.exr")
                dst = os.path.join(work, "out.exr")
                if not os.path.exists(src):
                    write_plate(src, w, h, compression)
                kernel = kernel_npy(lumivane, plugins, work, w, h, disk)
                at_start = loads()
                r = alternate({
                    "render": ours + [src, dst, "--set", f"BlurSizeX={disk}"],
                    "pass": ours + [src, dst, "--set", "BlurSizeX=0"],
                    "oiiotool": [oiiotool, src, "-o", dst],
                    "scipy": me + ["--peer", "scipy", src, dst, kernel],
                    "cv2": me + ["--peer", "cv2", src, dst, kernel],
                }, rounds, env)
                size_ratio = "-"
                if compression == "zip":
                    run(ours + [src, dst, "--set", f"BlurSizeX={disk}"], env)
                    ref = os.path.join(work, "ref.exr")
                    run([oiiotool, dst, "-o", ref], env)
                    size_ratio = ratio(os.path.getsize(dst) / os.path.getsize(ref), 1.02, True, 3)
                cell = {k: f"{v[0]:.2f} s {v[1]:.0f} MiB" for k, v in r.items()}
                t = {k: v[0] for k, v in r.items()}
                most, scipy_least, cv2_least = by_width.get(w, (None, None, None))
                print(f"| {size} | {compression} | {disk} % | {cell['render']} | {cell['pass']} | {cell['oiiotool']} | "
                      f"{cell['scipy']} | {cell['cv2']} | {ratio(t['render'] / t['oiiotool'], most, True)} | "
                      f"{ratio(t['scipy'] / t['render'], scipy_least, False)} | "
                      f"{ratio(t['cv2'] / t['render'], cv2_least, False)} | {size_ratio} | {at_start}-{loads()} |",
                      flush=True)
                if compression == "zip":
                    peaks.append((size, f"{disk} %", r["render"][1]))

        print()
        one = os.path.join(work, "one.exr")
        write_plate(one, 1, 1, "none")
        r = alternate({"describe": [lumivane, "--plugins", plugins, "describe"],
                       "1x1": ours + [one, os.path.join(work, "one-out.exr")]}, rounds, env)
        print("| start-up | seconds (<= 0.1) | peak MiB (<= 40) |")
        print("|---|---|---|")
        for name, (seconds, peak) in r.items():
            print(f"| {name} | {seconds:.3f} {verdict(seconds <= 0.1)} | {peak:.0f} {verdict(peak <= 40)} |")
        print()
        print("| peak memory, ZIP | kernel | MiB |")
        print("|---|---|---|")
        for size, kernel_size, peak in peaks:
            print(f"| {size} | {kernel_size} | {peak:.0f} |")
        if args.quick:
            return

        # Ten frames: one process against ten.
        src = os.path.join(work, "in-1920x1080-zip.exr")
        for f in range(1, 11):
            os.symlink(src, os.path.join(work, f"seq.{f:04d}.exr"))
        pattern, outs = os.path.join(work, "seq.####.exr"), os.path.join(work, "seqout.####.exr")
        setting = ["--set", f"BlurSizeX={SIZE_PERCENT}"]
        times = {"one": [], "ten": [], "oiiotool": []}
        at_start = loads()
        for _ in range(rounds):
            times["one"].append(run(ours + [pattern, outs, "--frames", "1-10"] + setting, env)[0])
            for name, each in [("ten", lambda i, o: ours + [i, o] + setting),
                               ("oiiotool", lambda i, o: [oiiotool, i, "-o", o])]:
                start = time.monotonic()
                for f in range(1, 11):
                    run(each(os.path.join(work, f"seq.{f:04d}.exr"), os.path.join(work, f"seqout.{f:04d}.exr")), env)
                times[name].append(time.monotonic() - start)
        t = {k: statistics.median(v) for k, v in times.items()}
        print()
        print(f"ten 1920x1080 zip frames: one process {t['one']:.2f} s, ten processes {t['ten']:.2f} s, "
              f"ten oiiotool copies {t['oiiotool']:.2f} s; one process / copies "
              f"{ratio(t['one'] / t['oiiotool'], 0.6, True)}; load {at_start}-{loads()}")

        # Compression: a 1920x1080 uncompressed file passed through, written with each codec.
        src = os.path.join(work, "in-1920x1080-none.exr")
        commands = {c: ours + [src, os.path.join(work, f"codec-{c.replace(':', '')}.exr"), "--set", "BlurSizeX=0",
                               "--compression", c] for c in CODECS}
        r = alternate(commands, rounds, env)
        base = r["none"][0]
        print()
        print("| compression | pass-through s | write cost over none, s | file MiB |")
        print("|---|---|---|---|")
        for c in CODECS:
            size = os.path.getsize(os.path.join(work, f"codec-{c.replace(':', '')}.exr")) / 2**20
            print(f"| {c} | {r[c][0]:.2f} | {r[c][0] - base:.2f} | {size:.1f} |")
        load = os.getloadavg()
        print(f"\nload average at end {load[0]:.2f} {load[1]:.2f} {load[2]:.2f}")
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
