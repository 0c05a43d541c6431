"""Debian's Chromium without a screen, driven over WebDriver: what a test of the page needs of it."""

import http.client
import json
import os
import subprocess
import tempfile

from desk import PATIENCE, wait_until

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the name of an element's id in the protocol
ENTER, TAB = "\ue007", "\ue004"


class Browser:
    """One window; stop() closes it. Scripts are bodies of functions whose return value comes back."""

    def __init__(self, width=1280, height=1000, options=()):
        self.home = tempfile.TemporaryDirectory(prefix="kzpage")
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                       text=True, env={**os.environ, "HOME": self.home.name})
        line = next(line for line in self.driver.stdout if "successfully on port" in line)
        self.port = int(line.rsplit("on port ", 1)[1].strip(" .\n"))
        # Root has no sandbox, and a world has little shared memory and no graphics.
        arguments = ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu", *options,
                     f"--window-size={width},{height}", f"--user-data-dir={self.home.name}/profile"]
        session = self.ask("POST", "/session", {"capabilities": {"alwaysMatch": {
            "goog:chromeOptions": {"args": arguments}, "goog:loggingPrefs": {"browser": "ALL"}}}})
        self.session = "/session/" + session["sessionId"]

    def ask(self, method, path, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=3 * PATIENCE)
        connection.request(method, path, None if method != "POST" else json.dumps(body or {}))
        value = json.loads(connection.getresponse().read())["value"]
        connection.close()
        if isinstance(value, dict) and "error" in value:
            raise AssertionError(f"{path}: {value['error']}: {value['message']}")
        return value

    def open(self, url):
        self.ask("POST", self.session + "/url", {"url": url})

    def run(self, script, *arguments):
        return self.ask("POST", self.session + "/execute/sync", {"script": script, "args": arguments})

    def wait(self, what, script, *arguments):
        """What the script returns as soon as that is something."""
        return wait_until(what, lambda: self.run(script, *arguments))

    def press(self, keys):
        actions = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.ask("POST", self.session + "/actions", {"actions": [{"type": "key", "id": "keys", "actions": actions}]})

    def click(self, selector):
        element = self.ask("POST", self.session + "/element", {"using": "css selector", "value": selector})[ELEMENT]
        self.ask("POST", f"{self.session}/element/{element}/click")

    def narrow(self, width):
        """Shows the page that wide, which a window without a screen does not become by itself."""
        self.ask("POST", self.session + "/goog/cdp/execute", {"cmd": "Emulation.setDeviceMetricsOverride", "params": {
            "width": width, "height": 800, "deviceScaleFactor": 1, "mobile": True}})

    def complaints(self):
        """What the console has said since the last time that is worse than information."""
        lines = self.ask("POST", self.session + "/se/log", {"type": "browser"})
        return [line["message"] for line in lines if line["level"] in ("WARNING", "SEVERE")]

    def stop(self):
        self.ask("DELETE", self.session)
        self.driver.terminate()
        self.driver.wait(PATIENCE)
        self.driver.stdout.close()
        self.home.cleanup()
