#!/usr/bin/python3
"""`lumivane view` in a real browser: headless Chromium picks Polygon in
"Blur Style" on the page, the picture and the visible controls follow, and the
flow the page saves renders the same pixels with `lumivane render --flow`. Then
a refused value stays at its field, a proxy shows and gives way to the full
resolution, and the wipe shows the input beside the output.

    view_browser_test.py LUMIVANE PLUGIN_DIR [SCREENSHOT]

Exits 77 (skipped) when Chromium, its driver or Selenium is missing."""
import os
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
server = subprocess.Popen([lumivane, "--plugins", plugins, "view", "in.exr", "--save-flow", "look.flow"],
                          cwd=work, env=env, stdout=subprocess.PIPE, text=True)
opts = webdriver.ChromeOptions()
for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--disable-dev-shm-usage", "--window-size=1280,800", "--user-data-dir=" + work + "/profile"):
    opts.add_argument(flag)
browser = None
status = 1
try:
    address = server.stdout.readline().strip()
    token = address.split("#", 1)[1]
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=opts)
    wait = WebDriverWait(browser, 60)
    browser.get(address)
    shown = lambda: browser.find_element(By.ID, "view").get_attribute("data-version")
    wait.until(lambda b: shown())
    # The decoded pixels, read back from the page as a data URL.
    pixels = "const i=document.getElementById('view'),c=document.createElement('canvas');" \
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
    status = 0
finally:
    if browser:
        if status:
            browser.save_screenshot(work + "/failed.png")
            print("page said:", browser.find_element(By.ID, "err").text)
        browser.quit()
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
