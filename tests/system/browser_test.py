#!/usr/bin/env python3
"""The screen in a browser: kalix-view --web, opened by a headless Chromium, whose canvas is read through the devtools'
pipe and compared with a screenshot of the server, pixel by pixel.

browser_test.py BIN_DIR; exits with 77 where there is no browser or no noVNC.
"""
import base64
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.request

from picture import Picture

BIN = pathlib.Path(sys.argv[1])
PATIENCE = 120  # seconds, for a machine that does much else


def soon(condition):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        found = condition()
        if found:
            return found
        time.sleep(0.1)
    raise AssertionError("it did not come true")


class Browser:
    """A headless browser, spoken to through two pipes: no port, so that nothing else can meet it."""

    def __init__(self, program, folder):
        to_read, self.to = os.pipe()
        self.source, from_write = os.pipe()

        def give_ends():  # the browser wants them as 3 and 4
            ends = os.dup(to_read), os.dup(from_write)
            os.dup2(ends[0], 3)
            os.dup2(ends[1], 4)

        self.process = subprocess.Popen(
            [program, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--remote-debugging-pipe", f"--user-data-dir={folder}", "about:blank"],
            preexec_fn=give_ends, close_fds=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(from_write)
        self.asked, self.rest = 0, b""

    def ask(self, method, session=None, **parameters):
        self.asked += 1
        message = {"id": self.asked, "method": method, "params": parameters}
        message |= {"sessionId": session} if session else {}
        os.write(self.to, json.dumps(message).encode() + b"\0")
        while True:
            while b"\0" not in self.rest:
                part = os.read(self.source, 1 << 16)
                if not part:
                    raise AssertionError("the browser has ended")
                self.rest += part
            text, self.rest = self.rest.split(b"\0", 1)
            got = json.loads(text)
            if got.get("id") == self.asked:
                return got["result"]

    def open(self, url):
        target = self.ask("Target.createTarget", url=url)["targetId"]
        return self.ask("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]

    def value(self, page, expression):
        got = self.ask("Runtime.evaluate", page, expression=expression, returnByValue=True)
        return got["result"].get("value")

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.to)
        os.close(self.source)


CANVAS = """(() => {
  const canvas = document.querySelector('#noVNC_container canvas');
  if (!canvas || !canvas.width) return null;
  const all = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
  let text = '';
  for (let i = 0; i < all.length; i += 4) text += String.fromCharCode(all[i], all[i + 1], all[i + 2]);
  return canvas.width + ' ' + btoa(text);
})()"""


class InABrowser(unittest.TestCase):
    def setUp(self):
        # A browser's helpers may still write when it has gone.
        self.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.addCleanup(self.end)
        self.path = pathlib.Path(self.folder.name)
        self.environment = os.environ | {"KALIX_RUN_DIR": str(self.path / "run")}
        self.started = []
        self.start("kalix-run", "--run-dir", self.path / "run", "--", "sleep", "1000")
        soon(lambda: subprocess.run([BIN / "kalixctl", "ping"], env=self.environment,
                                    capture_output=True).returncode == 0)
        self.draw("200x150", 5)

    def draw(self, size, frames):
        subprocess.run([BIN / "kalix-demo", "mesh", "--size", size, "--frames", str(frames)], env=self.environment,
                       check=True, capture_output=True)

    def end(self):
        for process in reversed(self.started):
            process.terminate()
            process.wait()
            process.stdout.close()
        self.folder.cleanup()

    def start(self, name, *words):
        process = subprocess.Popen([BIN / name, *words], stdout=subprocess.PIPE, text=True, env=self.environment)
        self.started.append(process)
        return process

    def serve(self, *words):
        """The address that a viewer prints."""
        viewer = self.start("kalix-view", "--web", *words)
        viewer.stdout.readline()
        return re.search("open (.*)\n", viewer.stdout.readline()).group(1)

    def screen(self):
        got = subprocess.run([BIN / "kalixctl", "screenshot", "-"], env=self.environment, check=True,
                             capture_output=True)
        picture = Picture(got.stdout)
        return picture.width, picture.rgb()

    def canvas(self, browser, page):
        text = browser.value(page, CANVAS)
        return text and (int(text.split()[0]), base64.b64decode(text.split()[1]))

    def test_the_canvas_is_the_screen(self):
        browser = Browser(shutil.which("chromium"), self.path / "profile")
        self.addCleanup(browser.close)
        page = browser.open(self.serve())
        soon(lambda: self.canvas(browser, page) == self.screen())
        before = self.screen()
        self.draw("240x100", 3)
        self.assertNotEqual(before, self.screen())
        soon(lambda: self.canvas(browser, page) == self.screen())  # it follows the picture and the mode

    def test_a_wrong_password_shows_nothing(self):
        (self.path / "password").write_text("secret\n", encoding="utf-8")
        address = self.serve("--password-file", self.path / "password")
        self.assertNotIn("secret", address)
        browser = Browser(shutil.which("chromium"), self.path / "profile")
        self.addCleanup(browser.close)
        page = browser.open(address + "&password=guess")
        soon(lambda: "noVNC_status_error" in str(browser.value(
            page, "document.getElementById('noVNC_status')?.className")))
        self.assertIsNone(self.canvas(browser, page))
        page = browser.open(address + "&password=secret")
        soon(lambda: self.canvas(browser, page) == self.screen())

    def test_only_the_page_is_given_out(self):
        base = self.serve().split("/vnc.html")[0]
        for path, status in {"/": 200, "/core/rfb.js": 200, "/../../../etc/passwd": 404, "/utils/novnc_proxy": 404,
                             "/%2e%2e/etc/passwd": 404}.items():
            try:
                got = urllib.request.urlopen(base + path, timeout=PATIENCE)
                self.assertEqual((got.status, got.headers["X-Content-Type-Options"]), (status, "nosniff"), path)
            except urllib.error.HTTPError as refusal:
                self.assertEqual(refusal.code, status, path)
                refusal.close()


if __name__ == "__main__":
    for needed, there in {"chromium": shutil.which("chromium"),
                          "novnc": pathlib.Path("/usr/share/novnc/vnc.html").exists()}.items():
        if not there:
            print(f"skipped: the package {needed} is not installed")
            sys.exit(77)
    unittest.main(argv=sys.argv[:1])
