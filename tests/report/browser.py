"""A headless Chromium, driven over the WebDriver protocol (W3C) that chromedriver speaks."""

import base64
import json
import os
import shutil
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.request


class Browser:
    """Used in a with statement. The browser has no network but the files of this machine."""

    def __init__(self, width=1400, height=1000, dark=False):
        self.directory = tempfile.TemporaryDirectory(prefix="h264tool-browser-")
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        self.address = "http://127.0.0.1:%d" % port
        self.driver = subprocess.Popen([shutil.which("chromedriver"), "--port=%d" % port], stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL, env=dict(os.environ, HOME=self.directory.name))
        options = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                   "--disable-background-networking", "--host-resolver-rules=MAP * ~NOTFOUND , EXCLUDE 127.0.0.1",
                   "--window-size=%d,%d" % (width, height), "--user-data-dir=" + self.directory.name]
        if dark:
            options.append("--blink-settings=preferredColorScheme=0")
        capabilities = {"browserName": "chrome", "goog:loggingPrefs": {"browser": "ALL"},
                        "goog:chromeOptions": {"binary": shutil.which("chromium"), "args": options}}
        self.session = ""
        try:
            self._wait_for_driver()
            answer = self._call("POST", "", {"capabilities": {"alwaysMatch": capabilities}})
            self.session = "/" + answer["sessionId"]
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.close()

    def close(self):
        if self.session:
            self._call("DELETE", "", None)
        self.driver.terminate()
        self.driver.wait(30)
        self.directory.cleanup()

    def _wait_for_driver(self):
        for _ in range(300):
            try:
                with urllib.request.urlopen(self.address + "/status", timeout=10):
                    return
            except (urllib.error.URLError, ConnectionError):
                time.sleep(0.1)
        raise RuntimeError("chromedriver does not answer")

    def _call(self, method, path, body):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.address + "/session" + self.session + path, data=data, method=method,
                                         headers={"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from error

    def open(self, path):
        """Opens a file; returns the seconds until its scripts have run."""
        begin = time.monotonic()
        self._call("POST", "/url", {"url": "file://" + path})
        return time.monotonic() - begin

    def run(self, script, *arguments):
        """The result of the body of a JavaScript function."""
        return self._call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def _pointer(self, *actions):
        self._call("POST", "/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": list(actions)}]})

    def move(self, x, y):
        self._pointer({"type": "pointerMove", "x": round(x), "y": round(y), "duration": 0})

    def drag(self, x, y, to_x):
        self._pointer({"type": "pointerMove", "x": round(x), "y": round(y), "duration": 0},
                      {"type": "pointerDown", "button": 0},
                      {"type": "pointerMove", "x": round((x + to_x) / 2), "y": round(y), "duration": 20},
                      {"type": "pointerMove", "x": round(to_x), "y": round(y), "duration": 20},
                      {"type": "pointerUp", "button": 0})

    def log(self):
        """What the console has said since the last call."""
        return [(entry["level"], entry["message"]) for entry in self._call("POST", "/se/log", {"type": "browser"})]

    def screenshot(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self._call("GET", "/screenshot", None)))
