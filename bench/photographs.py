#!/usr/bin/env python3
"""Makes the photographs that bench/program.py measures on: a sample enlarged to 1, 6, 12, 24 and 100 megapixels, with the grain of a
camera. Existing ones are kept. Prints the megapixels and the path of each.

    photographs.py FOLDER
"""
import pathlib
import sys

import numpy
from PIL import Image

Image.MAX_IMAGE_PIXELS = None

SIZES = {1: (1225, 816), 6: (3000, 2000), 12: (4000, 3000), 24: (6000, 4000), 100: (12248, 8165)}
SAMPLE = pathlib.Path(__file__).resolve().parent.parent / "samples" / "rocket.jpg"
GRAIN = 9.0  # levels; makes files of about 0.35 bytes a pixel, as cameras write them


def photograph(path, width, height, seed):
    grain = numpy.random.default_rng(seed).normal(0.0, GRAIN, (height // 2 + 1, width // 2 + 1)).astype(numpy.float32)
    enlarged = Image.fromarray(grain).resize((width, height), Image.Resampling.BICUBIC)
    rows = numpy.asarray(Image.open(SAMPLE).resize((width, height), Image.Resampling.BICUBIC)).copy()
    for top in range(0, height, 512):
        band = numpy.asarray(enlarged.crop((0, top, width, min(top + 512, height))))[..., None]
        rows[top:top + 512] = (rows[top:top + 512] + band).clip(0, 255)
    Image.fromarray(rows).save(path, quality=92, subsampling=2)


def main():
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    for megapixels, (width, height) in SIZES.items():
        path = folder / f"photograph-{megapixels}.jpg"
        if not path.exists():
            photograph(path, width, height, megapixels)
        print(megapixels, path)


if __name__ == "__main__":
    main()
