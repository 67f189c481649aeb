#!/usr/bin/python3
"""The live page's latency: from a control change (POST /api/set) to the new
picture received, on a 1920x1080 plate with a Disk of 2.5 %, at full resolution
and with proxy 2. What the time is made of comes from the server's headers
(X-Lumivane-Render-Ms, X-Lumivane-Encode-Ms); the rest is the request, the
transfer and the client. With --browser (Chromium and Selenium) the same
change is also timed inside the page, up to the picture decoded and drawn.
With --drag, the page's Blur Size X slider is dragged by the pointer with proxy
1/2 chosen: the time between the proxy pictures drawn during the drag, and from
the drag's last move to the full-resolution picture drawn, letting go at once
or holding still.

    view_latency.py [--build DIR] [--rounds N] [--browser] [--drag]
"""
import argparse
import json
import os
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.request

here = os.path.dirname(os.path.abspath(__file__))
parser = argparse.ArgumentParser()
parser.add_argument("--build", default=os.path.join(os.path.dirname(here), "build"))
parser.add_argument("--rounds", type=int, default=15)
parser.add_argument("--browser", action="store_true")
parser.add_argument("--drag", action="store_true")
args = parser.parse_args()

program = os.path.join(args.build, "app", "lumivane")
plugins = os.path.join(args.build, "plugins")
work = tempfile.mkdtemp(prefix="lumivane-latency-")
# A plate like the benchmark's: a ramp, hard edges and bright points.
subprocess.run(["oiiotool", "--pattern", "fill:topleft=0,0,0.2:topright=1,0.3,0:bottomleft=0,0.6,1:bottomright=0.5,0.5,0.5",
                "1920x1080", "3", "--pattern", "checker:width=64:height=64:color1=0,0,0:color2=0.4,0.4,0.4", "1920x1080", "3",
                "--add", "--pattern", "noise:type=white:min=0:max=1", "1920x1080", "3", "--add", "-d", "half",
                "-o", os.path.join(work, "plate.exr")], check=True)
# No frame cache: every change is timed as a render, not as a picture kept from an earlier round.
server = subprocess.Popen([program, "--plugins", plugins, "view", "plate.exr", "--set", "BlurSizeX=2.5", "--cache", "0"],
                          cwd=work, stdout=subprocess.PIPE, text=True, env=dict(os.environ))
address = server.stdout.readline().strip()
base, token = address.split("#", 1)
headers = {"X-Lumivane-Token": token}


def call(path, body=None):
    data = None if body is None else json.dumps(body).encode()
    request = urllib.request.Request(base + path.lstrip("/"), data=data,
                                     headers=dict(headers, **({"Content-Type": "application/json"} if data else {})))
    with urllib.request.urlopen(request) as r:
        return r.read(), r.headers


def size(i):
    return 2.5 if i % 2 == 0 else 2.5001  # a change the tool renders, the same look


def api_round(form, proxy, i):
    start = time.perf_counter()
    call("/api/set", {"id": "BlurSizeX", "value": size(i)})
    body, h = call("/api/image?which=output&format=%s&proxy=%d" % (form, proxy))
    total = (time.perf_counter() - start) * 1000
    render, encode = float(h["X-Lumivane-Render-Ms"]), float(h["X-Lumivane-Encode-Ms"])
    return total, render, encode, total - render - encode, len(body)


def median(rows, k):
    return statistics.median(r[k] for r in rows)


results = {}
try:
    for form in ("png", "jpeg"):
        for proxy in (1, 2):
            call("/api/image?which=output&format=png&proxy=%d" % proxy)  # plans and caches warm
            results[form, proxy] = [api_round(form, proxy, i) for i in range(args.rounds)]
    page, drags = {}, {}
    if args.browser or args.drag:
        from selenium import webdriver
        from selenium.webdriver.common.action_chains import ActionChains
        from selenium.webdriver.common.by import By
        from selenium.webdriver.chrome.service import Service
        opts = webdriver.ChromeOptions()
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--window-size=1600,900",
                     "--user-data-dir=" + work + "/profile"):
            opts.add_argument(flag)
        browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=opts)
        browser.set_script_timeout(60)
        try:
            browser.get(address)
            # A change through the page, to the picture decoded; then the page is left
            # to come to rest (with a proxy: its full-resolution follow-up) before the next.
            change = """const [value, proxy, done] = arguments;
                const img = document.getElementById('view'), t0 = performance.now();
                const wait = () => {
                  if (tool && img.dataset.version == tool.version && +img.dataset.proxy == proxy && +tool.pages[0].controls.find(c => c.id == 'BlurSizeX').value == value)
                    done([performance.now() - t0, +img.dataset.fetchMs, +img.dataset.drawMs]);
                  else setTimeout(wait, 2);
                };
                set('BlurSizeX', value).then(wait);"""
            rest = """const done = arguments[0], busy = document.getElementById('busy');
                const wait = () => busy.classList.contains('on') ? setTimeout(wait, 20) : done();
                setTimeout(wait, 1500);"""
            for proxy in (1, 2) if args.browser else (2,):
                browser.execute_script("const p = document.getElementById('proxy'); p.value = arguments[0];"
                                       "p.dispatchEvent(new Event('change'))", proxy)
                browser.execute_async_script(rest)
                rows = []
                for i in range(args.rounds if args.browser else 0):
                    rows.append(browser.execute_async_script(change, size(i + 1), proxy))
                    browser.execute_async_script(rest)
                page[proxy] = rows
            # Pictures drawn and slider moves, in the page's clock.
            watch = """if (!window.drawn) {
                  const img = document.getElementById('view');
                  new MutationObserver(() => drawn.push([performance.now(), +img.dataset.proxy]))
                    .observe(img, {attributes: true, attributeFilter: ['data-version']});
                  document.getElementById('controls').addEventListener('input', () => moves.push(performance.now()));
                }
                window.drawn = []; window.moves = [];"""
            for letgo in (True, False) if args.drag else ():
                rows = []
                for i in range(args.rounds):
                    slider = browser.find_element(By.CSS_SELECTOR, "#controls .row[data-id='BlurSizeX'] input[type=range]")
                    # Grabbed at the thumb (2.5 %), dragged 1 % right and back over 2 s.
                    low, high, width = (float(slider.get_attribute(k)) for k in ("min", "max", "clientWidth"))
                    grab = (2.5 - low) / (high - low) * (width - 16) + 8 - width / 2
                    steps = max(1, round(1 / (high - low) * (width - 16)))
                    browser.execute_script(watch)
                    chain = ActionChains(browser, duration=2000 // (2 * steps)).move_to_element_with_offset(slider, grab, 0)
                    chain.click_and_hold()
                    for k in range(2 * steps):
                        chain.move_by_offset(1 if k < steps else -1, 0)
                    if letgo:
                        chain.release()
                    chain.perform()
                    browser.execute_async_script(rest)
                    if not letgo:
                        ActionChains(browser).release().perform()
                        browser.execute_async_script(rest)
                    drawn, moves = browser.execute_script("return [drawn, moves]")
                    during = [t for t, k in drawn if k == 2 and moves[0] <= t <= moves[-1]]
                    gaps = [b - a for a, b in zip([moves[0]] + during, during + [moves[-1]])]
                    full = next((t - moves[-1] for t, k in drawn if k == 1 and t > moves[-1]), float("nan"))
                    rows.append((max(gaps), statistics.median(gaps), len(during), full))
                drags[letgo] = rows
        finally:
            browser.quit()
finally:
    server.send_signal(signal.SIGINT)
    server.wait(timeout=30)
    shutil.rmtree(work, ignore_errors=True)

print("Live page latency, 1920x1080, Disk 2.5 %%, %d rounds; load average %.2f %.2f %.2f" %
      ((args.rounds,) + os.getloadavg()))
print("| picture | format | change to picture received | render | encode | request, transfer, client | KiB |")
print("|---|---|---|---|---|---|---|")
for (form, proxy), rows in results.items():
    print("| %s | %s | %.0f | %.0f | %.0f | %.0f | %.0f |" % (
        "full" if proxy == 1 else "proxy 1/%d" % proxy, form, median(rows, 0), median(rows, 1), median(rows, 2),
        median(rows, 3), median(rows, 4) / 1024))
for proxy, rows in ((p, r) for p, r in page.items() if r):
    print("in the page (JPEG), %s: change to picture drawn %.0f ms (picture request %.0f, decode and draw %.0f)" % (
        "full" if proxy == 1 else "proxy 1/%d" % proxy, median(rows, 0), median(rows, 1), median(rows, 2)))
for letgo, rows in drags.items():
    print("drag with proxy 1/2, %s: between proxy pictures longest %.0f ms (median of rounds), median %.0f, %.0f "
          "pictures a drag; last move to full resolution drawn %.0f ms (median), %.0f (worst)" % (
              "let go at the last move" if letgo else "held still after the last move",
              median(rows, 0), median(rows, 1), median(rows, 2), median(rows, 3), max(r[3] for r in rows)))
