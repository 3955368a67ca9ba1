"""PNG files bit by bit, so that what is in them is known without a decoder, and JPEG files from pieces of Pillow's."""

import io
import struct
import zlib

import numpy as np
from PIL import Image, ImageCms

GRAY, RGB, PALETTE, GRAY_ALPHA, RGBA = 0, 2, 3, 4, 6
CHANNELS = {GRAY: 1, RGB: 3, PALETTE: 1, GRAY_ALPHA: 2, RGBA: 4}

# First column, first row, step of columns and step of rows of each pass of an interlaced file.
PASSES = [(0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2)]


def chunk(kind, data=b""):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def packed_row(samples, depth):
    if depth == 16:
        return samples.astype(">u2").tobytes()
    bits = np.unpackbits(samples.astype(np.uint8).reshape(-1, 1), axis=1)[:, 8 - depth :]
    return np.packbits(bits).tobytes()


def packed_rows(samples, depth):
    return b"".join(b"\0" + packed_row(row.reshape(-1), depth) for row in samples)


def header(width, height, depth, colour, interlaced=False):
    return chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, interlaced))


def png(samples, depth, colour, interlaced=False, chunks=()):
    """The file of samples[row, column, channel]; the chunks are what stands between the header and the pixels."""
    if interlaced:
        parts = [samples[y::down, x::right] for x, y, right, down in PASSES]
        rows = b"".join(packed_rows(part, depth) for part in parts if part.size)
    else:
        rows = packed_rows(samples, depth)
    height, width = samples.shape[:2]
    body = header(width, height, depth, colour, interlaced) + b"".join(chunk(*each) for each in chunks)
    return b"\x89PNG\r\n\x1a\n" + body + chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND")


def chunks_of(file):
    """Kind, place of the data and size of each chunk."""
    at = 8
    while at < len(file):
        (size,) = struct.unpack(">I", file[at : at + 4])
        yield file[at + 4 : at + 8], at + 8, size
        at += size + 12


def mixed(width, height, depth, colour):
    """Samples that use the whole range of a depth, different in every channel."""
    y, x, c = np.indices((height, width, CHANNELS[colour]))
    if depth == 16:
        return (x * 9973 + y * 7919 + c * 5003 + x * y) & 0xFFFF
    return (x * 37 + y * 91 + c * 53 + x * y) & ((1 << depth) - 1)


def levels(samples, depth):
    """The nearest of 256 levels."""
    most = (1 << depth) - 1
    return (samples * 255 + most // 2) // most


def icc_profile():
    """Like sRGB with red and blue exchanged: a decoder that uses it does not give what is stored."""
    profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
    return profile.replace(b"rXYZ", b"XYZ?").replace(b"bXYZ", b"rXYZ").replace(b"XYZ?", b"bXYZ")


# ---- JPEG


def jpeg(picture, **options):
    stream = io.BytesIO()
    Image.fromarray(picture).save(stream, "JPEG", **options)
    return stream.getvalue()


def soft(width, height, channels=3):
    """A picture of slow slopes, which hardly changes in a JPEG file, even where colours have half of the rows and columns."""
    y, x, c = np.indices((height, width, channels))
    picture = np.rint(127 + 100 * np.sin((x + 2 * y) / 80 + c)).astype(np.uint8)
    return picture if channels == 3 else picture[:, :, 0]


def segments_of(file):
    """Code, place of the data and size of each segment up to the first scan's."""
    at = 2
    while True:
        code, size = file[at + 1], int.from_bytes(file[at + 2 : at + 4], "big") - 2
        yield code, at + 4, size
        if code == 0xDA:
            return
        at += size + 4


def segment(code, data):
    return bytes([0xFF, code]) + struct.pack(">H", len(data) + 2) + data


def place_of(file, codes):
    return next(place for code, place, size in segments_of(file) if code in codes)


def with_size(file, width, height):
    """The same file with another size in its header."""
    place = place_of(file, (0xC0, 0xC2))
    return file[: place + 1] + struct.pack(">HH", height, width) + file[place + 5 :]


def scan_of(file):
    return next(place + size for code, place, size in segments_of(file) if code == 0xDA)


def restart_jpeg(blocks):
    """A gray file of blocks of 8 x 8 pixels above each other, with restart markers between: each was a scan of its own."""
    files = [jpeg(block, quality=90) for block in blocks]
    first = files[0]
    scan_header = place_of(first, (0xDA,)) - 4
    start = with_size(first[:scan_header] + segment(0xDD, b"\0\1") + first[scan_header : scan_of(first)], 8, 8 * len(files))
    scans = [file[scan_of(file) : -2] for file in files]
    markers = [bytes([0xFF, 0xD0 + i % 8]) for i in range(len(files) - 1)]
    return start + b"".join(scan + marker for scan, marker in zip(scans, markers + [b"\xff\xd9"]))


def rgb_jpeg(picture, names=b"RGB"):
    """The channels of the file are red, green and blue: those of a file of Pillow's, with names and a segment that say so."""
    file = bytearray(jpeg(picture, quality=95, subsampling=0))
    frame, scan = place_of(file, (0xC0,)), place_of(file, (0xDA,))
    for i, name in enumerate(names):
        file[frame + 6 + 3 * i] = name
        file[scan + 1 + 2 * i] = name
    place, size = next((place, size) for code, place, size in segments_of(file) if code == 0xE0)
    return bytes(file[: place - 4] + segment(0xEE, b"Adobe\0\x64\0\0\0\0\0") + file[place + size :])


def decoded(file):
    """Planes as Pillow decodes them, 1 or 3."""
    with Image.open(io.BytesIO(file)) as image:
        picture = np.array(image)
    return picture[np.newaxis] if picture.ndim == 2 else picture.transpose(2, 0, 1)
