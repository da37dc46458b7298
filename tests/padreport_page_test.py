#!/usr/bin/python3
"""padreport's page in headless Chromium: what is drawn, zoomed, printed, and whether the browser complains.

The test is skipped, with status 77, where Chromium, its driver, Selenium or pdftoppm is missing. PADREPORT names the
program; where PADREPORT_PICTURES names a folder, pictures of the page are left there.
"""

import base64
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SKIPPED = 77
DESKTOP, PHONE = (1280, 900), (390, 844)
BUTTONS = 7

try:
    from selenium import webdriver
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
except ImportError:
    webdriver = None

# How much of each colour the charts show: of the lines and touches, for their axes are no part of the canvas.
COUNT_COLOURED = """
    return [...document.querySelectorAll('.chart')].map(chart => {
        const canvas = chart.querySelectorAll('canvas')[0];
        const {data} = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
        const colours = {};
        for (let i = 0; i < data.length; i += 4) {
            if (data[i + 3] === 255) {
                const colour = data.slice(i, i + 3).join();
                colours[colour] = (colours[colour] || 0) + 1;
            }
        }
        return colours;
    });"""
BLACK, HATCHING = "0,0,0", "246,227,184"
TIME_LABELS = """
    return [...document.querySelectorAll('.chart')].map(chart =>
        [...chart.querySelectorAll('.dygraph-axis-label-x')].map(label => label.textContent).join(' '));"""


def make_log():
    """Two runs of a minute each; the buttons are touched in turn. Button 2 is noisy, button 3 weak."""
    lines = ["INFO: <img/src=x/onerror=alert(1)> 7"]
    lines += [f"INFO: Button Threshold {button:02} = 60" for button in range(1, BUTTONS + 1)]
    for run in range(2):
        for step in range(1, 1500):
            for button in range(1, BUTTONS + 1):
                is_touched = (step // 50 + button) % BUTTONS == 0
                noise = (step * 7919 + button * 31) % 5 - 2
                signal = (65 if button == 3 else 120) * is_touched + noise * (6 if button == 2 else 1)
                lines.append(f"{step * 40 / 1000:6.3f}: BT{button}: {1216 + signal:5} {1216:5} {4 + noise:5} "
                             f"{max(signal, 0):5} {'*' if is_touched else ' '}")
    return "\n".join(lines) + "\nStrange button count 4 </script><b>\n"


def count_near(pictures, colour):
    """How many pixels of some PPM pictures, one after the other, have about a colour."""
    count = 0
    while pictures:
        header = re.match(rb"P6\s+(\d+)\s+(\d+)\s+255\s", pictures)
        start = header.end()
        end = start + 3 * int(header[1]) * int(header[2])
        count += sum(max(abs(a - b) for a, b in zip(pixel, colour)) < 16
                     for pixel in zip(pictures[start:end:3], pictures[start + 1:end:3], pictures[start + 2:end:3]))
        pictures = pictures[end:]
    return count


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        (cls.folder / "log").write_text(make_log())
        subprocess.run([os.environ["PADREPORT"], "--html", "page.html", "log"], cwd=cls.folder, check=True)
        options = webdriver.ChromeOptions()
        # As root, in a container, there is no sandbox; and often little shared memory.
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                         "--force-device-scale-factor=1", f"--user-data-dir={cls.folder}/profile"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(options=options, service=webdriver.chrome.service.Service(
            shutil.which("chromedriver")))
        cls.addClassCleanup(cls.browser.quit)

    def open(self, size):
        # Not the window: its smallest width is wider than a phone.
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": size == PHONE})
        self.browser.get(f"file://{self.folder}/page.html")

    def keep(self, name, content):
        if "PADREPORT_PICTURES" in os.environ:
            (pathlib.Path(os.environ["PADREPORT_PICTURES"]) / name).write_bytes(content)

    def picture(self, name):
        shot = self.browser.execute_cdp_cmd("Page.captureScreenshot", {"captureBeyondViewport": True})
        self.keep(name, base64.b64decode(shot["data"]))

    def assertSilent(self):
        self.assertEqual(self.browser.get_log("browser"), [])

    def assertDrawn(self):
        strips = self.browser.execute_script(COUNT_COLOURED)
        self.assertEqual(len(strips), BUTTONS)
        for colours in strips:
            self.assertGreater(colours.get(BLACK, 0), 50)
            self.assertGreater(colours.get(HATCHING, 0), 50)

    def window(self):
        return self.browser.find_element(By.ID, "window").text

    def test_draws_every_strip_at_every_width(self):
        for size, name in ((DESKTOP, "desktop.png"), (PHONE, "phone.png")):
            with self.subTest(name):
                self.open(size)
                self.assertDrawn()
                self.picture(name)
                # Nothing but the tables scrolls sideways.
                self.assertLessEqual(self.browser.execute_script("return document.documentElement.scrollWidth"),
                                     size[0])
                self.assertSilent()
        self.assertEqual(self.browser.find_elements(By.CSS_SELECTOR, "img, b"), [])

    def test_zooms_all_strips_together(self):
        self.open(DESKTOP)
        whole, labels = self.window(), self.browser.execute_script(TIME_LABELS)
        chart = self.browser.find_element(By.CSS_SELECTOR, "#strip-4 .chart")
        self.browser.execute_script("arguments[0].scrollIntoView({block: 'center'})", chart)
        ActionChains(self.browser).move_to_element_with_offset(chart, -300, 0).click_and_hold() \
            .move_by_offset(200, 0).release().perform()
        zoomed = self.browser.execute_script(TIME_LABELS)
        self.assertNotEqual(zoomed, labels)
        self.assertEqual(len(set(zoomed)), 1, zoomed)
        self.assertNotEqual(self.window(), whole)
        self.assertDrawn()
        self.picture("zoomed.png")

        ActionChains(self.browser).double_click(chart).perform()
        self.assertEqual((self.window(), self.browser.execute_script(TIME_LABELS)), (whole, labels))
        seen = {whole}
        for name in ("in", "later", "earlier", "out", "all"):
            self.browser.find_element(By.ID, name).click()
            self.assertEqual(len(set(self.browser.execute_script(TIME_LABELS))), 1, name)
            seen.add(self.window())
        self.assertEqual((self.window(), len(seen)), (whole, 3))
        self.assertSilent()

    def test_values_can_be_hidden_and_read_off(self):
        self.open(DESKTOP)
        for box in self.browser.find_elements(By.CSS_SELECTOR, "#values input")[:2]:
            box.click()
        self.assertNotIn("value 1", self.browser.find_element(By.CSS_SELECTOR, "#strip-1 .legend").text)
        chart = self.browser.find_element(By.CSS_SELECTOR, "#strip-1 .chart")
        ActionChains(self.browser).move_to_element_with_offset(chart, -300, 0).perform()
        for button in range(1, BUTTONS + 1):
            legend = self.browser.find_element(By.CSS_SELECTOR, f"#strip-{button} .legend").text
            self.assertRegex(legend, r"value 4: \d+.*run 1, \d+\.\d{3} s")
        self.assertSilent()

    def test_fits_paper(self):
        self.open(DESKTOP)
        pdf = self.browser.execute_cdp_cmd("Page.printToPDF", {"paperWidth": 8.27, "paperHeight": 11.69})
        self.keep("page.pdf", base64.b64decode(pdf["data"]))
        paper = subprocess.run(["pdftoppm", "-r", "100"], input=base64.b64decode(pdf["data"]), check=True,
                               stdout=subprocess.PIPE).stdout
        # A canvas can be empty on paper though it is not on the screen.
        hatching = [int(part) for part in HATCHING.split(",")]
        self.assertGreater(count_near(paper, hatching), BUTTONS * 200)
        # Afterwards the strips are as wide as the window again.
        self.assertDrawn()
        widths = self.browser.execute_script(
            "return [...document.querySelectorAll('.chart')].map(chart => chart.querySelector('canvas').width)")
        self.assertGreater(min(widths), 1000)
        self.assertSilent()


if __name__ == "__main__":
    missing = [name for name in ("chromium", "chromedriver", "pdftoppm") if not shutil.which(name)]
    if webdriver is None:
        missing.append("python3-selenium")
    if missing:
        print("Skipped: missing", *missing)
        sys.exit(SKIPPED)
    unittest.main(verbosity=2)
