"""A headless Chromium, driven through ChromeDriver's HTTP interface (W3C WebDriver), and the server that it visits."""
import base64
import json
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

ARGUMENTS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--disable-quic",
             "--no-first-run", "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--disable-default-apps", "--disable-extensions", "--hide-scrollbars",
             # Names lead nowhere, so that nothing leaves this machine even without a network of its own.
             "--host-resolver-rules=MAP * ~NOTFOUND , EXCLUDE 127.0.0.1"]
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # how WebDriver marks an element
TIME_LIMIT_SECONDS = 20


class PageServer:
    """page_server with one of its sources."""

    def __init__(self, program, source):
        self._process = subprocess.Popen([program, source], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        word, self.url = self._process.stdout.readline().split()
        assert word == "ready"

    def order(self, line):
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()
        assert self._process.stdout.readline() == "done\n"

    def get(self, path, fields=None):
        """Status, header fields and body of an answer."""
        request = urllib.request.Request(self.url + path, headers=fields or {})
        try:
            with urllib.request.urlopen(request, timeout=TIME_LIMIT_SECONDS) as answer:
                return answer.status, answer.headers, answer.read()
        except urllib.error.HTTPError as error:
            with error:
                return error.code, error.headers, error.read()

    def close(self):
        self._process.stdin.close()
        self._process.stdout.close()
        status = self._process.wait(TIME_LIMIT_SECONDS)
        if status != 0:
            raise RuntimeError(f"page_server ended with {status}")


class Browser:
    """One browser with one page. Ends with close()."""

    def __init__(self):
        self._profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self._driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True)
        self._address = f"http://127.0.0.1:{self._read_port()}"
        options = {"args": ARGUMENTS + ["--user-data-dir=" + self._profile.name]}
        capabilities = {"browserName": "chrome", "goog:chromeOptions": options,
                        "goog:loggingPrefs": {"performance": "ALL", "browser": "ALL"}}
        session = self._send("POST", "/session", {"capabilities": {"alwaysMatch": capabilities}})
        self._session = "/session/" + session["sessionId"]

    def _read_port(self):
        for line in self._driver.stdout:
            if "started successfully on port" in line:
                return int(line.rsplit(None, 1)[1].rstrip("."))
        raise RuntimeError("ChromeDriver ended")

    def _send(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        fields = {"Content-Type": "application/json"}
        request = urllib.request.Request(self._address + path, data, fields, method=method)
        try:
            with urllib.request.urlopen(request, timeout=TIME_LIMIT_SECONDS) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            with error:
                raise RuntimeError(json.load(error)["value"]["message"]) from None

    def post(self, path, body):
        return self._send("POST", self._session + path, body)

    def close(self):
        try:
            self._send("DELETE", self._session)
        finally:
            self._driver.terminate()
            self._driver.wait(TIME_LIMIT_SECONDS)
            self._driver.stdout.close()
            self._profile.cleanup()

    def open(self, url):
        self.post("/url", {"url": url})

    def run(self, script, *arguments):
        """The value that a script returns in the page."""
        return self.post("/execute/sync", {"script": script, "args": list(arguments)})

    def wait_until(self, script, *arguments):
        """Waits until a script returns what counts as true, and gives that."""
        end = time.monotonic() + TIME_LIMIT_SECONDS
        while time.monotonic() < end:
            value = self.run(script, *arguments)
            if value:
                return value
            time.sleep(0.02)
        raise AssertionError("never true: " + script)

    def find(self, selector):
        return self.post("/element", {"using": "css selector", "value": selector})

    def click(self, selector):
        self.post(f"/element/{self.find(selector)[ELEMENT]}/click", {})

    def type(self, selector, keys):
        self.post(f"/element/{self.find(selector)[ELEMENT]}/value", {"text": keys})

    def point(self, x, y):
        """Moves the mouse to a place of the window."""
        move = {"type": "pointerMove", "duration": 0, "x": round(x), "y": round(y), "origin": "viewport"}
        self.post("/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": [move]}]})

    def devtools(self, command, **parameters):
        return self.post("/goog/cdp/execute", {"cmd": command, "params": parameters})

    def set_window(self, width, scheme="light"):
        """Width in pixels, "light" or "dark"."""
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1, mobile=False)
        self.devtools("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def allow_script(self, is_allowed):
        """Whether pages may run scripts; it has to be set before a page is opened."""
        self.devtools("Emulation.setScriptExecutionDisabled", value=not is_allowed)

    def set_language(self, language):
        """What the browser asks for; it has to be set before a page is opened."""
        self.devtools("Network.enable")
        self.devtools("Network.setExtraHTTPHeaders", headers={"Accept-Language": language} if language else {})

    def picture(self, width, height=None):
        """A PNG of the page from its top, as high as the page unless a height is given."""
        size = self.devtools("Page.getLayoutMetrics")["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": width, "height": height or size["height"], "scale": 1}
        shot = self.devtools("Page.captureScreenshot", captureBeyondViewport=True, clip=clip)
        return base64.b64decode(shot["data"])

    def take_log(self, kind):
        """Entries since the last call: "browser" (console) or "performance" (events of the network and more)."""
        return self.post("/se/log", {"type": kind})

    def take_requests(self):
        """The addresses that pages asked for since the last call."""
        events = [json.loads(entry["message"])["message"] for entry in self.take_log("performance")]
        return [event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"]
