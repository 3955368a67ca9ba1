# The page of a run, as a browser shows it: the program writes pages, and they are used by mouse, touch and keys.
import os
import shutil
import struct
import sys
import tempfile
import unittest
import zlib
from subprocess import run

from webdriver import Browser

program, samples, chromium, chromedriver = sys.argv[1:5]

NAMES = ["<img src=x onerror=window.hit=1>.png", "two\nlines & \"quotes\".png", "</script><script>window.hit=1</script>.png"]


def png_file(width, height, colour_of):
    rows = b"".join(b"\0" + bytes(sample for x in range(width) for sample in colour_of(x, y)) for y in range(height))
    chunk = lambda kind, data: struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")


# Reproducible noise of a pixel.
def scatter(x, y):
    mixed = (x * 73856093 ^ y * 19349663) * 2654435761 & 0xffffffff
    return ((mixed ^ mixed >> 15) * 2246822519 & 0xffffffff) >> 16


EYES = ((60, 60, 7, 0), (140, 100, 7, 30), (230, 60, 8, 60), (311, 150, 7, 0))


# Red discs in front of something like skin, the rougher the farther to the right, and one at the edge.
def eyes(x, y):
    rough = 0
    for column, row, radius, roughness in EYES:
        distance = ((x - column) ** 2 + (y - row) ** 2) ** 0.5
        if distance < radius:
            return tuple(level + scatter(x, y) % 4 for level in (190, 30, 40))
        rough = roughness if distance < 3 * radius else rough
    return tuple(level + (scatter(x, y) % rough if rough else 0) for level in (160, 150, 130))


# A model whose scores rise as patches get smoother.
def write_model(stem):
    dimension, rows = 384, 128
    projection = struct.pack("<3I", 1, rows, dimension) + bytes(4 * (rows + dimension))
    projection += struct.pack("<f", 0.01) * dimension + bytes(4 * (rows - 1) * dimension)
    classifier = struct.pack("<If", rows, 71.0) + struct.pack("<f", 5.0) * rows
    values = ["24", "8", "4", "0.125", "0", "1.0", "0.6", "0.5", "0.0001", "0.7", "0.3", "0.7", "0.3",
              os.path.basename(stem) + ".projection", os.path.basename(stem)]
    for ending, content in ((".projection", projection), ("_RE_FE", classifier), ("_RE_BE", classifier),
                            (".cfg", "".join("caption\n%s\n" % value for value in values).encode())):
        with open(stem + ending, "wb") as file:
            file.write(content)
    return stem + ".cfg"


class ReportPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="ko-page-")
        cls.page = cls.make("page.html", "enhance", cls.inputs())
        model = write_model(cls.path("model"))
        cls.eyes = cls.make("eyes.html", "redeye", [cls.put("eyes.png", png_file(320, 200, eyes))], "--plain", "--model", model)
        cls.scored = cls.make("scored.html", "redeye", [cls.path("eyes.png")], "--model", model)
        cls.browser = Browser(chromium, chromedriver)

    @classmethod
    def tearDownClass(cls):
        if hasattr(cls, "browser"):
            cls.browser.close()
        shutil.rmtree(cls.folder)

    @classmethod
    def path(cls, name):
        return os.path.join(cls.folder, name)

    @classmethod
    def put(cls, name, content):
        os.makedirs(os.path.dirname(cls.path(name)), exist_ok=True)
        with open(cls.path(name), "wb") as file:
            file.write(content)
        return cls.path(name)

    # Photographs, one that gains nothing, one that is none, and names that try to be more than that.
    @classmethod
    def inputs(cls):
        bright = png_file(64, 64, lambda x, y: (200, 200, 200))
        dark = png_file(64, 64, lambda x, y: (x * y % 90, (x * 3 + y) % 80, (x + y * 5) % 70))
        photographs = [os.path.join(samples, name) for name in ("astronaut.png", "rocket.jpg")]
        return photographs + [cls.put("bright.png", bright), cls.put("bad.png", b"none")] + [cls.put(n, dark) for n in NAMES]

    @classmethod
    def make(cls, page, command, inputs, *options):
        os.makedirs(cls.path("out"), exist_ok=True)
        run([program, command, "-q", "-o", cls.path("out"), "--report", cls.path(page), *options, "--", *inputs],
            capture_output=True, check=False)
        return cls.path(page)

    def setUp(self):
        self.window(1200, 900)
        self.media("light")
        self.browser.call("POST", self.browser.session + "/url", {"url": "about:blank"})
        self.browser.console(), self.browser.requests()
        self.browser.open(self.page)

    # No test may leave a complaint of the browser, or ask for anything beyond the page.
    def tearDown(self):
        self.assertEqual(self.browser.console(), [])
        for address in self.browser.requests():
            self.assertRegex(address, r"^(file://" + self.folder + r"/[a-z]+\.html$|data:image/jpeg;base64,|about:blank$)")

    def window(self, width, height, mobile=False):
        self.browser.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                             mobile=mobile)

    def media(self, scheme):
        self.browser.command("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def split(self):
        return self.browser.run("return parseFloat(document.querySelector('.compare').style.getPropertyValue('--split'))")

    # Left, top, width and height of the part of an element that is on the screen.
    def frame(self, selector):
        return self.browser.run("const element = document.querySelector(arguments[0]); element.scrollIntoView({block: 'center'});"
                                "const box = element.getBoundingClientRect(); return [box.x, box.y, box.width, box.height]",
                                selector)

    def at(self, selector, *shares):
        left, top, width, height = self.frame(selector)
        return [(left + x * width, top + y * height) for x, y in shares]

    # ---- the slider

    def test_slider_by_mouse(self):
        self.assertEqual(self.split(), 50)
        self.browser.drag("mouse", *self.at(".compare", (0.5, 0.5), (0.3, 0.4), (0.2, 0.4)))
        self.assertAlmostEqual(self.split(), 20, delta=1)
        self.browser.drag("mouse", *self.at(".compare", (0.9, 0.2)))
        self.assertAlmostEqual(self.split(), 90, delta=1)

    def test_slider_follows_the_mouse_past_its_ends(self):
        (left, top), (right, _) = self.at(".compare", (0.5, 0.5), (1.0, 0.5))
        self.browser.drag("mouse", (left, top), (right + 30, top))
        self.assertEqual(self.split(), 100)

    def test_slider_by_touch(self):
        self.window(390, 844, mobile=True)
        self.browser.drag("touch", *self.at(".compare", (0.5, 0.5), (0.6, 0.5), (0.75, 0.5)))
        self.assertAlmostEqual(self.split(), 75, delta=2)

    def test_slider_by_keys(self):
        self.browser.run("document.querySelector('.compare input').focus()")
        for key, expected in (("Home", 0), ("Right", 1), ("End", 100), ("Left", 99)):
            self.browser.press(key)
            self.assertEqual(self.split(), expected, key)

    def test_slider_uncovers_the_picture_before(self):
        visible = ("const layer = document.querySelector('.layer'), box = layer.getBoundingClientRect();"
                   "return getComputedStyle(layer).clipPath")
        self.browser.run("document.querySelector('.compare input').focus()")
        self.browser.press("Home")
        self.assertIn("100%", self.browser.run(visible))
        self.browser.press("End")
        self.assertNotIn("100%", self.browser.run(visible))

    def test_slider_has_a_name(self):
        self.assertEqual(self.browser.role(".compare input"), "slider")
        self.assertIn("before", self.browser.label(".compare input"))
        self.assertEqual(self.browser.run("return document.querySelector('.compare input').getAttribute('aria-valuetext')"),
                         "50 % of the picture before")

    # ---- pictures

    def test_pictures_are_decoded_when_their_row_is_open(self):
        self.assertEqual(self.browser.run("return document.querySelectorAll('.body').length"), 1)
        self.browser.click("#picture-2 summary")
        # The row is filled after the click, when the browser comes to it.
        loaded = "const images = () => [...document.querySelectorAll('#picture-2 .compare img')]; " \
                 "const filled = () => images().length ? images() : new Promise((done) => setTimeout(done, 20)).then(filled); " \
                 "return filled().then ? filled().then(decoded) : decoded(filled()); " \
                 "function decoded(found) { return Promise.all(found.map((image) => image.decode()))" \
                 ".then(() => found.map((image) => image.naturalWidth)); }"
        self.assertEqual(self.browser.run(loaded), [612, 612])
        self.browser.click("#picture-2 summary")
        self.browser.run("return new Promise((done) => setTimeout(done, 50))")
        self.assertEqual(self.browser.run("return document.querySelectorAll('#picture-2 .body').length"), 0)

    def test_a_picture_left_alone_stands_once(self):
        self.browser.run("document.querySelector('#picture-3').open = true; return new Promise((done) => setTimeout(done, 50))")
        counts = "return ['.compare img', '.compare input', '.curves', '.heat'].map(" \
                 "(part) => document.querySelectorAll('#picture-3 ' + part).length)"
        self.assertEqual(self.browser.run(counts), [1, 0, 0, 3])

    def test_names_are_text(self):
        shown = self.browser.run("return [...document.querySelectorAll('.name')].map((name) => name.lastChild.textContent)")
        self.assertEqual(shown[4], NAMES[0])
        self.assertEqual(shown[5], NAMES[1].replace("\n", "\\x0a"))
        self.assertTrue(NAMES[2].endswith(shown[6]))
        self.assertEqual(len(shown), 7)
        self.browser.run("document.querySelectorAll('.entry').forEach((entry) => entry.open = true);"
                         "return new Promise((done) => setTimeout(done, 200))")
        self.assertEqual(self.browser.run("return document.querySelectorAll('.body').length"), 7)
        self.assertIsNone(self.browser.run("return window.hit"))

    # ---- curves

    def curve(self):
        return self.browser.run("return document.querySelector('.plot .curve').getAttribute('d')")

    def selected(self):
        return self.browser.run("return [...document.querySelectorAll('.tiles [aria-selected=true]')]"
                                ".map((tile) => tile.getAttribute('aria-label'))")

    def test_tiles_by_mouse_and_keys(self):
        self.assertEqual(self.browser.run("return document.querySelectorAll('.tiles button').length"), 64)
        self.browser.click(".tiles [role=row]:nth-of-type(2) button:nth-child(5)")
        self.assertEqual(self.selected(), ["Column 5, row 2"])
        seen = {self.curve()}
        for key, expected in (("Down", "Column 5, row 3"), ("Left", "Column 4, row 3"), ("End", "Column 8, row 3"),
                              ("Right", "Column 8, row 3"), ("Home", "Column 1, row 3"), ("Up", "Column 1, row 2")):
            self.browser.press(key)
            self.assertEqual(self.selected(), [expected])
            self.assertEqual(self.browser.run("return document.activeElement.getAttribute('aria-label')"), expected)
            seen.add(self.curve())
        self.assertGreater(len(seen), 4)
        self.assertTrue(self.browser.text(".plot p").startswith("Column 1, row 2: "))

    def test_the_large_curve_is_drawn_to_its_axes(self):
        points = [tuple(map(float, point.split())) for point in self.curve()[1:].split("L")]
        self.assertEqual(len(points), 256)
        texts = "return [...document.querySelectorAll('.plot text')].map((text) => text.textContent)"
        self.assertEqual(set(self.browser.run(texts)), {"0", "64", "128", "192", "255", "Input level", "Output level"})
        self.assertAlmostEqual(points[-1][0] - points[0][0], 272, delta=0.2)
        identity = self.browser.run("return document.querySelector('.plot .identity').getAttribute('d')")
        start, end = (tuple(map(float, point.split())) for point in (identity[1:].split("L")[i] for i in (0, -1)))
        self.assertAlmostEqual(start[1] - end[1], 272, delta=0.2)
        self.assertTrue(any(y < start[1] - (x - start[0]) - 5 for x, y in points), "a lift lies above the identity")
        self.assertEqual(self.browser.role(".plot svg"), "image")
        self.assertIn("greatest lift", self.browser.label(".plot svg"))

    # ---- measures

    def test_marked_blocks_are_those_that_are_counted(self):
        maps = self.browser.run("return [...document.querySelectorAll('#picture-1 .heat')].map((map) => ["
                                "map.caption.textContent, map.querySelectorAll('td').length, map.querySelectorAll('.past').length])")
        self.assertEqual(len(maps), 3)
        for caption, blocks, marked in maps:
            self.assertEqual(blocks, 64)
            self.assertRegex(caption, r"[a-z]%d of 64 blocks " % marked)
        self.assertGreater(maps[0][2], 0)

    # ---- red eyes

    def test_red_eyes_are_boxed_in_the_picture_before(self):
        self.browser.open(self.eyes)
        boxes = self.browser.run("const stage = document.querySelector('.compare').getBoundingClientRect();"
                                 "return [...document.querySelectorAll('.layer .place')].map((place) => {"
                                 "const box = place.getBoundingClientRect();"
                                 "return [place.textContent.replace(/^\\d+ /, ''), (box.x + box.width / 2 - stage.x) / stage.width]})")
        places = sorted(boxes, key=lambda box: box[1])
        self.assertEqual([label for label, _ in places], ["accepted", "undecided", "rejected", "not judged"])
        for (_, middle), centre in zip(places, EYES):
            self.assertAlmostEqual(middle, centre[0] / 320, delta=0.02)
        self.assertEqual(self.browser.run("return document.querySelectorAll('.places tbody tr').length"), 4)

    def test_places_show_their_scores(self):
        self.browser.open(self.scored)
        labels = self.browser.run("return [...document.querySelectorAll('.layer .place')].map((place) => place.textContent)")
        rows = self.browser.run("return [...document.querySelectorAll('.places tbody tr')].map((row) => "
                                "[...row.cells].map((cell) => cell.textContent))")
        self.assertEqual(len(labels), 4)
        for label, (number, name, score, _, _) in zip(labels, rows):
            self.assertEqual(label, f"{number} {name} {float(score) * 100:.0f} %")

    # ---- the page

    def test_rows_are_chosen_by_outcome_and_name(self):
        shown = "return [...document.querySelectorAll('.entry')].filter((entry) => !entry.hidden).map((entry) => entry.id)"
        self.browser.run("[...document.querySelectorAll('.filter button')].find((b) => b.textContent === 'failed').click()")
        self.assertEqual(self.browser.run(shown), ["picture-4"])
        self.browser.run("document.querySelector('.filter button').click()")
        self.browser.run("document.querySelector('.filter input').focus()")
        self.browser.press(*"ROCK")
        self.assertEqual(self.browser.run(shown), ["picture-2"])
        self.assertEqual(self.browser.text(".filter output"), "1 of 7")

    def test_a_summary_comes_first(self):
        cells = self.browser.run("return [...document.querySelectorAll('.summary tbody tr')].map((row) => row.innerText.trim())")
        counts = dict((cell.rsplit(None, 1)[0], int(cell.rsplit(None, 1)[1])) for cell in cells)
        self.assertEqual(counts["failed"], 1)
        self.assertEqual(sum(counts.values()), 7)
        self.assertEqual(self.browser.role(".summary"), "table")

    def test_it_fits_a_phone(self):
        self.window(360, 740, mobile=True)
        self.browser.open(self.page)
        self.browser.run("document.querySelectorAll('.entry').forEach((entry) => entry.open = true);"
                         "return new Promise((done) => setTimeout(done, 100))")
        self.assertEqual(self.browser.run("return document.documentElement.scrollWidth"), 360)

    def test_it_is_light_and_dark(self):
        ground = "return getComputedStyle(document.body).backgroundColor.match(/\\d+/g).map(Number)"
        self.assertGreater(min(self.browser.run(ground)), 200)
        self.media("dark")
        self.assertLess(max(self.browser.run(ground)), 60)

    def test_its_policy_lets_no_other_script_run(self):
        self.browser.run("const script = document.createElement('script'); script.textContent = 'window.hit = 1';"
                         "document.body.append(script)")
        self.assertIsNone(self.browser.run("return window.hit"))
        complaints = self.browser.console()
        self.assertEqual(len(complaints), 1, complaints)
        self.assertIn("Content Security Policy", complaints[0])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
