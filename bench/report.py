#!/usr/bin/python3
"""Runs the render benchmarks and the side-by-side with scipy and OpenCV, and
prints the tables. Called by bench/run, which builds first; see bench/README.md.

Every measurement runs in a process of its own, so that each configuration's peak
resident memory (ru_maxrss, from wait4) is its own.
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

SIZES = [(1920, 1080), (3840, 2160)]
CONFIGS = ["disk1", "disk2.5", "disk5", "polygon", "gaussian", "kernel-image", "per-channel", "deconvolve"]
TARGET = ((1920, 1080), "disk2.5")
MODES = ["power-of-two", "smooth"]

# The same controls as bench/render_bench.cpp's configurations, for the program.
PROGRAM_SETTINGS = {
    "disk1": ["BlurSizeX=1"],
    "disk2.5": ["BlurSizeX=2.5"],
    "disk5": ["BlurSizeX=5"],
    "polygon": ["BlurStyle=1", "PolygonSideCount=6", "KernelAngle=15", "BadBokeh=0.5", "BlurSizeX=2.5"],
    "gaussian": ["BlurStyle=2", "BlurSizeX=2.5"],
    "kernel-image": ["BlurSizeX=2.5"],
    "per-channel": ["BlurSizeX=2", "PerChannel=0", "GreenBlurSizeX=2.5", "BlueBlurSizeX=3"],
    "deconvolve": ["Operation=1", "WienerParam=0.001", "BlurSizeX=2.5"],
}


def run(cmd, env=None):
    """Runs cmd; returns (stdout, seconds, peak resident MiB)."""
    start = time.monotonic()
    with tempfile.TemporaryFile() as errors:
        proc = subprocess.Popen(cmd, stdout=subprocess.PIPE, stderr=errors, env=env)
        # wait4 gives this child's own rusage, where RUSAGE_CHILDREN would give the
        # largest of all children so far.
        out = proc.stdout.read()
        _, status, usage = os.wait4(proc.pid, 0)
        errors.seek(0)
        err = errors.read()
    proc.returncode = os.waitstatus_to_exitcode(status)
    seconds = time.monotonic() - start
    if proc.returncode != 0:
        raise RuntimeError(f"{' '.join(cmd)} failed ({proc.returncode}): {err.decode(errors='replace').strip()}")
    return out.decode(), seconds, usage.ru_maxrss / 1024.0


def environment(mode, threads=None):
    env = dict(os.environ)
    env["LUMIVANE_TRANSFORM_SIZES"] = mode
    env.pop("LUMIVANE_FFT_WISDOM", None)
    if threads:
        env["LUMIVANE_THREADS"] = str(threads)
    return env


def machine_state():
    load = os.getloadavg()
    top = subprocess.run(["ps", "-eo", "pcpu,comm", "--sort=-pcpu", "--no-headers"], capture_output=True,
                         text=True).stdout.splitlines()
    busy = [line.strip() for line in top if line.strip() and float(line.split()[0]) >= 5.0][:5]
    return "load average %.2f %.2f %.2f; busy: %s" % (load[0], load[1], load[2], ", ".join(busy) or "nothing")


# ---------------------------------------------------------------- other tools

def other_tools(data_dir, repeats):
    """Runs in its own process: scipy.signal.fftconvolve in float64 and cv2.filter2D
    in float32 with replicated borders, on the plate and kernels the C++ bench wrote."""
    import numpy as np
    import scipy.signal
    import cv2

    image = np.load(os.path.join(data_dir, "image.npy"))  # H x W x 4, RGBA float32
    ours = np.load(os.path.join(data_dir, "ours.npy"))
    kernels = [np.load(os.path.join(data_dir, f"kernel{c}.npy")) for c in range(3)]
    # Alpha goes with the red kernel: the tool filters it with all three and keeps
    # the largest, which with the locks on is the same filter once.
    channel_kernel = [kernels[0], kernels[1], kernels[2], kernels[0]]
    same = all(k.shape == kernels[0].shape and np.array_equal(k, kernels[0]) for k in kernels)

    planes64 = [np.ascontiguousarray(image[..., c], dtype=np.float64) for c in range(4)]

    def scipy_frame():
        return [scipy.signal.fftconvolve(planes64[c], channel_kernel[c], mode="same") for c in range(4)]

    # filter2D correlates: the kernel turned half round convolves. Odd sizes keep
    # the centre as the anchor.
    flipped = [np.ascontiguousarray(cv2.flip(k.astype(np.float32), -1)) for k in channel_kernel]
    planes32 = [np.ascontiguousarray(image[..., c]) for c in range(4)]

    def cv2_frame():
        if same:
            return cv2.filter2D(image, -1, flipped[0], borderType=cv2.BORDER_REPLICATE)
        return np.dstack([cv2.filter2D(planes32[c], -1, flipped[c], borderType=cv2.BORDER_REPLICATE)
                          for c in range(4)])

    def timed(frame):
        times, result = [], None
        for _ in range(repeats + 1):  # the first call warms caches and threads
            t = time.perf_counter()
            result = frame()
            times.append(time.perf_counter() - t)
        return statistics.median(times[1:]), result

    scipy_time, scipy_out = timed(scipy_frame)
    cv2_time, cv2_out = timed(cv2_frame)
    kh, kw = max(k.shape[0] for k in kernels), max(k.shape[1] for k in kernels)
    inner = (slice(kh, -kh), slice(kw, -kw))
    diff_scipy = max(float(np.abs(ours[inner + (c,)] - scipy_out[c][inner]).max()) for c in range(3))
    diff_cv2 = float(np.abs(ours[..., :3] - cv2_out[..., :3]).max())
    print(json.dumps({"scipy": scipy_time, "cv2": cv2_time, "cv2_threads": cv2.getNumThreads(),
                      "diff_scipy_interior": diff_scipy, "diff_cv2": diff_cv2}))


def write_exr(data_dir, name, npy):
    os.environ["OPENCV_IO_ENABLE_OPENEXR"] = "1"
    import numpy as np
    import cv2
    rgba = np.load(os.path.join(data_dir, npy))
    path = os.path.join(data_dir, name)
    if not cv2.imwrite(path, np.ascontiguousarray(rgba[..., [2, 1, 0, 3]])):
        raise RuntimeError("OpenCV could not write " + path)
    return path


# ---------------------------------------------------------------- the runs

def bench_render(build, w, h, config, frames, mode, data_dir=None, threads=None):
    cmd = [os.path.join(build, "bench", "bench_render"), "render", str(w), str(h), config, str(frames)]
    if data_dir:
        cmd.append(data_dir)
    out, _, peak = run(cmd, environment(mode, threads))
    result = json.loads(out.strip().splitlines()[-1])
    result["peak_mib"] = peak
    return result


def bench_floor(build, w, h, render_result, repeats):
    """The independent floor (bench_fftw_floor: FFTW alone, measured plans, the
    smallest 2,3,5,7-smooth sizes) for the frame `render_result` describes: its
    distinct kernels' edges and the render's worker threads. The same for both
    transform size rules, which change only our side."""
    out, _, _ = run([os.path.join(build, "bench", "bench_fftw_floor"), str(w), str(h), render_result["kernel_edges"],
                     str(repeats), str(render_result["threads"])])
    return json.loads(out.strip().splitlines()[-1])


def program(build, w, h, config, data_dir, runs, mode):
    exe = os.path.join(build, "app", "lumivane")
    image = os.path.join(data_dir, "image.exr")
    out = os.path.join(data_dir, "out.exr")
    cmd = [exe, "--plugins", os.path.join(build, "plugins"), "render", image, out, "-q"]
    if config == "kernel-image":
        cmd += ["--kernel", os.path.join(data_dir, "kernel.exr")]
    for setting in PROGRAM_SETTINGS[config]:
        cmd += ["--set", setting]
    times, peaks = [], []
    for _ in range(runs):
        _, seconds, peak = run(cmd, environment(mode))
        times.append(seconds)
        peaks.append(peak)
    return statistics.median(times), max(peaks)


def fmt_ms(seconds):
    return "%.0f" % (seconds * 1000.0)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--frames", type=int, default=8, help="frames per configuration (the first is cold)")
    parser.add_argument("--quick", action="store_true", help="only the target configuration and a small growth table")
    parser.add_argument("--other-tools", metavar="DIR", help=argparse.SUPPRESS)
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--rounds", type=int, default=5,
                        help="alternating rounds of ours, the floor, scipy and cv2 on the target configuration")
    args = parser.parse_args()
    if args.other_tools:
        other_tools(args.other_tools, args.repeats)
        return

    build = os.path.abspath(args.build)
    have_program = os.path.exists(os.path.join(build, "app", "lumivane")) and \
        os.path.isdir(os.path.join(build, "plugins"))
    work = tempfile.mkdtemp(prefix="lumivane-bench-")
    print("Lumivane 2 render benchmark")
    print("machine: %d cores, %s" % (os.cpu_count(), subprocess.run(
        ["sh", "-c", "grep -m1 'model name' /proc/cpuinfo | cut -d: -f2"], capture_output=True,
        text=True).stdout.strip()))
    print("at start: " + machine_state())
    if not have_program:
        print("the program (app/lumivane) did not build: whole-program timings are left out")

    configs = [(size, c) for size in SIZES for c in CONFIGS]
    if args.quick:
        configs = [TARGET]
    rows = []
    try:
        targets(build, work, args.rounds, args.frames, args.repeats)
        for (w, h), config in configs:
            data_dir = os.path.join(work, f"{config}-{w}x{h}")
            os.makedirs(data_dir)
            row = {"size": (w, h), "config": config}
            for mode in MODES:
                r = bench_render(build, w, h, config, args.frames, mode, data_dir if mode == MODES[0] else None)
                row[mode] = r
            row["floor"] = bench_floor(build, w, h, row[MODES[0]], args.repeats + 2)
            if config != "deconvolve":
                out, _, _ = run([sys.executable, os.path.abspath(__file__), "--build", build,
                                 "--other-tools", data_dir, "--repeats", str(args.repeats)])
                row["others"] = json.loads(out.strip().splitlines()[-1])
            if have_program:
                write_exr(data_dir, "image.exr", "image.npy")
                if config == "kernel-image":
                    write_exr(data_dir, "kernel.exr", "kernel_image.npy")
                row["program"] = {mode: program(build, w, h, config, data_dir, args.repeats, mode) for mode in MODES}
            rows.append(row)
            shutil.rmtree(data_dir, ignore_errors=True)
            report_row(row)
        print_tables(rows, have_program)
        growth(build, args.quick)
        print("at end: " + machine_state())
    finally:
        shutil.rmtree(work, ignore_errors=True)


def targets(build, work, rounds, frames, repeats):
    """The target configuration measured in alternating rounds, so that whatever
    else loads the machine falls on every contender alike; medians of the rounds."""
    (w, h), config = TARGET
    data_dir = os.path.join(work, "target")
    os.makedirs(data_dir)
    got = {mode: {"ours": [], "peak": []} for mode in MODES}
    floors = []
    scipy_times, cv2_times = [], []
    plans = None
    for r in range(rounds):
        for mode in MODES:
            result = bench_render(build, w, h, config, frames, mode, data_dir if r == 0 and mode == MODES[0] else None)
            got[mode]["ours"].append(result["median"])
            got[mode]["peak"].append(result["peak_mib"])
            if mode == MODES[0]:
                plans = (result["plans_first"], result["plans_later"], result["frames"])
                floor_run = bench_floor(build, w, h, result, repeats + 2)
                floors.append(floor_run["floor"])
        out, _, _ = run([sys.executable, os.path.abspath(__file__), "--build", build, "--other-tools", data_dir,
                         "--repeats", str(repeats)])
        others = json.loads(out.strip().splitlines()[-1])
        scipy_times.append(others["scipy"])
        cv2_times.append(others["cv2"])
    big = bench_render(build, 3840, 2160, config, 3, MODES[0])
    big_smooth = bench_render(build, 3840, 2160, config, 3, MODES[1])
    shutil.rmtree(data_dir, ignore_errors=True)

    med = statistics.median
    scipy_t, cv2_t = med(scipy_times), med(cv2_times)
    print()
    print("Targets: %dx%d RGBA, %s, defaults; medians of %d alternating rounds (ms per frame)" % (w, h, config, rounds))
    print("floor: FFTW alone, %d transforms at %s, measured plans, %d threads (bench_fftw_floor)" % (
        floor_run["transforms"], floor_run["sizes"], floor_run["threads"]))
    print("| transform sizes | ours | floor | ours/floor (<= 1.3) | scipy | scipy/ours (>= 2) | cv2 | cv2/ours (>= 1.5) "
          "| peak MiB (< 400) |")
    print("|---|---|---|---|---|---|---|---|---|")
    for mode in MODES:
        ours, floor, peak = med(got[mode]["ours"]), med(floors), max(got[mode]["peak"])
        # The targets are the defaults'; the smooth row is there to compare.
        judge = verdict if mode == MODES[0] else (lambda ok: "")
        print("| %s | %s | %s | %.2f %s | %s | %.2f %s | %s | %.2f %s | %.0f %s |" % (
            mode, fmt_ms(ours), fmt_ms(floor), ours / floor, judge(ours / floor <= 1.3), fmt_ms(scipy_t),
            scipy_t / ours, judge(scipy_t / ours >= 2.0), fmt_ms(cv2_t), cv2_t / ours, judge(cv2_t / ours >= 1.5),
            peak, judge(peak < 400)))
    print("rounds, ours (power-of-two): %s; scipy: %s; cv2: %s" % (
        " ".join(fmt_ms(t) for t in got[MODES[0]]["ours"]), " ".join(fmt_ms(t) for t in scipy_times),
        " ".join(fmt_ms(t) for t in cv2_times)))
    print("3840x2160 peak: %.0f MiB power-of-two, %.0f MiB smooth (< 1536) %s" % (
        big["peak_mib"], big_smooth["peak_mib"], verdict(max(big["peak_mib"], big_smooth["peak_mib"]) < 1536)))
    print("planning in a sequence of %d frames: %d plans made during the first frame, %d during the others %s" % (
        plans[2], plans[0], plans[1], verdict(plans[1] == 0)), flush=True)


def verdict(ok):
    return "met" if ok else "MISSED"


def report_row(row):
    r, f = row["power-of-two"], row["floor"]
    print("  %-12s %dx%d: %s ms per frame (floor %s ms), first frame %s ms, plans made %d then %d, peak %.0f MiB"
          % (row["config"], row["size"][0], row["size"][1], fmt_ms(r["median"]), fmt_ms(f["floor"]),
             fmt_ms(r["first"]), r["plans_first"], r["plans_later"], r["peak_mib"]), flush=True)


def print_tables(rows, have_program):
    print()
    print("Renders (median of the frames after the first; ms per frame; peak resident MiB of the process)")
    head = ["size", "configuration", "transforms", "sizes", "ours", "floor (size)", "ours/floor", "CPU", "first",
            "plans 1st/later", "peak MiB", "smooth: sizes", "ours", "ours/floor", "peak MiB"]
    print("| " + " | ".join(head) + " |")
    print("|" + "---|" * len(head))
    for row in rows:
        r, s, f = row["power-of-two"], row["smooth"], row["floor"]
        print("| %dx%d | %s | %d | %s | %s | %s (%s) | %.2f | %s | %s | %d/%d | %.0f | %s | %s | %.2f | %.0f |" % (
            row["size"][0], row["size"][1], row["config"], r["transforms"], r["sizes"], fmt_ms(r["median"]),
            fmt_ms(f["floor"]), f["sizes"], r["median"] / f["floor"], fmt_ms(r["cpu"]), fmt_ms(r["first"]),
            r["plans_first"], r["plans_later"], r["peak_mib"], s["sizes"], fmt_ms(s["median"]),
            s["median"] / f["floor"], s["peak_mib"]))

    print()
    print("Side by side on the same plate and kernels (ms per RGBA frame; ratio = their time / ours)")
    head = ["size", "configuration", "ours", "ours smooth", "scipy fftconvolve f64", "ratio", "cv2.filter2D f32",
            "ratio", "max |ours - cv2|", "max |ours - scipy| inside"]
    print("| " + " | ".join(head) + " |")
    print("|" + "---|" * len(head))
    for row in rows:
        if "others" not in row:
            continue
        o = row["others"]
        ours = row["power-of-two"]["median"]
        smooth = row["smooth"]["median"]
        print("| %dx%d | %s | %s | %s | %s | %.2f | %s | %.2f | %.2g | %.2g |" % (
            row["size"][0], row["size"][1], row["config"], fmt_ms(ours), fmt_ms(smooth), fmt_ms(o["scipy"]),
            o["scipy"] / ours, fmt_ms(o["cv2"]), o["cv2"] / ours, o["diff_cv2"], o["diff_scipy_interior"]))
    if rows and "others" in rows[0]:
        print("(cv2 ran on %d threads, scipy on one, ours on the host's worker pool)" % rows[0]["others"]["cv2_threads"])

    if have_program:
        print()
        print("The whole program: lumivane render IN.exr OUT.exr (a process per frame: start-up, plug-in, "
              "EXR read and write, planning; median wall ms; peak resident MiB)")
        print("| size | configuration | program | peak MiB | program smooth | peak MiB |")
        print("|---|---|---|---|---|---|")
        for row in rows:
            p = row["program"]
            print("| %dx%d | %s | %s | %.0f | %s | %.0f |" % (
                row["size"][0], row["size"][1], row["config"], fmt_ms(p["power-of-two"][0]), p["power-of-two"][1],
                fmt_ms(p["smooth"][0]), p["smooth"][1]))


def growth(build, quick):
    print()
    print("How cost grows: disk kernel of the given width in pixels, ms per frame (power-of-two / smooth sizes)")
    sizes = [(512, 512), (1024, 1024), (1920, 1080), (3840, 2160)]
    if quick:
        sizes = sizes[:2]
    kernels = lambda w: [3, 15, 63, w // 4]
    print("| image | " + " | ".join(["3 px", "15 px", "63 px", "width / 4"]) + " |")
    print("|---|---|---|---|---|")
    for w, h in sizes:
        cells = []
        for k in kernels(w):
            r = bench_render(build, w, h, f"disk-px:{k}", 3, "power-of-two")
            s = bench_render(build, w, h, f"disk-px:{k}", 3, "smooth")
            cells.append("%s / %s (%s)" % (fmt_ms(r["median"]), fmt_ms(s["median"]), r["sizes"].split("(")[0]))
        print("| %dx%d | %s |" % (w, h, " | ".join(cells)), flush=True)


if __name__ == "__main__":
    main()
