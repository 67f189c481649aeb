#!/usr/bin/python3
"""`lumivane submit` on a real single-node Slurm cluster: munged, slurmctld and
slurmd from Debian, started here on localhost with slurm.conf.in, their state in
a temporary folder, and stopped at the end by the process IDs started.

    submit_slurm_test.py LUMIVANE PLUGIN_DIR

Exits 77 (skipped) without root or without the Slurm and MUNGE programs."""
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SKIP = 77
DAEMONS = ["munged", "mungekey", "slurmctld", "slurmd", "sbatch", "squeue", "scontrol", "scancel", "sinfo"]
if os.geteuid() != 0:
    print("skipped: starting munged, slurmctld and slurmd needs root")
    sys.exit(SKIP)
os.environ["PATH"] = os.environ.get("PATH", "/usr/bin:/bin") + ":/usr/sbin"
missing = [d for d in DAEMONS if not shutil.which(d)]
if missing:
    print("skipped: not installed: " + ", ".join(missing) + " (scripts/setup installs slurm-wlm and munge)")
    sys.exit(SKIP)

import numpy as np
import OpenImageIO as oiio

lumivane, plugins = sys.argv[1], sys.argv[2]
here = os.path.dirname(os.path.abspath(__file__))
started = []  # daemons, in the order started
failures = []


def check(ok, what):
    if not ok:
        failures.append(what)
        print("FAIL: " + what)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(condition, seconds, what):
    end = time.time() + seconds
    while time.time() < end:
        if condition():
            return
        time.sleep(0.2)
    raise RuntimeError("gave up waiting for " + what)


def start(argv, log):
    p = subprocess.Popen(argv, stdout=open(log, "w"), stderr=subprocess.STDOUT, start_new_session=True)
    started.append(p)
    return p


def stop_daemons():
    # Jobs still running when a check fails would outlive slurmd in their slurmstepd.
    if len(started) == 3 and all(p.poll() is None for p in started):
        subprocess.run(["scancel", "--user=root"], capture_output=True)
        try:
            wait_for(lambda: not subprocess.run(["squeue", "-h"], capture_output=True, text=True).stdout.strip(), 20,
                     "the jobs to go")
        except RuntimeError:
            pass
    for p in reversed(started):
        if p.poll() is None:
            p.send_signal(signal.SIGTERM)
            try:
                p.wait(10)
            except subprocess.TimeoutExpired:
                p.kill()
                p.wait()
    started.clear()


def start_cluster(state):
    for sub in ("run", "log", "ctld", "slurmd", "key"):
        os.makedirs(os.path.join(state, sub))
    # munged refuses a socket in a folder others cannot enter, and a key others can read.
    os.chmod(state, 0o755)
    os.chmod(os.path.join(state, "run"), 0o755)
    os.chmod(os.path.join(state, "key"), 0o700)
    key = os.path.join(state, "key", "munge.key")
    subprocess.run(["mungekey", "--create", "--keyfile=" + key], check=True)
    sock = os.path.join(state, "run", "munge.sock")
    start(["munged", "--foreground", "--key-file=" + key, "--socket=" + sock,
           "--pid-file=" + os.path.join(state, "run", "munged.pid"),
           "--log-file=" + os.path.join(state, "log", "munged.log"),
           "--seed-file=" + os.path.join(state, "key", "munge.seed")], os.path.join(state, "log", "munged.out"))
    wait_for(lambda: os.path.exists(sock), 10, "munged's socket")

    host = socket.gethostname()
    with open("/proc/meminfo") as f:
        total_mib = int(re.search(r"MemTotal:\s+(\d+)", f.read()).group(1)) // 1024
    values = {"@HOST@": host, "@STATE@": state, "@CTLD_PORT@": str(free_port()), "@SLURMD_PORT@": str(free_port()),
              "@CPUS@": str(os.cpu_count()), "@MEMORY_MIB@": str(total_mib // 2)}
    conf = open(os.path.join(here, "slurm.conf.in")).read()
    for k, v in values.items():
        conf = conf.replace(k, v)
    conf_path = os.path.join(state, "slurm.conf")
    with open(conf_path, "w") as f:
        f.write(conf)
    os.environ["SLURM_CONF"] = conf_path
    start(["slurmctld", "-D", "-i", "-f", conf_path], os.path.join(state, "log", "slurmctld.out"))
    start(["slurmd", "-D", "-f", conf_path, "-N", host], os.path.join(state, "log", "slurmd.out"))
    idle = lambda: subprocess.run(["sinfo", "-h", "-n", host, "-o", "%T"], capture_output=True,
                                  text=True).stdout.strip() == "idle"
    wait_for(idle, 60, "the node to be idle")


def run(args, **kw):
    return subprocess.run([lumivane, "--plugins", plugins, "--threads", "1"] + args, capture_output=True, text=True,
                          **kw)


def pixels(path):
    return oiio.ImageBuf(path).get_pixels(oiio.FLOAT)


def same_pixels(out_folder, ref_folder, frames):
    bad = [f for f in frames if not np.array_equal(pixels("%s/o.%04d.exr" % (out_folder, f)),
                                                   pixels("%s/o.%04d.exr" % (ref_folder, f)))]
    return bad


def job_id(stdout):
    m = re.search(r"submitted job (\d+)", stdout)
    return m.group(1) if m else None


def main(work):
    start_cluster(os.path.join(work, "state"))
    frames = range(1, 13)
    rng = np.random.default_rng(16)
    for f in frames:
        buf = oiio.ImageBuf(oiio.ImageSpec(64, 48, 4, oiio.HALF))
        buf.set_pixels(oiio.ROI(), rng.random((48, 64, 4), dtype=np.float32) * 4)
        buf.write("%s/in.%04d.exr" % (work, f))
    look = ["--style", "polygon", "--size", "3", "--bad-bokeh", "0.4"]
    inp = work + "/in.####.exr"
    local = run(["render", inp, work + "/local/o.####.exr", "--frames", "1-12", "--mkdir"] + look)
    check(local.returncode == 0, "local render: " + local.stderr)

    # The job as it would go: array range, memory per task, the frozen flow; nothing submitted.
    dry = run(["submit", inp, work + "/dry/o.####.exr", "--mkdir", "--frames", "1-12", "--per-task", "3", "--dry-run"] + look)
    check(dry.returncode == 0, "dry run: " + dry.stderr)
    check("#SBATCH --array=1-4\n" in dry.stdout, "dry run array range: " + dry.stdout)
    check(re.search(r"--flow %s/dry/\.lumivane-jobs/o-[0-9-]+/look\.flow " % re.escape(work), dry.stdout) is not None,
          "dry run frozen flow path: " + dry.stdout)
    check(not os.path.exists(work + "/dry/.lumivane-jobs"), "a dry run made the job folder")
    # The memory asked for follows the tool's own estimate of the frame, plus the same overhead.
    # Each figure is rounded up to whole MiB and counts the resident memory of its own
    # process, so the two differences may be one MiB apart.
    asked, estimated = [], []
    for size in ("3", "900"):
        sized = ["--unit", "absolute", "--size", size]
        d = run(["submit", inp, work + "/dry/o.####.exr", "--mkdir", "--frames", "1-12", "--per-task", "3", "--dry-run"] + sized)
        asked.append(int(re.search(r"#SBATCH --mem=(\d+)M", d.stdout).group(1)))
        r = run(["render", inp, work + "/x.exr", "--frames", "1", "--dry-run"] + sized)
        estimated.append(int(re.search(r"memory about (\d+) MiB", r.stdout).group(1)))
    check(estimated[1] > estimated[0] + 10 and abs((asked[1] - asked[0]) - (estimated[1] - estimated[0])) <= 1 and
          asked[0] > estimated[0], "memory asked %s for estimates %s" % (asked, estimated))

    # 12 frames in 4 tasks, bit-exact with the local render.
    whole = run(["submit", inp, work + "/whole/o.####.exr", "--mkdir", "--frames", "1-12", "--per-task", "3", "--wait"] + look)
    check(whole.returncode == 0 and "12 of 12 frames written" in whole.stdout, "whole job: " + whole.stdout +
          whole.stderr)
    check(whole.returncode != 0 or not same_pixels(work + "/whole", work + "/local", frames), "whole job pixels")

    # Cancelled after its first task: the same command again renders only the missing frames.
    cmd = ["submit", inp, work + "/again/o.####.exr", "--mkdir", "--frames", "1-12", "--per-task", "3"] + look
    held = run(cmd + ["--", "--hold"])
    jid = job_id(held.stdout)
    check(jid is not None, "held job: " + held.stdout + held.stderr)
    subprocess.run(["scontrol", "release", jid + "_1"], check=True)
    first = ["%s/again/o.%04d.exr" % (work, f) for f in (1, 2, 3)]
    wait_for(lambda: all(os.path.exists(p) for p in first), 60, "task 1's frames")
    subprocess.run(["scancel", jid], check=True)
    wait_for(lambda: not subprocess.run(["squeue", "-h", "-j", jid], capture_output=True, text=True).stdout.strip(),
             30, "the cancelled job to go")
    check(not os.path.exists("%s/again/o.0004.exr" % work), "the cancelled job rendered past its first task")
    times = [os.stat(p).st_mtime_ns for p in first]
    again = run(cmd + ["--wait"])
    check(again.returncode == 0 and "12 of 12 frames written" in again.stdout, "resubmitted: " + again.stdout +
          again.stderr)
    check(times == [os.stat(p).st_mtime_ns for p in first], "the resubmitted job rendered frames 1-3 again")
    check(not same_pixels(work + "/again", work + "/local", frames), "resubmitted job pixels")

    # One unreadable input frame: --wait fails naming it, the others are written.
    os.makedirs(work + "/bad")
    for f in frames:
        shutil.copy("%s/in.%04d.exr" % (work, f), "%s/bad/in.%04d.exr" % (work, f))
    with open(work + "/bad/in.0006.exr", "w") as f:
        f.write("not an image")
    bad = run(["submit", work + "/bad/in.####.exr", work + "/bad/out/o.####.exr", "--mkdir", "--frames", "1-12", "--per-task",
               "3", "--wait"] + look)
    check(bad.returncode == 4 and "frame 6 was not written" in bad.stderr and "in.0006.exr" in bad.stderr,
          "failing frame: %d %s" % (bad.returncode, bad.stderr))
    written = [f for f in frames if os.path.exists("%s/bad/out/o.%04d.exr" % (work, f))]
    check(written == [f for f in frames if f != 6], "frames written beside the failing one: %s" % written)

    # The cluster refuses the job: sbatch's own message is shown.
    refused = run(["submit", inp, work + "/refused/o.####.exr", "--mkdir", "--frames", "1-12", "--partition", "nowhere"])
    check(refused.returncode == 3 and "invalid partition" in refused.stderr.lower(), "refused: " + refused.stderr)


work = tempfile.mkdtemp(prefix="lumivane-slurm-")
os.chmod(work, 0o755)
for sig in (signal.SIGTERM, signal.SIGINT):
    signal.signal(sig, lambda *_: sys.exit(1))
try:
    main(work)
except Exception as e:
    failures.append(str(e))
    raise
finally:
    stop_daemons()
    if not failures:
        shutil.rmtree(work, ignore_errors=True)
    else:
        print("kept " + work)
sys.exit(1 if failures else 0)
