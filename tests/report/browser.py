"""A report of the real tool in a real browser, without a window."""

import base64
import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

SKIPPED = 77  # what CTest takes as "skipped"
PATIENCE = 120  # seconds that a busy machine may take for what a browser does at once


def skip(reason):
    print("Skipped: " + reason)
    sys.exit(SKIPPED)


BROWSER = shutil.which("chromium")
DRIVER = shutil.which("chromedriver")
if not BROWSER or not DRIVER:
    skip("there is no chromium with its chromedriver (Debian packages chromium and chromium-driver)")
try:
    from selenium import webdriver
    from selenium.webdriver.chrome.options import Options
    from selenium.webdriver.chrome.service import Service
except ImportError:
    skip("this Python has no selenium (Debian package python3-selenium)")

QAV = os.environ["QAV"]
DATA = os.environ["QAV_TEST_DATA"]


def data(name):
    with open(os.path.join(DATA, name), "rb") as f:
        return f.read()


class ReportTest(unittest.TestCase):
    """One browser for the tests of a class; each opens its own reports. What the console says is a failure."""

    WIDTH, HEIGHT = 1280, 900

    @classmethod
    def setUpClass(cls):
        options = Options()
        options.binary_location = BROWSER
        for argument in ("headless=new", "no-sandbox", "disable-gpu", "hide-scrollbars", "disable-dev-shm-usage"):
            options.add_argument("--" + argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.driver = webdriver.Chrome(options=options, service=Service(DRIVER))
        cls.addClassCleanup(cls.driver.quit)
        cls.driver.set_script_timeout(PATIENCE)
        cls.folder = tempfile.mkdtemp(prefix="qav-report-")
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)

    def setUp(self):
        self.screen(self.WIDTH, self.HEIGHT)

    def tearDown(self):
        said = self.driver.get_log("browser")
        self.assertEqual(said, [], "the console is not silent")

    def put(self, name, content):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as f:
            f.write(content)
        return path

    def write(self, stream, *arguments, name="a.mp2", status=0, piped=False):
        """The report of a stream, as a file."""
        page = os.path.join(self.folder, "report.html")
        if os.path.exists(page):
            os.remove(page)
        source = "-" if piped else self.put(name, stream)
        done = subprocess.run([QAV, "inspect", source, "-o", page, *arguments], input=stream if piped else b"",
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, cwd=self.folder, check=False)
        self.assertEqual(done.returncode, status, done.stdout.decode(errors="replace"))
        return page

    def get(self, name):
        with open(os.path.join(self.folder, name), "rb") as f:
            return f.read()

    def encode(self, *arguments):
        done = subprocess.run([QAV, "encode", *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              cwd=self.folder, check=False)
        self.assertEqual(done.returncode, 0, done.stdout.decode(errors="replace"))

    def open(self, stream, *arguments, **options):
        self.show(self.write(stream, *arguments, **options))

    def show(self, page):
        self.driver.get("file://" + os.path.join(self.folder, page))
        ready = self.run_script("return document.documentElement.dataset.ready")
        self.assertEqual(ready, "yes", "the page did not get ready")
        self.settle()

    def screen(self, width, height):
        self.cdp("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)

    def cdp(self, command, **parameters):
        return self.driver.execute_cdp_cmd(command, parameters)

    def run_script(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def settle(self):
        """Until what was asked for is drawn."""
        self.driver.execute_async_script(
            "const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(() => setTimeout(done, 0)));")

    def text(self, selector):
        found = self.run_script("return document.querySelector(arguments[0])?.textContent ?? null", selector)
        self.assertIsNotNone(found, f"nothing is {selector}")
        return found.replace("\u202f", "").replace("−", "-")

    def texts(self, selector):
        script = "return [...document.querySelectorAll(arguments[0])].map((e) => e.textContent)"
        found = self.run_script(script, selector)
        return [text.replace("\u202f", "").replace("−", "-") for text in found]

    def rows(self, selector):
        """The cells of a table's body."""
        found = self.run_script("return [...document.querySelectorAll(arguments[0] + ' tbody tr')]"
                                ".map((row) => [...row.children].map((cell) => cell.textContent))", selector)
        return [[cell.replace("\u202f", "").replace("−", "-") for cell in row] for row in found]

    def fact(self, name):
        """A fact of the head by its name."""
        for text in self.run_script("return [...document.querySelectorAll('#head .facts dl > div')]"
                                    ".map((row) => [...row.children].map((e) => e.textContent))"):
            if text[0] == name:
                return text[1].replace("\u202f", "")
        self.fail(f"no fact is called {name}")

    def choose(self, identity, value):
        """Set a field or a menu as a reader would."""
        self.run_script("const e = document.getElementById(arguments[0]); e.value = arguments[1];"
                        "e.dispatchEvent(new Event('change'))", identity, value)
        self.settle()

    def stored_bytes(self):
        """What the hex of the frame shows."""
        return bytes.fromhex("".join(self.texts(".hex .byte")))

    def background(self):
        return self.run_script("return getComputedStyle(document.body).backgroundColor")

    def keys(self, *keys, on="#cursor"):
        """Press keys as a keyboard does, on an element that has the focus."""
        self.run_script("document.querySelector(arguments[0]).focus({preventScroll: true})", on)
        for key in keys:
            shift, key = (8, key[6:]) if key.startswith("Shift+") else (0, key)
            printed = {"text": key} if len(key) == 1 else {"text": "\r"} if key == "Enter" else {}
            self.cdp("Input.dispatchKeyEvent", type="keyDown", key=key, modifiers=shift, **printed)
            self.cdp("Input.dispatchKeyEvent", type="keyUp", key=key, modifiers=shift)
        self.settle()

    def box(self, selector):
        """Place and size of an element once it is on the screen."""
        return self.run_script(
            "const e = document.querySelector(arguments[0]); e.scrollIntoView({block: 'center'});"
            "const {left, top, width, height} = e.getBoundingClientRect(); return {left, top, width, height}", selector)

    def mouse(self, kind, x, y, **more):
        self.cdp("Input.dispatchMouseEvent", type="mouse" + kind, x=x, y=y, **more)

    def click(self, x, y):
        self.mouse("Moved", x, y)
        self.mouse("Pressed", x, y, button="left", clickCount=1)
        self.mouse("Released", x, y, button="left", clickCount=1)
        self.settle()

    def click_on(self, selector):
        box = self.box(selector)
        self.click(box["left"] + box["width"] / 2, box["top"] + box["height"] / 2)

    def picture(self, selector=None):
        """A screenshot, or of one canvas what it holds, as PNG."""
        if selector:
            self.settle()
            script = "return document.querySelector(arguments[0]).toDataURL().split(',')[1]"
            return base64.b64decode(self.run_script(script, selector))
        return base64.b64decode(self.cdp("Page.captureScreenshot", format="png")["data"])

    def wait_for(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), end, what)
            time.sleep(0.05)
