#!/usr/bin/python3
"""OpenEXR ZIP levels: what each level of `--compression zip:LEVEL` costs and
saves, against OpenEXR's own ZIP at its default level.

    bench/zip_levels.py --build build [--old OLD_BUILD] [--rounds 3]

Plates: the sample scene (scripts/make-sample: 640x360 half R, G, B, A, Z), a
1920x1080 RGBA float plate of grain over ramps (whole_process.py's), and that
plate blurred by disks of 2.5 % and 10 % (what a render writes). Each is
passed through (`render --set BlurSizeX=0`) from an uncompressed file, once
uncompressed and once per ZIP level, in alternating rounds. The reference file
is the plate written by OpenEXR itself at its default level (`oiiotool
--compression zip`). Prints the median wall and CPU time over the uncompressed pass,
which is the cost of compressing, and the file size against the reference.
With --old, the same for another build's program at its default ZIP.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from whole_process import write_plate  # noqa: E402


def timed(cmd):
    """Wall and CPU seconds (user + system) of cmd alone: the CPU time holds
    when other work loads the machine, the wall time does not."""
    start = time.monotonic()
    child = subprocess.Popen(cmd, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    if status != 0:
        raise RuntimeError(f"{' '.join(cmd)} failed")
    return time.monotonic() - start, usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True)
    parser.add_argument("--old", help="another build folder, timed at its default ZIP")
    parser.add_argument("--rounds", type=int, default=3)
    args = parser.parse_args()
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    work = tempfile.mkdtemp(prefix="lumivane-zip-")
    try:
        plates = {"sample 640x360 half": os.path.join(work, "sample.exr"),
                  "grain 1920x1080 float": os.path.join(work, "grain.exr")}
        subprocess.run([os.path.join(root, "scripts", "make-sample"), os.path.join(work, "sample-src.exr")], check=True,
                       stdout=subprocess.DEVNULL)
        subprocess.run(["oiiotool", os.path.join(work, "sample-src.exr"), "--compression", "none", "-o",
                        plates["sample 640x360 half"]], check=True)
        write_plate(plates["grain 1920x1080 float"], 1920, 1080, "none")
        # What a render writes: the grain blurred, the wider disk leaving it smoother.
        for disk in ("2.5", "10"):
            plates[f"grain blurred {disk} %"] = os.path.join(work, f"blurred-{disk}.exr")
            subprocess.run([os.path.join(args.build, "app", "lumivane"), "--plugins",
                            os.path.join(args.build, "plugins"), "render", "-q", plates["grain 1920x1080 float"],
                            plates[f"grain blurred {disk} %"], "--set", f"BlurSizeX={disk}", "--compression", "none"],
                           check=True)
        builds = {"": os.path.abspath(args.build)}
        if args.old:
            builds["old "] = os.path.abspath(args.old)
        print(f"ZIP levels, medians of {args.rounds} alternating rounds, load average "
              f"{' '.join(f'{v:.2f}' for v in os.getloadavg())} at the start")
        for plate, src in plates.items():
            ref = os.path.join(work, "reference.exr")
            subprocess.run(["oiiotool", src, "--compression", "zip", "-o", ref], check=True)
            commands = {}
            for prefix, build in builds.items():
                run = [os.path.join(build, "app", "lumivane"), "--plugins", os.path.join(build, "plugins"), "render",
                       "-q", src]
                commands[prefix + "none"] = run + [os.path.join(work, prefix + "none.exr"), "--set", "BlurSizeX=0",
                                                   "--compression", "none"]
                levels = [f"zip:{level}" for level in range(1, 10)] if not prefix else ["zip"]
                for codec in levels + ([] if prefix else ["zip"]):
                    out = os.path.join(work, prefix + codec.replace(":", "") + ".exr")
                    commands[prefix + codec] = run + [out, "--set", "BlurSizeX=0", "--compression", codec]
            times = {name: [] for name in commands}
            for _ in range(args.rounds):
                for name, cmd in commands.items():
                    times[name].append(timed(cmd))
            print(f"\n{plate}: OpenEXR's own ZIP {os.path.getsize(ref) / 2**20:.2f} MiB, "
                  f"uncompressed {os.path.getsize(os.path.join(work, 'none.exr')) / 2**20:.2f} MiB\n")
            print("| program | compression | wall over none, s | CPU over none, s | MiB | size / OpenEXR's ZIP |")
            print("|---|---|---|---|---|---|")
            for name in commands:
                if name.endswith("none"):
                    continue
                prefix = "old " if name.startswith("old ") else ""
                cost = [statistics.median(t[k] for t in times[name]) - statistics.median(t[k] for t in times[prefix + "none"])
                        for k in (0, 1)]
                size = os.path.getsize(os.path.join(work, name.replace(":", "") + ".exr"))
                print(f"| {'old' if prefix else 'new'} | {name[len(prefix):]} | {cost[0]:.3f} | {cost[1]:.3f} | "
                      f"{size / 2**20:.2f} | {size / os.path.getsize(ref):.3f} |")
        print(f"\nload average at the end {' '.join(f'{v:.2f}' for v in os.getloadavg())}")
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
