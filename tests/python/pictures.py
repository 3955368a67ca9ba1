"""Many small pictures of every format, cut from the samples, and files that are none."""

import os
import struct
import zlib
from pathlib import Path

import numpy as np
from PIL import Image

SAMPLES = ["astronaut.png", "chelsea.png", "coffee.png", "face.jpg", "rocket.jpg"]


def make_pictures(folder, count, seed=5):
    """Writes pictures that differ in place, size, brightness, format and channels. Some benefit from an enhancement."""
    generator = np.random.default_rng(seed)
    samples = []
    for name in SAMPLES:
        with Image.open(Path(os.environ["KO_ROOT"]) / "samples" / name) as image:
            samples.append(np.array(image.convert("RGB")))
    folder.mkdir()
    names = []
    for i in range(count):
        sample = samples[generator.integers(len(samples))]
        height, width = generator.integers(60, 160, 2)
        top, left = (generator.integers(0, sample.shape[axis] - side) for axis, side in enumerate((height, width)))
        cut = sample[top : top + height, left : left + width] * generator.uniform(0.3, 1.0)
        image = Image.fromarray(cut.astype(np.uint8))
        name = f"{i:03}" + [".jpg", ".jpg", ".png", ".webp", ".tif"][i % 5]
        (image.convert("L") if i % 7 == 3 and not name.endswith(".webp") else image).save(folder / name)
        names.append(name)
    return names


def claiming_png(width, height, interlaced):
    """A PNG file of a few bytes that claims a size."""

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, interlaced)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(bytes(1 << 20))) + chunk(b"IEND", b"")
