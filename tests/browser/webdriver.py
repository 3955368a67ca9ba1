# A browser without a window, driven over the WebDriver protocol by nothing but Python's own library.
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"

KEYS = {"Home": "\ue011", "End": "\ue010", "Left": "\ue012", "Up": "\ue013", "Right": "\ue014", "Down": "\ue015",
        "Tab": "\ue004", "Enter": "\ue007"}


class Browser:
    def __init__(self, chromium, chromedriver):
        self.folder = tempfile.mkdtemp(prefix="ko-browser-")
        self.log = open(os.path.join(self.folder, "driver.log"), "w+")
        self.driver = subprocess.Popen([chromedriver, "--port=0"], stdout=self.log, stderr=subprocess.STDOUT,
                                       start_new_session=True, env={**os.environ, "HOME": self.folder})
        try:
            self.server = "http://127.0.0.1:%d" % self.port()
            arguments = ["--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-background-networking",
                         "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
                         "--window-size=1280,900", "--user-data-dir=" + os.path.join(self.folder, "profile")]
            wanted = {"browserName": "chrome", "goog:chromeOptions": {"binary": chromium, "args": arguments},
                      "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}
            session = self.call("POST", "/session", {"capabilities": {"alwaysMatch": wanted}})
            self.session = "/session/" + session["sessionId"]
        except BaseException:
            self.close()
            raise

    # The driver chooses a port that is free and writes it.
    def port(self, patience=20):
        end = time.monotonic() + patience
        while time.monotonic() < end:
            with open(self.log.name) as log:
                found = re.search(r"started successfully on port (\d+)", log.read())
            if found:
                return int(found.group(1))
            time.sleep(0.05)
        raise RuntimeError("the driver of the browser does not start")

    def call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.server + path, data, {"Content-Type": "application/json"}, method=method)
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from None

    def close(self):
        if hasattr(self, "session"):
            self.call("DELETE", self.session)
        os.killpg(self.driver.pid, signal.SIGTERM)
        self.driver.wait()
        self.log.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def open(self, path):
        self.call("POST", self.session + "/url", {"url": "file://" + path})

    # Runs the body of a function in the page; gives its result.
    def run(self, script, *arguments):
        return self.call("POST", self.session + "/execute/sync", {"script": script, "args": list(arguments)})

    def find(self, selector):
        return self.call("POST", self.session + "/element", {"using": "css selector", "value": selector})[ELEMENT]

    def click(self, selector):
        self.call("POST", "%s/element/%s/click" % (self.session, self.find(selector)), {})

    def role(self, selector):
        return self.call("GET", "%s/element/%s/computedrole" % (self.session, self.find(selector)))

    def label(self, selector):
        return self.call("GET", "%s/element/%s/computedlabel" % (self.session, self.find(selector)))

    def text(self, selector):
        return self.run("return document.querySelector(arguments[0]).textContent", selector)

    def press(self, *keys):
        steps = []
        for key in keys:
            steps += [{"type": kind, "value": KEYS.get(key, key)} for kind in ("keyDown", "keyUp")]
        self.act({"type": "key", "id": "keyboard", "actions": steps})

    # Puts a pointer, "mouse" or "touch", down at the first place and draws it over the others, in pixels of the window.
    def drag(self, kind, *places):
        moves = [{"type": "pointerMove", "duration": 30, "x": round(x), "y": round(y)} for x, y in places]
        steps = [moves[0], {"type": "pointerDown", "button": 0}, *moves[1:], {"type": "pointerUp", "button": 0}]
        self.act({"type": "pointer", "id": kind, "parameters": {"pointerType": kind}, "actions": steps})

    def act(self, source):
        self.call("POST", self.session + "/actions", {"actions": [source]})

    # A command of the browser's own protocol.
    def command(self, name, **parameters):
        return self.call("POST", self.session + "/goog/cdp/execute", {"cmd": name, "params": parameters})

    def logged(self, kind):
        return self.call("POST", self.session + "/se/log", {"type": kind})

    def console(self):
        return [entry["message"] for entry in self.logged("browser")]

    # Addresses that were asked for, of any scheme, since this was last called.
    def requests(self):
        messages = [json.loads(entry["message"])["message"] for entry in self.logged("performance")]
        return [message["params"]["request"]["url"] for message in messages
                if message["method"] == "Network.requestWillBeSent"]
