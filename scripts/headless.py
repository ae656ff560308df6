"""A headless Chromium that opens pages and answers questions about them, over the browser's debugging pipe.

Standard library only. The browser gets a profile of its own, which goes with it.
"""

import fcntl
import json
import os
import pathlib
import select
import shutil
import subprocess
import tempfile
import time

ANSWER_WITHIN_S = 60


def find_browser():
    """The browser's program; None where there is none."""
    return shutil.which("chromium")


class PageError(Exception):
    """The browser refused, a script failed, or nothing came in time."""


def _above_standard(descriptor):
    """The same pipe end under a number that the browser's own descriptors do not need."""
    moved = fcntl.fcntl(descriptor, fcntl.F_DUPFD, 16)
    os.close(descriptor)
    return moved


class Browser:
    """Use it in a with statement."""

    def __init__(self, program):
        self._profile = tempfile.mkdtemp(prefix="corvane-browser-")
        to_browser, self._out = map(_above_standard, os.pipe())
        self._in, from_browser = map(_above_standard, os.pipe())

        def place_pipe():
            os.dup2(to_browser, 3)
            os.dup2(from_browser, 4)

        self._process = subprocess.Popen(
            [program, "--headless", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe", "--no-first-run",
             "--disable-extensions", "--disable-background-networking", "--disable-component-update",
             "--hide-scrollbars", f"--user-data-dir={self._profile}", "about:blank"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, close_fds=False,
            preexec_fn=place_pipe)
        os.close(to_browser)
        os.close(from_browser)
        self._last_id = 0
        self._pending = b""
        self.events = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self.call("Browser.close")
            self._process.wait(10)
        except (PageError, OSError, subprocess.TimeoutExpired):
            self._process.kill()
            self._process.wait()
        os.close(self._out)
        os.close(self._in)
        shutil.rmtree(self._profile, ignore_errors=True)

    def _receive(self, deadline):
        while b"\0" not in self._pending:
            ready, _, _ = select.select([self._in], [], [], max(0, deadline - time.monotonic()))
            piece = os.read(self._in, 1 << 20) if ready else b""
            if not piece:
                raise PageError("the browser does not answer")
            self._pending += piece
        message, self._pending = self._pending.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, session=None, **parameters):
        """Asks for something and returns the answer; what happens meanwhile goes to `events`."""
        self._last_id += 1
        message = {"id": self._last_id, "method": method, "params": parameters}
        if session:
            message["sessionId"] = session
        os.write(self._out, json.dumps(message).encode() + b"\0")
        deadline = time.monotonic() + ANSWER_WITHIN_S
        while True:
            answer = self._receive(deadline)
            if answer.get("id") == self._last_id:
                if "error" in answer:
                    raise PageError(f"{method}: {answer['error']['message']}")
                return answer["result"]
            self.events.append(answer)

    def wait_for(self, method, session):
        """Waits until an event has happened."""
        deadline = time.monotonic() + ANSWER_WITHIN_S
        while not any(e.get("method") == method and e.get("sessionId") == session for e in self.events):
            self.events.append(self._receive(deadline))


class Page:
    """One page in a tab of its own."""

    def __init__(self, browser, path, width=1280, scheme="light"):
        self._browser = browser
        self.url = pathlib.Path(path).resolve().as_uri()
        self._target = browser.call("Target.createTarget", url="about:blank")["targetId"]
        self._session = browser.call("Target.attachToTarget", targetId=self._target, flatten=True)["sessionId"]
        for domain in ("Runtime", "Log", "Network", "Page"):
            self.call(f"{domain}.enable")
        self.set_width(width)
        self.set_scheme(scheme)
        # What the empty tab did before is of no interest.
        browser.events = [e for e in browser.events if e.get("sessionId") != self._session]
        self.call("Page.navigate", url=self.url)
        browser.wait_for("Page.loadEventFired", self._session)
        self.settle()

    def call(self, method, **parameters):
        return self._browser.call(method, self._session, **parameters)

    def set_width(self, width):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1, mobile=False)

    def set_scheme(self, scheme):
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def settle(self):
        """Until everything that hangs on the layout has been drawn."""
        self.ask("new Promise(done => requestAnimationFrame(() => requestAnimationFrame(() => done(true))))")

    def ask(self, expression):
        """The value of a JavaScript expression; a promise's, when it is kept."""
        answer = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in answer:
            raise PageError(f"{expression}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def count(self, selector):
        return self.ask(f"document.querySelectorAll({json.dumps(selector)}).length")

    def texts(self, selector):
        return self.ask(f"[...document.querySelectorAll({json.dumps(selector)})].map(one => one.textContent)")

    def _own_events(self, method):
        return [e["params"] for e in self._browser.events
                if e.get("method") == method and e.get("sessionId") == self._session]

    def complaints(self):
        """Script errors, and what was written to the console or the log."""
        found = [e["exceptionDetails"].get("exception", {}).get("description") or e["exceptionDetails"]["text"]
                 for e in self._own_events("Runtime.exceptionThrown")]
        found += [str(e["args"]) for e in self._own_events("Runtime.consoleAPICalled")]
        return found + [e["entry"]["text"] for e in self._own_events("Log.entryAdded")]

    def requests(self):
        """Addresses that the page asked for, itself included; not those that carry their content in them."""
        asked = [e["request"]["url"] for e in self._own_events("Network.requestWillBeSent")]
        return [url for url in asked if not url.startswith("data:")]

    def height(self):
        return self.ask("document.documentElement.scrollHeight")

    def screenshot(self, width, height):
        """The top of the page as base64 text of a PNG."""
        clip = {"x": 0, "y": 0, "width": width, "height": height, "scale": 1}
        return self.call("Page.captureScreenshot", format="png", clip=clip, captureBeyondViewport=True)["data"]

    def close(self):
        self._browser.call("Target.closeTarget", targetId=self._target)
