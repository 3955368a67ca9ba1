"""PNG and JPEG files through the plug-in: what it reads from files of known content, what others read from the files that it
writes, and what is left when either fails. One set of expectations holds on every system, whichever codec is below."""

import io
import os
import resource
import signal
import struct
import time
import zlib
from pathlib import Path

import numpy as np
import pytest
from conftest import Probe, Report
from PIL import Image
from picture_files import (
    GRAY,
    GRAY_ALPHA,
    PALETTE,
    RGB,
    RGBA,
    chunk,
    chunks_of,
    decoded,
    header,
    icc_profile,
    jpeg,
    levels,
    mixed,
    png,
    restart_jpeg,
    rgb_jpeg,
    segments_of,
    soft,
    with_size,
)

WINDOWS = os.environ["KO_PROBE"].endswith(".exe")
EMULATED = os.environ["KO_EMULATOR"] != ""
SAMPLES = Path(os.environ["KO_ROOT"]) / "samples"

INVALID_ARGUMENT, INVALID_VALUE, ALLOC = 10, 14, 20
OPEN_READ, OPEN_WRITE, READ_FILE, WRITE_FILE, INVALID_IMAGE_FILE = 30, 31, 34, 35, 51

ALPHA = "alpha is left out"
DEEP = "16 bits per channel reduced to 8"

COLOUR_IMAGES = ("rgb", "yiq", "gray")
IMAGES = ("real", *COLOUR_IMAGES)


def written(folder, name, content):
    (folder / name).write_bytes(content)
    return f"f/{name}"


def names_in(folder):
    return sorted(path.name for path in folder.iterdir())


@pytest.fixture(scope="session")
def rgb_to_yiq(probe):
    return np.array(probe.ask(do="matrix", **{"from": 0, "to": 1})).reshape(3, 3)


# ---- loads


def gray_of(planes):
    """Single precision in the order of the library's weights."""
    red, green, blue = planes.astype(np.float32)
    return ((np.float32(0.299) * red + np.float32(0.587) * green) + np.float32(0.114) * blue)[np.newaxis]


def expect_loaded(report, messages, name):
    assert (report.result, report.status, report.chain) == (0, 0, "")
    assert report.messages == [f'[INFO] "{name}": {message}' for message in messages]


def expect_planes(probe, rgb_to_yiq, name, planes, messages=()):
    """Every kind of image becomes the picture, exactly where nothing is converted."""
    gray = len(planes) == 1
    expected = {"real": (None, planes if gray else gray_of(planes))}
    for image in COLOUR_IMAGES:
        expected[image] = ("GRAY" if gray else "RGB", planes)
    if not gray:
        expected["yiq"] = ("YIQ", np.einsum("ij,jyx->iyx", rgb_to_yiq, planes))
    for image, (space, values) in expected.items():
        report = probe.load(image, name)
        expect_loaded(report, messages, name)
        assert report.space == space
        assert report.planes.shape == values.shape
        tolerance = 1e-3 if space == "YIQ" or (image == "real" and not gray) else 0
        assert np.abs(report.planes - values).max() <= tolerance, image


def planar(samples, depth, channels):
    return levels(samples[:, :, :channels], depth).transpose(2, 0, 1)


PNG_KINDS = [
    *((GRAY, depth, []) for depth in (1, 2, 4, 8)),
    (GRAY, 16, [DEEP]),
    (RGB, 8, []),
    (RGB, 16, [DEEP]),
    (GRAY_ALPHA, 8, [ALPHA]),
    (GRAY_ALPHA, 16, [ALPHA, DEEP]),
    (RGBA, 8, [ALPHA]),
    (RGBA, 16, [ALPHA, DEEP]),
]


@pytest.mark.parametrize("interlaced", [False, True])
@pytest.mark.parametrize("width, height", [(1, 1), (7, 5), (300, 3)])
@pytest.mark.parametrize("colour, depth, messages", PNG_KINDS)
def test_png(probe, folder, rgb_to_yiq, colour, depth, messages, width, height, interlaced):
    samples = mixed(width, height, depth, colour)
    name = written(folder, "picture.png", png(samples, depth, colour, interlaced))
    expect_planes(probe, rgb_to_yiq, name, planar(samples, depth, 3 if colour in (RGB, RGBA) else 1), messages)


def test_png_in_every_level_of_16_bits(probe, folder, rgb_to_yiq):
    samples = np.arange(65536).reshape(256, 256, 1)
    name = written(folder, "picture.png", png(samples, 16, GRAY))
    expect_planes(probe, rgb_to_yiq, name, np.rint(samples * (255 / 65535)).transpose(2, 0, 1), [DEEP])


def palette_of(depth):
    entry = np.arange(1 << depth)
    return np.stack([3 * entry, 255 - 2 * entry, 5 * entry], axis=1) & 0xFF


@pytest.mark.parametrize("interlaced", [False, True])
@pytest.mark.parametrize("transparent", [False, True])
@pytest.mark.parametrize("depth", [1, 2, 4, 8])
def test_png_with_a_palette(probe, folder, rgb_to_yiq, depth, transparent, interlaced):
    samples = mixed(13, 9, depth, PALETTE)
    colours = palette_of(depth)
    chunks = [(b"PLTE", colours.astype(np.uint8).tobytes())]
    if transparent:
        chunks.append((b"tRNS", bytes(i * 11 & 0xFF for i in range(1 << depth))))
    name = written(folder, "picture.png", png(samples, depth, PALETTE, interlaced, chunks))
    expect_planes(probe, rgb_to_yiq, name, colours[samples[:, :, 0]].transpose(2, 0, 1), [ALPHA] if transparent else [])


# The kind of file decides about the kind of image, not its colours.
def test_png_with_a_palette_of_grays(probe, folder, rgb_to_yiq):
    samples = mixed(13, 9, 8, PALETTE)
    name = written(folder, "picture.png", png(samples, 8, PALETTE, chunks=[(b"PLTE", bytes(i // 3 for i in range(768)))]))
    expect_planes(probe, rgb_to_yiq, name, np.repeat(samples.transpose(2, 0, 1), 3, axis=0))


@pytest.mark.parametrize(
    "colour, depth, messages",
    [(GRAY, 1, []), (GRAY, 2, []), (GRAY, 4, []), (GRAY, 8, []), (GRAY, 16, [DEEP]), (RGB, 8, []), (RGB, 16, [DEEP])],
)
def test_png_with_a_transparent_colour(probe, folder, rgb_to_yiq, colour, depth, messages):
    samples = mixed(13, 9, depth, colour)
    transparent = samples[4, 6].astype(">u2").tobytes()
    name = written(folder, "picture.png", png(samples, depth, colour, chunks=[(b"tRNS", transparent)]))
    expect_planes(probe, rgb_to_yiq, name, planar(samples, depth, len(samples[0, 0])), [ALPHA, *messages])


# White, red, green and blue of a space with a farther green than that of sRGB.
WIDE_PRIMARIES = (31270, 32900, 64000, 33000, 21000, 71000, 15000, 6000)


@pytest.mark.parametrize("depth", [8, 16])
@pytest.mark.parametrize("colour", [GRAY, RGB, RGBA])
@pytest.mark.parametrize(
    "chunks",
    [
        [(b"gAMA", struct.pack(">I", 100000))],
        [(b"gAMA", struct.pack(">I", 45455)), (b"cHRM", struct.pack(">8I", *WIDE_PRIMARIES))],
        [(b"sRGB", b"\0"), (b"gAMA", struct.pack(">I", 45455))],
        [(b"sRGB", b"\1")],
        [(b"sBIT", b"\5")],
        [(b"pHYs", struct.pack(">IIB", 3000, 6000, 1))],
    ],
    ids=["linear", "primaries", "srgb", "intent", "significant", "density"],
)
def test_png_values_stay_as_stored(probe, folder, colour, depth, chunks):
    samples = mixed(13, 9, depth, colour)
    chunks = [(kind, data * samples.shape[2] if kind == b"sBIT" else data) for kind, data in chunks]
    name = written(folder, "picture.png", png(samples, depth, colour, chunks=chunks))
    report = probe.load("rgb", name)
    assert (report.result, report.status, report.chain) == (0, 0, "")
    assert np.array_equal(report.planes, planar(samples, depth, 1 if colour == GRAY else 3))


@pytest.mark.parametrize("depth", [8, 16])
@pytest.mark.parametrize("colour", [RGB, RGBA, PALETTE])
def test_png_colour_profile_is_not_applied(probe, folder, colour, depth):
    depth = 8 if colour == PALETTE else depth
    samples = mixed(13, 9, depth, colour)
    chunks = [(b"iCCP", b"exchanged\0\0" + zlib.compress(icc_profile()))]
    planes = planar(samples, depth, 3)
    if colour == PALETTE:
        chunks.append((b"PLTE", palette_of(8).astype(np.uint8).tobytes()))
        planes = palette_of(8)[samples[:, :, 0]].transpose(2, 0, 1)
    report = probe.load("rgb", written(folder, "picture.png", png(samples, depth, colour, chunks=chunks)))
    assert (report.result, report.status, report.chain) == (0, 0, "")
    assert np.array_equal(report.planes, planes)


# Filters of every kind, which an encoder chooses row by row.
def test_png_of_another_encoder(probe, folder, rgb_to_yiq):
    picture = soft(200, 150)
    picture[40:80, 50:90] = mixed(40, 40, 8, RGB)
    Image.fromarray(picture).save(folder / "picture.png")
    expect_planes(probe, rgb_to_yiq, "f/picture.png", picture.transpose(2, 0, 1))


def jpeg_kinds():
    exif = Image.Exif()
    exif[0x0112] = 6
    gray, colour = soft(67, 43, 1), soft(67, 43)
    return {
        "gray": jpeg(gray),
        "gray_progressive": jpeg(gray, progressive=True),
        "full": jpeg(colour, subsampling=0),
        "halved": jpeg(colour, quality=95, subsampling=1),
        "quartered": jpeg(colour, quality=95, subsampling=2),
        "progressive": jpeg(colour, progressive=True, subsampling=0),
        "progressive_quartered": jpeg(colour, quality=95, progressive=True, subsampling=2),
        "coarse": jpeg(colour, quality=10, subsampling=0),
        "optimised": jpeg(colour, quality=100, optimize=True, subsampling=0),
        "one_pixel": jpeg(colour[:1, :1]),
        "one_row": jpeg(colour[:1, :], quality=95),
        "one_column": jpeg(colour[:, :1], quality=95),
        "turned": jpeg(colour, subsampling=0, exif=exif),
        "profile": jpeg(colour, subsampling=0, icc_profile=icc_profile()),
        "rgb": rgb_jpeg(colour),
        "rgb_numbered": rgb_jpeg(colour, b"\1\2\3"),
        "restarts": restart_jpeg([mixed(8, 8, 8, GRAY)[:, :, 0].astype(np.uint8) // 2 + 7 * i for i in range(19)]),
    }


JPEG_KINDS = jpeg_kinds()

# Another decoder than Pillow's may round its transformation differently, and fills in the colours between those of a coarser
# grid in a way of its own, which shows little in soft pictures.
JPEG_CLOSE = 2 if WINDOWS else None


@pytest.mark.parametrize("kind", JPEG_KINDS)
def test_jpeg(probe, folder, rgb_to_yiq, kind):
    file = JPEG_KINDS[kind]
    name = written(folder, "picture.jpg", file)
    if WINDOWS and kind == "rgb_numbered":  # decoders do not agree about its colours
        expect_refusal(probe, name, INVALID_IMAGE_FILE)
        assert "RGB colours under the numbers of YCbCr" in probe.load("real", name).chain
        return
    planes = decoded(file)
    gray = len(planes) == 1
    expected = {"rgb": planes, "gray": planes, "real": planes if gray else gray_of(planes), "yiq": planes}
    if not gray:
        expected["yiq"] = np.einsum("ij,jyx->iyx", rgb_to_yiq, planes)
    for image, values in expected.items():
        report = probe.load(image, name)
        assert (report.result, report.status, report.chain) == (0, 0, "")
        assert report.space == (None if image == "real" else "GRAY" if gray else "YIQ" if image == "yiq" else "RGB")
        assert report.planes.shape == values.shape
        tolerance = 0 if image in ("rgb", "gray") or gray else 1e-3
        if JPEG_CLOSE:
            tolerance = 1.2 * JPEG_CLOSE if image == "yiq" else JPEG_CLOSE  # the sum of a row of the matrix
        assert np.abs(report.planes - values).max() <= tolerance, image


@pytest.mark.parametrize("name", sorted(path.name for path in SAMPLES.glob("*.jpg")))
def test_jpeg_of_photographs(probe, folder, name):
    file = (SAMPLES / name).read_bytes()
    report = probe.load("rgb", written(folder, "picture.jpg", file))
    assert (report.result, report.chain) == (0, "")
    planes = decoded(file)
    if not WINDOWS:
        assert np.array_equal(report.planes, planes)
        return
    # At edges of colour the grid shows. It leaves brightness alone, except where a colour leaves the range.
    inside = ((planes > 0) & (planes < 255) & (report.planes > 0) & (report.planes < 255)).all(axis=0)
    assert inside.mean() > 0.9
    assert np.abs(gray_of(report.planes) - gray_of(planes))[0, inside].max() <= 1


def test_bytes_behind_the_end_are_no_failure(probe, folder):
    picture = soft(20, 10)
    for name, file in [("picture.png", png(picture, 8, RGB)), ("picture.jpg", jpeg(picture))]:
        plain = probe.load("rgb", written(folder, name, file))
        longer = probe.load("rgb", written(folder, name, file + b"more \0\xff" * 100))
        assert (longer.result, longer.chain) == (0, "")
        assert np.array_equal(longer.planes, plain.planes)


# ---- gamma


def ramp(folder):
    return written(folder, "ramp.png", png(np.arange(256).reshape(1, 256, 1), 8, GRAY))


@pytest.mark.parametrize("a, b", [(2.2, 1), (1, 2.2), (4.4, 2), (0.5, 2.5), (9, 0.1)])
def test_gamma_raises_values(probe, folder, a, b):
    report = probe.load("rgb", ramp(folder), gamma=(a, b))
    assert (report.result, report.chain) == (0, "")
    expected = 255 * (np.arange(256) / 255) ** (a / b)
    assert np.abs(report.planes[0, 0] - expected).max() < 1e-4
    assert report.planes[0, 0, 0] == 0 and report.planes[0, 0, 255] == 255


@pytest.mark.parametrize("a, b", [(0, 0), (2.2, 0), (0, 2.2), (1, 1)])
def test_gamma_of_none_keeps_values(probe, folder, a, b):
    report = probe.load("rgb", ramp(folder), gamma=(a, b))
    assert (report.result, report.chain) == (0, "")
    assert np.array_equal(report.planes, np.arange(256).reshape(1, 1, 256))


NO_EXPONENTS = [(-1, 1), (1, -1), (-1, -1), (np.nan, 1), (1, np.nan), (np.inf, 1), (1, np.inf), (1e300, 1e-300), (1e-300, 1e300)]


@pytest.mark.parametrize("extension", ["png", "jpg"])
def test_gamma_of_colours(probe, folder, extension):
    Image.fromarray(soft(20, 10)).save(folder / f"picture.{extension}")
    plain = probe.load("rgb", f"f/picture.{extension}").planes
    raised = probe.load("rgb", f"f/picture.{extension}", gamma=(2, 1))
    assert raised.space == "RGB"
    assert np.abs(raised.planes - plain * plain / 255).max() < 1e-3


@pytest.mark.parametrize("a, b", NO_EXPONENTS)
def test_gamma_that_is_no_exponent_is_refused(probe, folder, a, b):
    report = probe.load("rgb", ramp(folder), gamma=(a, b))
    assert (report.result, report.status, report.chain) == (INVALID_ARGUMENT, INVALID_ARGUMENT, "[ERROR] Invalid argument")
    assert report.is_untouched()


# ---- saves


def read(folder, name):
    """Planes of a file as Pillow reads them, which must be 8 bits of gray or RGB."""
    with Image.open(folder / name) as image:
        assert image.format == {"png": "PNG", "jpg": "JPEG"}[name.split(".")[-1]]
        assert image.mode in ("L", "RGB")
    return decoded((folder / name).read_bytes())


def expect_saved(report, folder, *names):
    assert (report.result, report.status, report.chain, report.messages) == (0, 0, "", [])
    assert names_in(folder) == sorted(names)


@pytest.mark.parametrize("width, height", [(1, 1), (7, 5), (300, 3), (37, 21)])
def test_png_keeps_every_byte(probe, folder, width, height):
    planes = mixed(width, height, 8, RGB).transpose(2, 0, 1)
    for image, values in [("rgb", planes), ("real", planes[:1]), ("gray", planes[1:2])]:
        expect_saved(probe.save(image, values, "f/picture.png"), folder, "picture.png")
        assert np.array_equal(read(folder, "picture.png"), values)
        again = probe.load("rgb", "f/picture.png")
        assert again.space == ("GRAY" if len(values) == 1 else "RGB") and np.array_equal(again.planes, values)


@pytest.mark.parametrize("extension", ["png", "jpg"])
def test_yiq_is_saved_as_rgb(probe, folder, rgb_to_yiq, extension):
    planes = soft(37, 21).transpose(2, 0, 1)
    yiq = np.einsum("ij,jyx->iyx", rgb_to_yiq, planes)
    expect_saved(probe.save("yiq", yiq, f"f/picture.{extension}"), folder, f"picture.{extension}")
    found = read(folder, f"picture.{extension}").astype(int)
    assert found.shape == planes.shape
    assert np.abs(found - planes).max() <= (0 if extension == "png" else 8)


@pytest.mark.parametrize("image", ["rgb", "real", "gray"])
def test_jpeg_is_close(probe, folder, image):
    planes = soft(65, 43).transpose(2, 0, 1)
    planes = planes if image == "rgb" else planes[:1]
    expect_saved(probe.save(image, planes, "f/picture.jpg"), folder, "picture.jpg")
    found = read(folder, "picture.jpg").astype(int)
    assert found.shape == planes.shape
    assert np.abs(found - planes).max() <= 8
    again = probe.load("rgb", "f/picture.jpg")
    assert np.abs(again.planes - planes).max() <= 8
    assert WINDOWS or np.array_equal(again.planes, found)


VALUES = [0, -0.0, 0.49999997, 0.5, 1.4999, 1.5, 2.5, 127.5, 254.4999, 254.5, 254.99, 255, 255.4, 255.5, 256, 511, 1e9, 3e38]
BYTES = [0, 0, 0, 1, 1, 2, 3, 128, 254, 255, 255, 255, 255, 255, 255, 255, 255, 255]
VALUES += [-0.4, -1, -255, -3e38, 1e-40, np.inf, -np.inf, np.nan]
BYTES += [0, 0, 0, 0, 0, 255, 0, 0]


@pytest.mark.parametrize("image", ["real", "rgb", "gray"])
@pytest.mark.parametrize(
    "scale, values, expected",
    [
        (1, VALUES, BYTES),
        (0.5, [0, 1, 100, 255, np.inf], [0, 1, 50, 128, 255]),
        (255, [0, 0.25, 0.5, 1, 2], [0, 64, 128, 255, 255]),
        (-1, [-2, 3, -np.inf], [2, 0, 255]),
        (0, [5, np.inf, np.nan], [0, 0, 0]),
        (np.nan, [5, 0, 300], [0, 0, 0]),
        (np.inf, [5, 0, -1], [255, 0, 0]),
    ],
)
def test_values_are_scaled_rounded_and_clamped(probe, folder, image, scale, values, expected):
    planes = [[values], [values[::-1]], [values]] if image == "rgb" else [[values]]
    expect_saved(probe.save(image, planes, "f/picture.png", scale=scale), folder, "picture.png")
    found = read(folder, "picture.png")
    assert found[0, 0].tolist() == expected
    if image == "rgb":
        assert found[1, 0].tolist() == expected[::-1] and found[2, 0].tolist() == expected


@pytest.mark.parametrize("image", ["real", "rgb", "yiq"])
@pytest.mark.parametrize("value", [np.nan, np.inf, -np.inf, -3e38, 3e38])
@pytest.mark.parametrize("extension", ["png", "jpg"])
def test_awkward_values_are_saved(probe, folder, image, value, extension):
    planes = soft(20, 10).transpose(2, 0, 1).astype(float)[: 1 if image == "real" else 3]
    planes[:, 5:, 7] = value
    expect_saved(probe.save(image, planes, f"f/picture.{extension}"), folder, f"picture.{extension}")
    assert read(folder, f"picture.{extension}").shape == planes.shape


def tables(file):
    return [file[place : place + size] for code, place, size in segments_of(file) if code == 0xDB]


@pytest.mark.parametrize("quality", [0, 1, 30, 50, 75, 92, 100, 39.6, 40.4, -0.0])
def test_jpeg_quality(probe, folder, quality):
    planes = soft(64, 48).transpose(2, 0, 1)
    expect_saved(probe.save("rgb", planes, "f/picture.jpg", option=quality), folder, "picture.jpg")
    assert read(folder, "picture.jpg").shape == planes.shape
    if not EMULATED:  # Wine's encoder takes the quality and does nothing about it
        expected = jpeg(soft(64, 48), quality=round(quality) or 92, subsampling=0)
        with Image.open(folder / "picture.jpg") as found, Image.open(io.BytesIO(expected)) as wanted:
            assert found.quantization == wanted.quantization
            assert found.layer == wanted.layer


@pytest.mark.parametrize("level", [*range(10), 1.4, 8.6, -0.0])
def test_png_level(probe, folder, level):
    planes = mixed(64, 48, 8, RGB).transpose(2, 0, 1)
    expect_saved(probe.save("rgb", planes, "f/picture.png", option=level), folder, "picture.png")
    assert np.array_equal(read(folder, "picture.png"), planes)


REFUSED_OPTIONS = [
    *(("png", option, "0 to 9") for option in (10, 9.5, 0.25, -1, 1e9)),
    *(("jpg", option, "0 to 100") for option in (101, 0.25, -0.25, -1, 3e38)),
    *((extension, option, None) for extension in ("png", "jpg") for option in (np.nan, np.inf, -np.inf)),
]


@pytest.mark.parametrize("image", ["real", "rgb"])
@pytest.mark.parametrize("old", [None, b"the old file"])
@pytest.mark.parametrize("extension, option, possible", REFUSED_OPTIONS)
def test_other_options_are_refused(probe, folder, image, extension, option, possible, old):
    name = f"picture.{extension}"
    if old:
        written(folder, name, old)
    report = probe.save(image, np.ones((3 if image == "rgb" else 1, 4, 4)), f"f/{name}", option=option)
    assert (report.result, report.status) == (INVALID_VALUE, INVALID_VALUE)
    assert "is not a valid value" in report.chain and (possible or "0 to") in report.chain
    assert names_in(folder) == ([name] if old else [])
    assert not old or (folder / name).read_bytes() == old


# ---- the place of a file


@pytest.mark.parametrize("extension", ["png", "jpg"])
def test_an_existing_file_is_replaced(probe, folder, extension):
    name = f"picture.{extension}"
    written(folder, name, b"the old file" * 10000)
    for level in (100, 200):
        expect_saved(probe.save("real", np.full((1, 9, 16), level), f"f/{name}"), folder, name)
        assert np.abs(read(folder, name).astype(int) - level).max() <= 1


def test_a_name_without_a_folder(probe):
    before = names_in(probe.folder)
    report = probe.save("real", np.full((1, 3, 4), 9), "bare.png")
    assert (report.result, report.chain) == (0, "")
    assert set(names_in(probe.folder)) - set(before) <= {"bare.png", "saved.floats"}
    loaded = probe.load("real", "bare.png")
    assert np.array_equal(loaded.planes, np.full((1, 3, 4), 9))
    (probe.folder / "bare.png").unlink()


def test_a_whole_path(probe, folder):
    name = str(folder / "picture.png")
    if WINDOWS:
        name = "Z:" + name.replace("/", "\\")
    expect_saved(probe.save("real", np.full((1, 3, 4), 9), name), folder, "picture.png")
    assert probe.load("real", name).planes.shape == (1, 3, 4)


def test_the_format_beats_the_extension(probe, folder):
    planes = soft(20, 10).transpose(2, 0, 1)
    expect_saved(probe.save("rgb", planes, "f/picture.dat", format="png"), folder, "picture.dat")
    assert (folder / "picture.dat").read_bytes().startswith(b"\x89PNG")
    assert np.array_equal(probe.load("rgb", "f/picture.dat", format="PNG").planes, planes)
    expect_saved(probe.save("rgb", planes, "f/picture.dat", format="jpeg"), folder, "picture.dat")
    assert (folder / "picture.dat").read_bytes().startswith(b"\xff\xd8")
    assert probe.load("rgb", "f/picture.dat", format="jpg").result == 0


def expect_failure(report, status, text):
    assert (report.result, report.status) == (status, status)
    first, _, reason = report.chain.partition("\n-> ")
    assert first == f"[ERROR] {text}"
    assert reason.strip()


@pytest.mark.parametrize("extension", ["png", "jpg"])
@pytest.mark.parametrize("image", ["real", "rgb", "yiq"])
def test_where_nothing_can_be_saved(probe, folder, image, extension):
    (folder / f"folder.{extension}").mkdir()
    for name in (f"f/nowhere/picture.{extension}", f"f/folder.{extension}"):
        report = probe.save(image, np.ones((1 if image == "real" else 3, 4, 4)), name)
        expect_failure(report, OPEN_WRITE, f'Cannot open file "{name}" for writing')
    assert names_in(folder) == [f"folder.{extension}"]
    assert not any((folder / f"folder.{extension}").iterdir())


# Only the encoder knows what its format holds.
@pytest.mark.parametrize("old", [None, b"the old file"])
def test_a_picture_too_wide_for_jpeg(probe, folder, old):
    if old:
        written(folder, "picture.jpg", old)
    report = probe.save("real", np.ones((1, 1, 70000)), "f/picture.jpg")
    expect_failure(report, WRITE_FILE, 'Cannot write file "f/picture.jpg"')
    assert names_in(folder) == (["picture.jpg"] if old else [])
    assert not old or (folder / "picture.jpg").read_bytes() == old
    assert probe.save("real", np.ones((1, 1, 70000)), "f/picture.png").result == 0


# A process that may not write more, as on a disk that is full half-way.
@pytest.mark.parametrize("extension", ["png", "jpg"])
@pytest.mark.parametrize("old", [None, b"the old file"])
def test_a_file_that_grows_too_large(probe, folder, extension, old):
    name = f"picture.{extension}"
    if old:
        written(folder, name, old)
    planes = np.random.default_rng(3).integers(0, 256, (1, 400, 400))
    command = probe.save_command("real", planes, f"f/{name}")

    def limit():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000))

    limited = Probe(probe.folder, preexec_fn=limit, restore_signals=False)
    report = limited.ask(**command)
    small = limited.ask(**limited.save_command("real", planes[:, :20, :20], f"f/small.{extension}"))
    assert limited.end() == 0
    assert (report["result"], report["status"]) == (WRITE_FILE, WRITE_FILE)
    assert report["chain"].startswith(f'[ERROR] Cannot write file "f/{name}"\n-> ')
    assert small["result"] == 0
    assert names_in(folder) == sorted([f"small.{extension}"] + ([name] if old else []))
    assert not old or (folder / name).read_bytes() == old


def expect_untouched_target(probe, folder, report, name, old):
    assert report.result in (OPEN_WRITE, WRITE_FILE) and report.status == report.result
    assert report.chain.startswith("[ERROR] ") and f'"f/{name}"' in report.chain
    assert names_in(folder) == [name] and (folder / name).read_bytes() == old


@pytest.mark.parametrize("extension", ["png", "jpg"])
def test_a_protected_file(probe, folder, extension):
    name, old = f"picture.{extension}", b"the old file"
    written(folder, name, old)
    (folder / name).chmod(0o444)
    report = probe.save("real", np.ones((1, 4, 4)), f"f/{name}")
    if WINDOWS or os.geteuid() != 0:
        expect_failure(report, OPEN_WRITE, f'Cannot open file "f/{name}" for writing')
        expect_untouched_target(probe, folder, report, name, old)
    else:  # the superuser may write everywhere
        expect_saved(report, folder, name)


# Windows keeps the name of a file for as long as a program has it open.
@pytest.mark.parametrize("extension", ["png", "jpg"])
def test_a_file_in_use(probe, folder, extension):
    name, old = f"picture.{extension}", b"the old file"
    written(folder, name, old)
    command = probe.save_command("real", np.ones((1, 4, 4)), f"f/{name}")
    report = Report(**probe.ask(**command, held=f"f/{name}"))
    if WINDOWS:
        expect_untouched_target(probe, folder, report, name, old)
    else:
        expect_saved(report, folder, name)
    expect_saved(Report(**probe.ask(**command)), folder, name)


# Windows would not replace it otherwise.
@pytest.mark.parametrize("name", ["plain.png", "quartered.jpg"])
def test_a_load_closes_the_file(probe, folder, name):
    for size in (None, 0, 10, 50, -1):
        status = probe.load("rgb", written(folder, name, SMALL_FILES[name][:size])).result
        assert status == (0 if size is None else INVALID_IMAGE_FILE)
        expect_saved(probe.save("real", np.ones((1, 4, 4)), f"f/{name}"), folder, name)


def test_names_are_no_formats(probe, folder):
    samples = mixed(3, 2, 8, RGBA)
    report = probe.load("rgb", written(folder, "100%s%n {}.png", png(samples, 8, RGBA)))
    expect_loaded(report, [ALPHA], "f/100%s%n {}.png")
    expect_invalid(probe, written(folder, "100%s%n {}.jpg", b"no picture"))


# ---- files that are refused


def expect_refusal(probe, name, status=INVALID_IMAGE_FILE, images=IMAGES, format=None):
    for image in images:
        report = probe.load(image, name, format)
        assert (report.result, report.status) == (status, status), name
        assert report.chain.startswith("[ERROR] ") and f'"{name}"' in report.chain
        assert report.is_untouched()


def kind_of(name):
    return "PNG" if name.endswith(".png") else "JPEG"


def expect_invalid(probe, name):
    expect_refusal(probe, name)
    text = f'File "{name}" does not contain a valid {kind_of(name)} image'
    expect_failure(probe.load("real", name), INVALID_IMAGE_FILE, text)


@pytest.mark.parametrize("extension", ["png", "jpg"])
def test_files_that_cannot_be_read(probe, folder, extension):
    missing = f"f/missing.{extension}"
    expect_refusal(probe, missing, OPEN_READ)
    expect_failure(probe.load("real", missing), OPEN_READ, f'Cannot open file "{missing}" for reading')
    expect_refusal(probe, f"f/nowhere/picture.{extension}", OPEN_READ)
    (folder / f"folder.{extension}").mkdir()
    expect_refusal(probe, f"f/folder.{extension}", READ_FILE)
    expect_refusal(probe, "", OPEN_READ, format=extension)


def pillow_file(kind, mode="RGB"):
    stream = io.BytesIO()
    Image.fromarray(soft(20, 10)).convert(mode).save(stream, kind)
    return stream.getvalue()


OTHER_FILES = {
    "empty": b"",
    "text": b"1,2\n3,4\n",
    "zeros": bytes(1000),
    **{kind.lower(): pillow_file(kind) for kind in ("BMP", "GIF", "TIFF", "WEBP", "ICO", "PPM")},
}


@pytest.mark.parametrize("extension", ["png", "jpg"])
@pytest.mark.parametrize("kind", OTHER_FILES)
def test_files_of_other_formats(probe, folder, kind, extension):
    expect_invalid(probe, written(folder, f"picture.{extension}", OTHER_FILES[kind]))


def test_files_of_each_others_format(probe, folder):
    expect_invalid(probe, written(folder, "picture.png", pillow_file("JPEG")))
    expect_invalid(probe, written(folder, "picture.jpg", pillow_file("PNG")))


def test_cmyk_without_a_profile(probe, folder):
    expect_invalid(probe, written(folder, "picture.jpg", pillow_file("JPEG", "CMYK")))


def small_files():
    deep = mixed(5, 4, 16, GRAY_ALPHA)
    small = soft(17, 9)
    further = [(b"gAMA", struct.pack(">I", 45455)), (b"tEXt", b"Title\0a")]
    return {
        "plain.png": png(mixed(9, 7, 8, RGB), 8, RGB),
        "palette.png": png(mixed(9, 7, 4, PALETTE), 4, PALETTE, chunks=[(b"PLTE", bytes(48)), (b"tRNS", bytes(9))]),
        "interlaced.png": png(mixed(9, 7, 8, RGBA), 8, RGBA, True, further),
        "deep.png": png(deep, 16, GRAY_ALPHA),
        "gray.jpg": jpeg(small[:, :, 0], optimize=True),
        "quartered.jpg": jpeg(small, optimize=True, subsampling=2),
        "progressive.jpg": jpeg(small, progressive=True, subsampling=0),
        "restarts.jpg": restart_jpeg([small[:8, i : i + 8, 0] for i in range(6)]),
    }


SMALL_FILES = small_files()


@pytest.mark.parametrize("name", SMALL_FILES)
def test_every_truncation_is_refused(probe, folder, name):
    file = SMALL_FILES[name]
    assert probe.load("rgb", written(folder, name, file)).result == 0
    accepted = []
    for size in range(len(file)):
        report = probe.load(IMAGES[size % 4], written(folder, name, file[:size]))
        if report.result == 0:
            accepted.append(size)
            continue
        assert (report.result, report.status) == (INVALID_IMAGE_FILE, INVALID_IMAGE_FILE), size
        assert report.is_untouched()
    assert accepted == [], f"of {len(file)}"


def expect_picture_or_status(report, what):
    """A damaged file gives a picture or a status that says so; returns whether it was read."""
    assert report.status == report.result, what
    if report.result == 0:
        assert report.planes.size > 0 and report.chain == "", what
        assert report.space == "YIQ" or (report.planes.min() >= 0 and report.planes.max() <= 255), what
        return True
    assert report.result in (INVALID_IMAGE_FILE, ALLOC), what
    assert report.chain.startswith("[ERROR] "), what
    assert report.is_untouched(), what
    return False


@pytest.mark.parametrize("change", [0x01, 0x80, 0xFF])
@pytest.mark.parametrize("name", SMALL_FILES)
def test_damaged_bytes(probe, folder, name, change):
    file = SMALL_FILES[name]
    read_files = 0
    for place in range(len(file)):
        damaged = file[:place] + bytes([file[place] ^ change]) + file[place + 1 :]
        report = probe.load(IMAGES[place % 4], written(folder, name, damaged))
        read_files += expect_picture_or_status(report, (place, change))
    assert read_files < len(file)


# The same in the data of chunks, whose sums are right again: what is behind the sums is reached.
@pytest.mark.parametrize("change", [0x01, 0x80, 0xFF])
@pytest.mark.parametrize("name", [name for name in SMALL_FILES if name.endswith(".png")])
def test_damaged_chunks(probe, folder, name, change):
    file = SMALL_FILES[name]
    for kind, start, size in chunks_of(file):
        for place in range(start, start + size):
            data = bytearray(file[start : start + size])
            data[place - start] ^= change
            damaged = file[: start - 8] + chunk(kind, bytes(data)) + file[start + size + 4 :]
            report = probe.load(IMAGES[place % 4], written(folder, name, damaged))
            expect_picture_or_status(report, (kind, place - start, change))


def monsters():
    rows = chunk(b"IDAT", b"\x78\x9c\x03\0\0\0\0\1") + chunk(b"IEND")
    signature = b"\x89PNG\r\n\x1a\n"
    baseline, progressive = jpeg(soft(17, 9)), jpeg(soft(17, 9), progressive=True)
    return {
        "square.png": signature + header(60000, 60000, 8, RGB) + rows,
        "interlaced.png": signature + header(60000, 60000, 16, RGBA, True) + rows,
        "wide.png": signature + header(0x7FFFFFFF, 1, 8, GRAY) + rows,
        "wider.png": signature + header(0xFFFFFFFF, 0xFFFFFFFF, 8, GRAY) + rows,
        "no_columns.png": signature + header(0, 5, 8, GRAY) + rows,
        "no_rows.png": signature + header(5, 0, 8, GRAY) + rows,
        "square.jpg": with_size(baseline, 60000, 60000),
        "progressive.jpg": with_size(progressive, 60000, 60000),
        "no_columns.jpg": with_size(baseline, 0, 9),
        "no_rows.jpg": with_size(baseline, 17, 0),
    }


MONSTERS = monsters()


@pytest.mark.parametrize("name", MONSTERS)
def test_monstrous_headers_are_refused(probe, folder, name):
    start = time.monotonic()
    expect_invalid(probe, written(folder, name, MONSTERS[name]))
    assert time.monotonic() - start < 5


# A size that is permitted, with hardly any bytes behind it: memory may be short, and the rows are.
@pytest.mark.parametrize(
    "name, file",
    [
        ("large.png", b"\x89PNG\r\n\x1a\n" + header(6000, 6000, 8, GRAY) + MONSTERS["square.png"][33:]),
        ("tall.png", b"\x89PNG\r\n\x1a\n" + header(1, 1000000, 8, GRAY) + MONSTERS["square.png"][33:]),
        ("large.jpg", with_size(jpeg(soft(17, 9)), 6000, 6000)[:-2]),
        ("progressive.jpg", with_size(jpeg(soft(17, 9), progressive=True), 6000, 6000)[:-2]),
    ],
    ids=["png", "tall_png", "jpeg", "progressive_jpeg"],
)
def test_large_headers_of_short_files_are_refused(probe, folder, name, file):
    report = probe.load("rgb", written(folder, name, file))
    assert report.result in (INVALID_IMAGE_FILE, ALLOC) and report.status == report.result
    assert report.is_untouched()


# ---- the life of the library


def test_after_a_restart(probe, folder):
    name = written(folder, "plain.png", SMALL_FILES["plain.png"])
    planes = probe.load("rgb", name).planes
    for _ in range(3):
        assert probe.ask(do="restart") == [0, 8]
        assert np.array_equal(probe.load("rgb", name).planes, planes)
        assert probe.save("rgb", planes, "f/picture.jpg").result == 0


# ---- threads


def round_of(probe, folder, thread):
    """Commands of one thread, whose files are its own."""
    commands = []
    sources = ["rgb plain.png", "real deep.png", "yiq interlaced.png", "rgb quartered.jpg", "real progressive.jpg"]
    for i, (image, name) in enumerate(map(str.split, sources)):
        file = written(folder, f"{thread}-{name}", SMALL_FILES[name])
        commands.append({"do": "load", "image": image, "file": file, "floats": f"f/{thread}-{i}.loaded"})
    commands.append({**commands[0], "file": f"f/missing-{thread}.png", "floats": f"f/{thread}-missing.loaded"})
    planes = (mixed(40, 30, 8, RGB).transpose(2, 0, 1) + thread) % 256
    for extension in ("png", "jpg"):
        saved, floats = f"f/{thread}-saved.{extension}", f"f/{thread}.floats"
        commands.append(probe.save_command("rgb", planes, saved, floats=floats))
        commands.append({"do": "load", "image": "rgb", "file": saved, "floats": f"f/{thread}-{extension}.loaded"})
    return commands[thread:] + commands[:thread] if thread < 6 else commands


def answers_and_files(folder, answers):
    return answers, {path.name: path.read_bytes() for path in folder.iterdir()}


def test_eight_threads_at_once(probe, folder):
    rounds = [round_of(probe, folder, thread) for thread in range(8)]
    one_by_one = [[probe.ask(**command) for command in commands] for commands in rounds]
    expected = answers_and_files(folder, one_by_one)
    assert sorted(answer["result"] for answer in one_by_one[0]) == [0] * 9 + [OPEN_READ]
    assert len(expected[1]) == 8 * (5 + 8 + 1 + 2)  # sources, images that were loaded, one that is saved, and its files
    for path in folder.glob("*.loaded"):
        path.unlink()
    together = probe.ask(do="together", lists=[commands * 10 for commands in rounds])
    for thread in range(8):
        assert together[thread] == one_by_one[thread] * 10
    assert answers_and_files(folder, one_by_one) == expected


# A host's thread may have joined an apartment of COM, of either kind.
@pytest.mark.parametrize("apartment", ["single", "multi"])
def test_threads_of_an_apartment(probe, folder, apartment):
    commands = [round_of(probe, folder, thread) for thread in range(2)]
    one_by_one = [[probe.ask(**command) for command in each] for each in commands]
    expected = answers_and_files(folder, one_by_one)
    for path in folder.glob("*.loaded"):
        path.unlink()
    assert probe.ask(do="together", lists=commands, apartment=apartment) == one_by_one
    assert answers_and_files(folder, one_by_one) == expected
