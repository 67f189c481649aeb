#!/usr/bin/python3
"""`lumivane view` in a real browser: headless Chromium picks Polygon in
"Blur Style" on the page, the picture and the visible controls follow, and the
flow the page saves renders the same pixels with `lumivane render --flow`; the
kernel drawing enlarges with its pixel grid. Then
a refused value stays at its field, a proxy shows and gives way to the full
resolution, the wipe shows the input beside the output and A/B a snapshot
beside it, and a slider renders while it is dragged. Last, a size keyed at two
frames of a sequence in the page, undone and redone with Ctrl-Z and
Ctrl-Shift-Z, renders, from the saved flow, at the sizes on the straight line
between the keys.

    view_browser_test.py LUMIVANE PLUGIN_DIR [SCREENSHOT]

Exits 77 (skipped) when Chromium, its driver or Selenium is missing."""
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import urllib.request

SKIP = 77
try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    sys.exit(SKIP)
if not shutil.which("chromium") or not shutil.which("chromedriver"):
    sys.exit(SKIP)

lumivane, plugins = sys.argv[1], sys.argv[2]
screenshot = sys.argv[3] if len(sys.argv) > 3 else None
work = tempfile.mkdtemp(prefix="lumivane-browser-")
env = dict(os.environ, LUMIVANE_THREADS="2")


def run(*args):
    subprocess.run(args, check=True, cwd=work, env=env, stdout=subprocess.DEVNULL)


run("oiiotool", "--pattern", "checker:width=8:height=8:color1=0.05,0.1,0.2:color2=3,1.5,0.4", "96x64", "3",
    "-d", "half", "-o", "in.exr")
servers = []


def start(*args):
    """Starts `lumivane view` with `args`; its address."""
    servers.append(subprocess.Popen([lumivane, "--plugins", plugins, "view", *args],
                                    cwd=work, env=env, stdout=subprocess.PIPE, text=True))
    return servers[-1].stdout.readline().strip()


opts = webdriver.ChromeOptions()
for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--disable-dev-shm-usage", "--window-size=1280,800", "--user-data-dir=" + work + "/profile"):
    opts.add_argument(flag)
browser = None
status = 1
try:
    address = start("in.exr", "--save-flow", "look.flow")
    token = address.split("#", 1)[1]
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=opts)
    wait = WebDriverWait(browser, 60)
    browser.get(address)
    shown = lambda: browser.find_element(By.ID, "view").get_attribute("data-version")
    wait.until(lambda b: shown())
    # The decoded pixels, read back from the page as a data URL.
    pixels = "const i=document.getElementById(arguments[0]||'view'),c=document.createElement('canvas');" \
             "c.width=i.naturalWidth;c.height=i.naturalHeight;c.getContext('2d').drawImage(i,0,0);return c.toDataURL()"
    row = lambda label: browser.find_element(
        By.XPATH, "//div[@class='row'][label[text()='%s']]" % label)
    idle = lambda b: not b.find_element(By.ID, "busy").get_attribute("class")

    def pick(style):
        seen = shown()
        row("Blur Style").find_element(By.XPATH, ".//button[text()='%s']" % style).click()
        wait.until(lambda b: shown() != seen and idle(b))

    # A new tool shows every shape control until the style changes.
    pick("Gaussian")
    assert not row("Polygon Side Count").is_displayed(), "Polygon Side Count shown for a Gaussian"
    before = browser.execute_script(pixels)
    pick("Polygon")
    assert row("Polygon Side Count").is_displayed(), "Polygon Side Count not shown for a polygon"
    # The size is what makes the style visible in the picture.
    size = row("Blur Size X").find_element(By.CSS_SELECTOR, "input[type=number]")
    size.send_keys(Keys.CONTROL, "a", Keys.NULL, "9", Keys.TAB)
    wait.until(lambda b: b.execute_script(pixels) != before and idle(b))
    assert not browser.find_element(By.ID, "err").text, browser.find_element(By.ID, "err").text
    browser.find_element(By.ID, "snap").click()
    wait.until(lambda b: b.execute_script("return tool.snapshot") and idle(b))
    kept = browser.execute_script(pixels)
    browser.find_element(By.ID, "kernel").click()  # enlarged by a whole factor, its pixel grid over it
    assert browser.execute_script("const c=kcanvas,s=c.width/kernel.naturalWidth;return s>=4&&s%1==0&&"
                                  "''+c.getContext('2d').getImageData(0,0,1,1).data=='85,85,85,255'")
    browser.find_element(By.ID, "kzoom").click()
    if screenshot:
        browser.save_screenshot(screenshot)
    browser.save_screenshot(work + "/page.png")

    browser.find_element(By.ID, "save").click()
    wait.until(lambda b: b.find_element(By.ID, "saved").text)
    request = urllib.request.Request(address.split("#")[0] + "api/image?which=output&format=exr",
                                     headers={"X-Lumivane-Token": token})
    with urllib.request.urlopen(request) as r, open(work + "/viewed.exr", "wb") as f:
        f.write(r.read())
    run(lumivane, "--plugins", plugins, "render", "--flow", "look.flow")
    run("idiff", "-fail", "0", "-warn", "0", "viewed.exr", "look.exr")

    # The readout under the cursor at pixel (7, 3) holds the output's values (the file's are half floats); the g key
    # shows the output's green as grey, its sRGB code there, and again the colour.
    browser.execute_script("const s=document.getElementById('stage'),b=s.getBoundingClientRect();s.dispatchEvent("
                           "new PointerEvent('pointermove',{clientX:b.left+tx+sc*7.5,clientY:b.top+ty+sc*3.5}))")
    wait.until(lambda b: b.find_element(By.ID, "pixelAt").text == "x 7 y 3")
    readout = {r[0]: r[1:4] for r in (tr.text.split() for tr in browser.find_elements(By.CSS_SELECTOR, "#values tr"))}
    dumped = subprocess.run(["oiiotool", "--dumpdata", "look.exr"], cwd=work, capture_output=True, text=True).stdout
    expected = re.search(r"Pixel \(7, 3\): (.*)", dumped).group(1).split()
    assert all(abs(float(a) - float(b)) <= 1e-3 * float(b) for a, b in zip(readout["out"], expected)), readout
    grey = pixels.replace("return c.toDataURL()", "if(!c.width)return [99,0];const d=c.getContext('2d')"
                          ".getImageData(0,0,c.width,c.height).data;let s=0;for(let k=0;k<d.length;k+=4)"
                          "s=Math.max(s,Math.abs(d[k]-d[k+1]),Math.abs(d[k+1]-d[k+2]));return [s,d[4*(3*c.width+7)+1]]")
    srgb = 255 * (1.055 * min(float(readout["out"][1]), 1) ** (1 / 2.4) - 0.055)  # green is far above the linear toe
    for shows in (lambda s: s[0] <= 2 and abs(s[1] - srgb) <= 3, lambda s: s[0] > 20):
        ActionChains(browser).send_keys("g").perform()
        wait.until(lambda b: shows(b.execute_script(grey)) and idle(b))

    # A value the control refuses is marked at its field and never sent.
    version = browser.execute_script("return tool.version")
    field = lambda: row("Blur Size X").find_element(By.CSS_SELECTOR, "input[type=number]")
    field().send_keys(Keys.CONTROL, "a", Keys.NULL, "-3", Keys.TAB)
    wait.until(lambda b: row("Blur Size X").find_element(By.CLASS_NAME, "fieldErr").text)
    assert "lowest" in row("Blur Size X").find_element(By.CLASS_NAME, "fieldErr").text
    assert browser.execute_script("return tool.version") == version, "a refused value was sent"

    # A proxy is half the size, marked, and followed by the full resolution.
    natural = lambda: browser.execute_script("return document.getElementById('view').naturalWidth")
    browser.find_element(By.CSS_SELECTOR, "#proxy option[value='2']").click()
    field().send_keys(Keys.CONTROL, "a", Keys.NULL, "5", Keys.TAB)
    WebDriverWait(browser, 60, poll_frequency=0.05).until(lambda b: natural() == 48)
    assert browser.find_element(By.ID, "mark").text == "proxy 1/2"
    wait.until(lambda b: natural() == 96)
    assert not browser.find_element(By.ID, "mark").is_displayed()

    # The wipe: the input over the left part of the output, up to the divider.
    browser.find_element(By.ID, "showWipe").click()
    wait.until(lambda b: b.find_element(By.ID, "inview").get_attribute("src"))
    assert browser.find_element(By.ID, "wipe").is_displayed()
    assert "inset" in browser.find_element(By.ID, "inview").get_attribute("style")
    # A/B: the snapshot (size 9) on that side of the wipe, beside the live size 5.
    browser.find_element(By.ID, "showAB").click()
    wait.until(lambda b: b.execute_script(pixels, "inview") == kept)
    assert browser.execute_script(pixels) != kept, "the live output is the snapshot"

    # A drag renders before the hand lets go, and the value it ends at wins: the
    # server's answer holds it, and the picture shown is of that answer.
    slider = row("Blur Size X").find_element(By.CSS_SELECTOR, "input[type=range]")
    seen, drag = shown(), ActionChains(browser, duration=0).click_and_hold(slider)
    for _ in range(5):
        drag.move_by_offset(9, 0)
    drag.perform()
    wait.until(lambda b: shown() != seen and b.execute_script("return [controls().find(c=>c.id=='BlurSizeX').value, "
               "tool.version]") == [float(slider.get_attribute("value")), int(shown())])
    ActionChains(browser).release().perform()

    # Keys: Blur Size X 1 at 1001, animated with the page's button; an arrow
    # key and the slider to 1010, where 5 typed on the animated control keys
    # it; shift+left back to the previous key.
    for n in range(1001, 1011):
        shutil.copy(work + "/in.exr", work + "/seq.%d.exr" % n)
    browser.get(start("seq.%d.exr", "--frames", "1001-1010", "--save-flow", "keys.flow"))
    wait.until(lambda b: shown())
    version = lambda: browser.execute_script("return tool.version")
    frame = lambda: browser.find_element(By.ID, "frameNo").text

    def act(action):
        before = version()
        action()
        wait.until(lambda b: version() != before and idle(b))

    def press(key, *held):
        browser.execute_script("document.activeElement.blur()")
        chain = ActionChains(browser)
        for k in held:
            chain.key_down(k)
        chain.send_keys(key)
        for k in held:
            chain.key_up(k)
        act(chain.perform)

    act(lambda: row("Blur Size Unit").find_element(By.XPATH, ".//button[text()='Absolute']").click())
    act(lambda: field().send_keys(Keys.CONTROL, "a", Keys.NULL, "1", Keys.TAB))
    assert browser.find_element(By.ID, "focusName").text == "Blur Size X"
    act(lambda: browser.find_element(By.ID, "animate").click())
    press(Keys.ARROW_RIGHT)
    assert frame() == "1002", frame()
    act(lambda: browser.execute_script(
        "const f=document.getElementById('frame');f.value=1010;f.dispatchEvent(new Event('change'))"))
    act(lambda: field().send_keys(Keys.CONTROL, "a", Keys.NULL, "5", Keys.TAB))
    keys = lambda: browser.execute_script("return controls().find(c=>c.id=='BlurSizeX').keys")
    assert keys() == [[1001, 1], [1010, 5]], keys()
    assert len(browser.find_elements(By.CSS_SELECTOR, "#marks i")) == 2
    press("z", Keys.CONTROL)
    assert keys() == [[1001, 1]], keys()
    press("z", Keys.CONTROL, Keys.SHIFT)
    assert keys() == [[1001, 1], [1010, 5]], keys()
    press(Keys.ARROW_LEFT, Keys.SHIFT)
    assert frame() == "1001", frame()
    browser.find_element(By.ID, "save").click()
    wait.until(lambda b: b.find_element(By.ID, "saved").text)
    rendered = subprocess.run([lumivane, "--plugins", plugins, "render", "--flow", "keys.flow",
                               "--frames", "1001,1005,1010", "-v"],
                              check=True, cwd=work, env=env, capture_output=True, text=True).stdout
    sizes = {int(f): float(v) for f, v in
             re.findall(r"frame (\d+): Lumivane 2: blur size in pixels (?:R )?([0-9.e+-]+) x", rendered)}
    for f in (1001, 1005, 1010):
        expected = 1 + (5 - 1) * (f - 1001) / (1010 - 1001)
        assert abs(sizes.get(f, -1) - expected) < 1e-4, (f, expected, rendered)
    status = 0
finally:
    if browser:
        if status:
            browser.save_screenshot(work + "/failed.png")
            print("page said:", browser.find_element(By.ID, "err").text)
        browser.quit()
    for server in servers:
        server.send_signal(signal.SIGINT)
        code = server.wait(timeout=30)
        if code != 0:
            print("lumivane view ended with status", code)
            status = 1
    if status == 0:
        shutil.rmtree(work, ignore_errors=True)
    else:
        print("kept", work)
sys.exit(status)
