# The package in a browser: pictures of a page have the bytes of the Python package.
import functools
import http.server
import json
import os
import pathlib
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "browser"))
from webdriver import Browser  # noqa: E402

package, expected, chromium, chromedriver = sys.argv[1:5]

PAGE = """<!doctype html><meta charset="utf-8"><title>working</title><script type="module">
import * as ko from "./package/index.js";

async function picture(name, width, height) {
    const colours = new Uint8Array(await (await fetch(`expected/${name}.raw`)).arrayBuffer());
    const image = new ImageData(width, height);
    for (let from = 0, to = 0; from < colours.length; from += 3, to += 4) {
        image.data.set([colours[from], colours[from + 1], colours[from + 2], 255], to);
    }
    return image;
}

async function summed(image) {
    const colours = image.data.filter((_, i) => i % 4 !== 3);
    const sum = new Uint8Array(await crypto.subtle.digest("SHA-256", colours));
    return Array.from(sum, (byte) => byte.toString(16).padStart(2, "0")).join("");
}

async function results(sizes) {
    const rocket = await picture("rocket.jpg", ...sizes["rocket.jpg"]);
    const face = await picture("face.jpg", ...sizes["face.jpg"]);
    const found = {};
    for (const simd of [true, false]) {
        ko.configure({simd});
        const stages = [];
        const {pixels, decision} = await ko.enhance(rocket, {onProgress: (stage) => stages.push(stage)});
        const eyes = await ko.redeye(face);
        found[simd ? "simd" : "plain"] = {
            isImageData: pixels instanceof ImageData, decision, stages: [...new Set(stages)], enhanced: await summed(pixels),
            repaired: await summed(eyes.pixels),
        };
    }
    const controller = new AbortController();
    const running = ko.enhance(rocket, {signal: controller.signal});
    controller.abort();
    found.aborted = await running.catch((error) => error.name);
    found.after = (await ko.enhance(rocket)).decision;
    found.damaged = await ko.Curves.load(new Uint8Array(9)).catch((error) => error.name);
    return found;
}

fetch("expected/sizes.json").then((response) => response.json()).then(results).catch((error) => ({error: String(error.stack)}))
    .then((found) => {
        window.found = found;
        document.title = "done";
    });
</script>"""


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    extensions_map = {".js": "text/javascript", ".wasm": "application/wasm", ".html": "text/html", "": "application/octet-stream"}

    def log_message(self, *arguments):
        pass


class PackageTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="ko-web-")
        self.addCleanup(self.folder.cleanup)
        root = pathlib.Path(self.folder.name)
        (root / "package").symlink_to(os.path.abspath(package))
        (root / "expected").mkdir()
        self.pictures = {one["name"]: one for one in json.loads((pathlib.Path(expected) / "expected.json").read_text())}
        for name in ("rocket.jpg", "face.jpg"):
            (root / "expected" / f"{name}.raw").symlink_to(os.path.abspath(f"{expected}/{name}.raw"))
        sizes = {name: [one["width"], one["height"]] for name, one in self.pictures.items()}
        (root / "expected" / "sizes.json").write_text(json.dumps(sizes))
        (root / "index.html").write_text(PAGE)
        handler = functools.partial(QuietHandler, directory=self.folder.name)
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.addCleanup(self.server.server_close)
        self.addCleanup(self.server.shutdown)
        self.browser = Browser(chromium, chromedriver)
        self.addCleanup(self.browser.close)

    def found(self):
        url = f"http://localhost:{self.server.server_port}/index.html"
        self.browser.call("POST", self.browser.session + "/url", {"url": url})
        end = time.monotonic() + 60
        while time.monotonic() < end and self.browser.run("return document.title") != "done":
            time.sleep(0.1)
        return self.browser.run("return window.found || {error: 'no answer'}")

    def result_of(self, name, call):
        return next(one["result"] for one in self.pictures[name]["calls"] if one["call"] == call and not one["options"])

    def test_page(self):
        found = self.found()
        self.assertNotIn("error", found, found.get("error"))
        for module in ("simd", "plain"):
            self.assertTrue(found[module]["isImageData"])
            self.assertEqual(found[module]["decision"], "enhanced")
            self.assertEqual(found[module]["stages"], ["reading", "judging", "applying"])
            self.assertEqual(found[module]["enhanced"], self.result_of("rocket.jpg", "enhance")["pixels"])
            self.assertEqual(found[module]["repaired"], self.result_of("face.jpg", "redeye")["pixels"])
        self.assertEqual(found["aborted"], "AbortError")
        self.assertEqual(found["after"], "enhanced")
        self.assertEqual(found["damaged"], "KoError")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
