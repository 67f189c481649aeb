#!/usr/bin/python3
"""In process, on the same numpy array: the lumivane module against
scipy.signal.fftconvolve (float64 and float32) and cv2.filter2D, with no file
input or output on either side. RGBA plates, a disk of 2.5 % of the width.

    PYTHONPATH=build/python bench/python_side_by_side.py [--sizes 1920x1080,3840x2160] [--repeats 5]

The other tools get the very kernel the tool filters with (lumivane.kernel_preview,
scaled to a sum of 1), one per channel; alpha goes with red's, as the tool does.
Prints ms per frame (medians of alternating rounds after one warm-up each) and the ratios
against the 1920x1080 targets: scipy float64 / ours >= 4, cv2 / ours >= 2.
"""
import argparse
import statistics
import time

import numpy as np

import lumivane

SIZE_PERCENT = 2.5


def plate(w, h):
    """Gradients, hard edges, bright points and a varying alpha."""
    y, x = np.mgrid[0:h, 0:w].astype(np.float32)
    rgba = np.empty((h, w, 4), np.float32)
    rgba[..., 0] = x / w
    rgba[..., 1] = ((x // 64 + y // 64) % 2).astype(np.float32)
    rgba[..., 2] = y / h
    rgba[..., 3] = 0.5 + 0.5 * np.sin(x / 97.0)
    rgba[::61, ::83, :3] = 50.0
    return rgba


def timed_rounds(frames, repeats):
    """Each contender once per round, in turn, after one warm-up call each, so that
    whatever else loads the machine falls on all of them alike. Returns, per
    contender, the median and the fastest round in ms."""
    for frame in frames:
        frame()
    times = [[] for _ in frames]
    for _ in range(repeats):
        for frame, spent in zip(frames, times):
            start = time.perf_counter()
            frame()
            spent.append(time.perf_counter() - start)
    return [(1000.0 * statistics.median(t), 1000.0 * min(t)) for t in times]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--sizes", default="1920x1080,3840x2160")
    parser.add_argument("--repeats", type=int, default=5)
    args = parser.parse_args()
    import cv2
    import scipy.signal

    print(f"{'size':>10} {'ours':>8} {'scipy f64':>10} {'scipy f32':>10} {'cv2':>8} "
          f"{'f64/ours':>9} {'f32/ours':>9} {'cv2/ours':>9}")
    for size in args.sizes.split(","):
        w, h = (int(v) for v in size.split("x"))
        image = plate(w, h)
        tool = lumivane.Tool()
        tool.set(BlurSizeX=SIZE_PERCENT)
        drawing = lumivane.kernel_preview(tool, width=w, height=h)
        kernels = [drawing[..., c] / drawing[..., c].sum() for c in range(3)]
        kernels.append(kernels[0])
        planes64 = [image[..., c].astype(np.float64) for c in range(4)]
        k64 = [k.astype(np.float64) for k in kernels]
        planes32 = [np.ascontiguousarray(image[..., c]) for c in range(4)]
        k32 = [k.astype(np.float32) for k in kernels]
        # filter2D correlates: the kernel turned half round convolves.
        flipped = [np.ascontiguousarray(cv2.flip(k, -1)) for k in k32]

        (ours, ours_min), (f64, _), (f32, _), (cv, _) = timed_rounds([
            lambda: tool.render(image),
            lambda: [scipy.signal.fftconvolve(p, k, mode="same") for p, k in zip(planes64, k64)],
            lambda: [scipy.signal.fftconvolve(p, k, mode="same") for p, k in zip(planes32, k32)],
            lambda: [cv2.filter2D(p, -1, k, borderType=cv2.BORDER_REPLICATE) for p, k in zip(planes32, flipped)],
        ], args.repeats)
        print(f"{size:>10} {ours:8.1f} {f64:10.1f} {f32:10.1f} {cv:8.1f} {f64 / ours:9.2f} {f32 / ours:9.2f} "
              f"{cv / ours:9.2f}   (ours fastest {ours_min:.1f})")
        if (w, h) == (1920, 1080):
            print(f"{'':>10} targets: scipy f64 / ours >= 4: {'met' if f64 / ours >= 4 else 'NOT met'}; "
                  f"cv2 / ours >= 2: {'met' if cv / ours >= 2 else 'NOT met'}")


if __name__ == "__main__":
    main()
