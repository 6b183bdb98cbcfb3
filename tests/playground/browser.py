"""A browser without a window, driven by the protocol of its driver: what the tests of the page need."""

import base64
import json
import os
import subprocess
import time
import urllib.error
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
CONTROL, ENTER, ESCAPE, TAB = "\ue009", "\ue007", "\ue00c", "\ue004"


class BrowserError(Exception):
    pass


class Browser:
    def __init__(self):
        self.driver = subprocess.Popen(
            ["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True
        )
        port = None
        for line in self.driver.stdout:
            if "successfully on port" in line:
                port = line.rstrip(".\n").rsplit(" ", 1)[1]
                break
        self.base = f"http://127.0.0.1:{port}"
        arguments = ["--headless=new", "--disable-gpu", "--disable-dev-shm-usage"]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")  # it refuses to have one there
        made = self.send(
            "POST",
            "/session",
            {"capabilities": {"alwaysMatch": {"goog:chromeOptions": {"args": arguments}}}},
        )
        self.base += f"/session/{made['sessionId']}"

    def close(self):
        try:
            self.send("DELETE", "", None)
        finally:
            self.driver.terminate()
            self.driver.wait()
            self.driver.stdout.close()

    def send(self, method, path, body):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, method=method)
        try:
            with urllib.request.urlopen(request, timeout=600) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise BrowserError(json.load(error)["value"]["message"]) from None

    def open(self, address):
        # The same page with another fragment would not be loaded anew.
        self.send("POST", "/url", {"url": "about:blank"})
        self.send("POST", "/url", {"url": address})

    def js(self, script, *arguments):
        """Runs the body of a function, which may await, and gives what it returns."""
        return self.send(
            "POST",
            "/execute/async",
            {
                "script": "const done = arguments[arguments.length - 1];"
                f"(async (...args) => {{ {script} }})(...Array.from(arguments).slice(0, -1))"
                ".then(done, (error) => done('FAILED ' + error));",
                "args": list(arguments),
            },
        )

    def set_timeout(self, seconds):
        self.send("POST", "/timeouts", {"script": int(seconds * 1000)})

    def wait(self, condition, seconds=20):
        """Waits until an expression of the page holds, and gives its value."""
        end = time.monotonic() + seconds
        while True:
            value = self.js(f"return {condition}")
            if value:
                return value
            if time.monotonic() > end:
                state = self.js("return document.body.innerText.slice(0, 2000)")
                raise AssertionError(f"never true: {condition}\n{state}")
            time.sleep(0.05)

    def element(self, selector):
        return self.send("POST", "/element", {"using": "css selector", "value": selector})[ELEMENT]

    def click(self, selector):
        self.send("POST", f"/element/{self.element(selector)}/click", {})

    def type(self, selector, text):
        """Types at an element; it takes keys such as CONTROL, which is held to the end."""
        self.send("POST", f"/element/{self.element(selector)}/value", {"text": text})

    def keys(self, text):
        """Presses keys, one after the other, wherever the focus is; CONTROL is held to the end."""
        actions = [{"type": "keyDown", "value": key} for key in text if key == CONTROL]
        for key in text.replace(CONTROL, ""):
            actions += [{"type": "keyDown", "value": key}, {"type": "keyUp", "value": key}]
        if CONTROL in text:
            actions.append({"type": "keyUp", "value": CONTROL})
        self.send("POST", "/actions", {"actions": [{"type": "key", "id": "keys", "actions": actions}]})

    def label(self, selector):
        """What a screen reader calls an element."""
        return self.send("GET", f"/element/{self.element(selector)}/computedlabel", None)

    def role(self, selector):
        return self.send("GET", f"/element/{self.element(selector)}/computedrole", None)

    def command(self, name, **parameters):
        """A command of the browser's own protocol."""
        return self.send("POST", "/goog/cdp/execute", {"cmd": name, "params": parameters})

    def set_size(self, width, height):
        self.command(
            "Emulation.setDeviceMetricsOverride",
            width=width,
            height=height,
            deviceScaleFactor=1,
            mobile=False,
        )

    def set_dark(self, is_dark):
        value = "dark" if is_dark else "light"
        self.command(
            "Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": value}]
        )

    def picture(self):
        return base64.b64decode(self.send("GET", "/screenshot", None))
