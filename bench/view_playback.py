#!/usr/bin/python3
"""Playback in the live page: a 1920x1080 sequence with a Disk of 2.5 % played
twice in headless Chromium. The first pass renders each frame; the second shows
the frames the server kept. Prints each pass's frames a second, the median time
from one frame to the next, and the page's cache readout.

    view_playback.py [--build DIR] [--frames N] [--proxy 1|2|4]
"""
import argparse
import os
import shutil
import signal
import statistics
import subprocess
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

here = os.path.dirname(os.path.abspath(__file__))
parser = argparse.ArgumentParser()
parser.add_argument("--build", default=os.path.join(os.path.dirname(here), "build"))
parser.add_argument("--frames", type=int, default=24)
parser.add_argument("--proxy", default="1")
args = parser.parse_args()

work = tempfile.mkdtemp(prefix="lumivane-playback-")
subprocess.run(["oiiotool", "--pattern", "fill:topleft=0,0,0.2:topright=1,0.3,0:bottomleft=0,0.6,1:bottomright=0.5,0.5,0.5",
                "1920x1080", "3", "--pattern", "noise:type=white:min=0:max=1", "1920x1080", "3", "--add", "-d", "half",
                "-o", os.path.join(work, "seq.1001.exr")], check=True)
last = 1000 + args.frames
for n in range(1002, last + 1):
    shutil.copy(os.path.join(work, "seq.1001.exr"), os.path.join(work, "seq.%d.exr" % n))
server = subprocess.Popen([os.path.join(args.build, "app", "lumivane"), "--plugins", os.path.join(args.build, "plugins"),
                           "view", "seq.%d.exr", "--frames", "1001-%d" % last, "--set", "BlurSizeX=2.5",
                           "--proxy", args.proxy], cwd=work, stdout=subprocess.PIPE, text=True)
address = server.stdout.readline().strip()
opts = webdriver.ChromeOptions()
for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--window-size=1600,900",
             "--user-data-dir=" + work + "/profile"):
    opts.add_argument(flag)
browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=opts)
try:
    browser.get(address)
    while not browser.execute_script("return !!(tool && document.getElementById('view').dataset.version && !inflight)"):
        time.sleep(0.05)
    # Each picture shown, with its frame and the moment it was drawn.
    browser.execute_script("window.shownAt=[];document.getElementById('view').addEventListener('load',"
                           "()=>shownAt.push([tool.frame,performance.now()]))")
    browser.find_element(By.ID, "play").click()
    while browser.execute_script("return shownAt.filter(s=>s[0]==1001).length") < 2:
        time.sleep(0.1)
    browser.find_element(By.ID, "play").click()
    shown = browser.execute_script("return shownAt")
    readout = browser.find_element(By.ID, "cache").text
finally:
    browser.quit()
    server.send_signal(signal.SIGINT)
    server.wait(timeout=30)
    shutil.rmtree(work, ignore_errors=True)

# Pass 1: from 1002 to the first 1001 after it (1001 was shown before Play); pass 2: the next round.
wrap = [i for i, (f, _) in enumerate(shown) if f == 1001]
print("Playback, 1920x1080, Disk 2.5 %%, %d frames, proxy %s; load average %.2f %.2f %.2f" %
      ((args.frames, args.proxy) + os.getloadavg()))
for name, (a, b) in (("first pass", (0, wrap[0])), ("second pass", (wrap[0], wrap[1]))):
    steps = [shown[i + 1][1] - shown[i][1] for i in range(a, b)]
    print("%s: %.1f frames a second, %.0f ms from frame to frame (median)" %
          (name, 1000 * len(steps) / sum(steps), statistics.median(steps)))
print("page readout:", readout)
