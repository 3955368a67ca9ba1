"""The program on each system: the same pixels give the same answers and the same results, which results.txt records, and what stands
beside the pixels is kept.

    program_test.py RECORD SAMPLES PROGRAM...            tests a program; its words begin with an emulator where one is needed
    program_test.py --write RECORD SAMPLES PROGRAM...    records its results
"""
import hashlib
import io
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
import zlib
from pathlib import Path

from PIL import Image, PngImagePlugin

WRITE = "--write" in sys.argv
RECORD, SAMPLES, *PROGRAM = [word for word in sys.argv[1:] if word != "--write"]
PICTURES = ["astronaut", "chelsea", "coffee", "face", "rocket"]
COMMANDS = ["enhance", "redeye", "auto", "enhance --force --ratio 1 --grid 5x3"]


# Output goes into files: an emulator's server, which outlives the program, would keep a pipe open.
def ko(*words, data=b""):
    environment = os.environ | {"LC_ALL": "C.UTF-8"}
    with tempfile.TemporaryFile() as given, tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as errors:
        given.write(data)
        given.seek(0)
        run = subprocess.run([*PROGRAM, *words], stdin=given, stdout=output, stderr=errors, timeout=300, env=environment)
        for name, file in (("stdout", output), ("stderr", errors)):
            file.seek(0)
            setattr(run, name, file.read())
    return run


def digest(data):
    return hashlib.sha256(data).hexdigest()[:32]


def pixels_of(path):
    with Image.open(path) as picture:
        return f"{picture.mode} {picture.width} x {picture.height} ".encode() + picture.tobytes()


# What an answer says besides places and times.
def answer_of(line):
    answer = json.loads(line)
    for word in ("file", "output", "seconds", "timings"):
        answer.pop(word, None)
    return json.dumps(answer, sort_keys=True)


class InFolder(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.previous = os.getcwd()
        os.chdir(self.folder)
        self.addCleanup(os.chdir, self.previous)

    def check(self, *words, **options):
        run = ko(*words, **options)
        self.assertEqual(run.returncode, 0, run.stderr.decode(errors="replace"))
        return run


class Results(InFolder):
    """One line per picture and command: the command, the picture, its pixels before, the answer, and its pixels after."""

    def lines(self):
        for name in PICTURES:
            with Image.open(next(Path(SAMPLES).glob(name + ".*"))) as picture:
                picture.convert("RGB").save(name + ".png", compress_level=1)
            yield f"{name} pixels {digest(pixels_of(name + '.png'))}"
        inputs = [name + ".png" for name in PICTURES]
        for number, command in enumerate(COMMANDS):
            first, *options = command.split()
            run = self.check(first, *options, "--json", "--jobs", "1", "--output", f"{number}/", *inputs)
            for name, line in zip(PICTURES, run.stdout.decode().splitlines(), strict=True):
                after = digest(pixels_of(f"{number}/{name}.png"))
                yield f"{name} {command}: answer {digest(answer_of(line).encode())}, pixels {after}"
        for line, name in zip(self.check("judge", "--json", *inputs).stdout.decode().splitlines(), PICTURES, strict=True):
            yield f"{name} judge: answer {digest(answer_of(line).encode())}"
        for form in ("text", "binary", "encoded"):
            self.check("curves", "--form", form, "--output", "curves", "coffee.png")
            with open("curves", "rb") as file:
                yield f"coffee curves --form {form}: file {digest(file.read())}"
        self.check("apply", "curves", "chelsea.png", "--output", "applied.png")
        yield f"chelsea apply: pixels {digest(pixels_of('applied.png'))}"

    def test_are_those_of_every_system(self):
        found = "".join(line + "\n" for line in self.lines())
        if WRITE:
            Path(RECORD).write_text(found, encoding="utf-8")
        self.assertEqual(found.splitlines(), Path(RECORD).read_text(encoding="utf-8").splitlines())


class Files(InFolder):
    def sample(self, name):
        shutil.copy(next(Path(SAMPLES).glob(name + ".*")), ".")

    def test_red_eyes_of_a_jpeg_file_are_repaired(self):
        self.sample("face")
        run = self.check("redeye", "--json", "--output", "out.jpg", "face.jpg")
        self.assertEqual(json.loads(run.stdout)["accepted"], 2)
        with Image.open("face.jpg") as before, Image.open("out.jpg") as after:
            box = (120, 94, 132, 105)
            redness = [sum(max(r - max(g, b), 0) for r, g, b in p.convert("RGB").crop(box).getdata()) for p in (before, after)]
        self.assertLess(redness[1], redness[0] / 4)

    def test_a_repeated_run_finds_the_mark(self):
        self.sample("rocket")
        self.check("enhance", "--output", "once.jpg", "rocket.jpg")
        run = self.check("enhance", "--json", "--output", "twice.jpg", "once.jpg")
        self.assertIn("already", json.loads(run.stdout)["reason"])
        self.assertEqual(Path("once.jpg").read_bytes(), Path("twice.jpg").read_bytes())

    def test_metadata_of_a_jpeg_file_is_kept(self):
        self.sample("rocket")
        with Image.open("rocket.jpg") as picture:
            exif = Image.Exif()
            exif[0x010F] = "A maker"
            profile = bytes(range(256)) * 600  # several segments
            picture.save("given.jpg", exif=exif, icc_profile=profile, comment="a comment", dpi=(300, 300), subsampling="4:4:4")
        self.check("enhance", "--force", "--output", "out.jpg", "given.jpg")
        with Image.open("out.jpg") as picture:
            self.assertEqual(picture.getexif()[0x010F], "A maker")
            self.assertEqual(picture.info["icc_profile"], profile)
            self.assertEqual(picture.info["comment"], b"a comment")
            self.assertEqual(picture.info["dpi"], (300, 300))

    def test_metadata_of_a_png_file_is_kept(self):
        self.sample("coffee")
        with Image.open("coffee.png") as picture:
            exif = Image.Exif()
            exif[0x010F] = "A maker"
            texts = PngImagePlugin.PngInfo()
            texts.add_text("Title", "a title")
            texts.add_itxt("Author", "Zoë", lang="en", tkey="Autor")
            profile = Path(SAMPLES, "coffee.png").read_bytes()[:3000]
            profile = len(profile).to_bytes(4, "big") + b"test\2\0\0\0mntrRGB XYZ " + bytes(12) + b"acsp" + bytes(88) + b"\0\0\0\0" + profile[132:]
            picture.save("given.png", exif=exif, icc_profile=profile, pnginfo=texts, dpi=(200, 200))
        for target in ("out.png", "out.jpg"):
            self.check("enhance", "--force", "--output", target, "given.png")
            with Image.open(target) as picture:
                self.assertEqual(picture.info["icc_profile"], profile)
                self.assertEqual(picture.getexif()[0x010F], "A maker")
                self.assertEqual([round(value) for value in picture.info["dpi"]], [200, 200])
        with Image.open("out.png") as picture:
            self.assertEqual(picture.text["Title"], "a title")
            self.assertEqual((picture.text["Author"], picture.text["Author"].lang), ("Zoë", "en"))
            self.assertIn("ko ", picture.text["Software"])

    def test_alpha_is_kept(self):
        self.sample("chelsea")
        with Image.open("chelsea.png") as picture:
            alpha = Image.linear_gradient("L").resize(picture.size)
            colours = picture.convert("RGB")
            for mode, given in (("RGBA", colours), ("LA", colours.convert("L"))):
                with_alpha = given.convert(mode)
                with_alpha.putalpha(alpha)
                with_alpha.save(mode + ".png")
                self.check("enhance", "--force", "--output", "out.png", mode + ".png")
                with Image.open("out.png") as result:
                    self.assertEqual(result.getchannel("A").tobytes(), alpha.tobytes())
                    self.assertNotEqual(result.getchannel(0).tobytes(), with_alpha.getchannel(0).tobytes())

    def test_names_in_any_script(self):
        self.sample("rocket")
        name = "Ünïcødé 写真 фото.jpg"
        os.rename("rocket.jpg", name)
        self.check("enhance", "--force", "--output", "nová složka/", name)
        self.assertEqual(os.listdir("nová složka"), [name])

    def test_a_file_is_overwritten_in_place(self):
        self.sample("rocket")
        before = Path("rocket.jpg").read_bytes()
        self.check("enhance", "--force", "--in-place", "rocket.jpg")
        self.assertNotEqual(Path("rocket.jpg").read_bytes(), before)
        self.assertEqual(os.listdir(), ["rocket.jpg"])

    def test_times_are_preserved(self):
        self.sample("rocket")
        os.utime("rocket.jpg", (1_000_000_000, 1_100_000_000))
        self.check("enhance", "--force", "--preserve", "--output", "out.jpg", "rocket.jpg")
        self.assertEqual(os.stat("out.jpg").st_mtime, 1_100_000_000)

    def test_standard_streams_are_bytes(self):
        data = Path(SAMPLES, "rocket.jpg").read_bytes()
        Path("rocket.jpg").write_bytes(data)
        self.check("enhance", "--force", "--output", "file.jpg", "rocket.jpg")
        run = self.check("enhance", "--force", "--output", "-", "-", data=data)
        self.assertEqual(run.stdout, Path("file.jpg").read_bytes())

    def test_folders_in_subfolders(self):
        os.makedirs("in/deeper")
        self.sample("rocket")
        shutil.copy("rocket.jpg", "in/one.jpg")
        shutil.copy("rocket.jpg", "in/deeper/two.jpg")
        self.check("enhance", "--force", "--recursive", "--output", "out", "in")
        self.assertTrue(Path("out/one.jpg").is_file() and Path("out/deeper/two.jpg").is_file())

    def test_a_page_reports_the_run(self):
        self.sample("coffee")
        self.check("auto", "--output", "out/", "--report", "page.html", "coffee.png")
        self.assertIn("coffee.png", Path("page.html").read_text(encoding="utf-8"))

    def test_what_cannot_be_read_is_named_and_leaves_nothing(self):
        self.sample("rocket")
        data = Path("rocket.jpg").read_bytes()
        Path("short.jpg").write_bytes(data[: len(data) // 2])
        Path("short.png").write_bytes(Path(SAMPLES, "coffee.png").read_bytes()[:100000])
        Path("text.png").write_bytes(b"not a picture\n")
        Path("empty.jpg").write_bytes(b"")
        run = ko("enhance", "--output", "out/", "short.jpg", "short.png", "text.png", "empty.jpg", "rocket.jpg", "missing.jpg")
        self.assertEqual(run.returncode, 1)
        for name in ("short.jpg", "short.png", "text.png", "empty.jpg", "missing.jpg"):
            self.assertIn(f"ko: {name}: ", run.stderr.decode())
        self.assertEqual(os.listdir("out"), ["rocket.jpg"])

    def test_wrong_usage(self):
        run = ko("enhance", "--no-such-option")
        self.assertEqual(run.returncode, 2)
        self.assertIn(b"unknown option --no-such-option", run.stderr)

    def test_large_headers_are_refused(self):
        picture = io.BytesIO()
        Image.new("L", (4, 4)).save(picture, "PNG")
        data = bytearray(picture.getvalue())
        data[16:24] = (60000).to_bytes(4, "big") * 2
        data[29:33] = zlib.crc32(data[12:29]).to_bytes(4, "big")
        Path("large.png").write_bytes(data)
        run = ko("enhance", "--output", "out.png", "large.png")
        self.assertEqual(run.returncode, 1)
        self.assertIn(b"too large", run.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
