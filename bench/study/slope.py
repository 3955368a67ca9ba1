#!/usr/bin/env python3
"""The study behind the default of --max-slope: specks, contours and grain in smooth parts of pictures, by the limit on the slope of
their curves. Writes the table of docs/slope.md to the standard output and its sheet of crops to a file.

    slope.py KO FOLDER SHEET PHOTO...

KO is the program, FOLDER a place for results. The photographs are to have at most a few megapixels.
"""
import pathlib
import subprocess
import sys

import numpy
from PIL import Image, ImageDraw
from scipy import ndimage

LIMITS = [0, 2, 3, 4, 5, 6, 8]  # 0 is none
DEFAULT = 3
GAIN = 3.0  # the largest that the curves intend
# Crops for the sheet: photograph, centre in pixels, what to look at.
SPOTS = [("FreshFlower", 80, 916, "a flower's background"), ("YellowFlower", 843, 362, "between petals"),
         ("DarkestHour", 1621, 726, "a night sky"), ("coffee", 62, 44, "a dark table"), ("rocket", 540, 60, "an evening sky"),
         ("Storm", 1290, 499, "a stormy sky")]
CROP = (64, 46)  # half of its sides
ENLARGED = 3


def luminance(picture):
    levels = picture.astype(numpy.float32)
    return levels if picture.ndim == 2 else levels @ numpy.array([0.299, 0.587, 0.114], numpy.float32)


def deviation(levels, side):
    mean = ndimage.uniform_filter(levels, side)
    return numpy.sqrt(numpy.maximum(ndimage.uniform_filter(levels * levels, side) - mean * mean, 0.0))


def enhanced(ko, path, folder, limit):
    target = folder / f"{path.stem}-slope-{limit}.png"
    command = [ko, "enhance", "--quiet", "--force", "--max-slope", str(limit), path, "-o", target]
    subprocess.run(command, check=True)
    return numpy.asarray(Image.open(target))


def measures(before, after, fitted):
    """Specks and steps in a thousand smooth pixels, grain, and the mean and root mean square of the change."""
    old, new = luminance(before), luminance(after)
    smooth = deviation(old, 7) < 1.5
    count = max(smooth.sum(), 1)
    explained = GAIN * numpy.abs(old - ndimage.median_filter(old, 5)) + 1.5
    specks = (numpy.abs(new - ndimage.median_filter(new, 5)) - explained > 3.0) & smooth
    pairs = smooth[:, 1:] & smooth[:, :-1] & (numpy.abs(numpy.diff(old, axis=1)) <= 1.0)
    differences = numpy.diff(new, axis=1)[pairs]
    steps = (numpy.abs(differences) >= 6.0).sum() / max(pairs.sum(), 1)
    grain = float(numpy.sqrt((differences ** 2).mean())) if differences.size else 0.0
    change = after.astype(numpy.float32) - fitted
    return [1000.0 * specks.sum() / count, 1000.0 * steps, grain, float(numpy.abs(change).mean()),
            float(numpy.sqrt((change ** 2).mean()))]


def sheet(rows, path):
    width, height = 2 * CROP[0] * ENLARGED, 2 * CROP[1] * ENLARGED
    titles = ["as it was", "curves as fitted", f"at most {DEFAULT} levels a step"]
    page = Image.new("RGB", (len(titles) * (width + 8) + 8, 24 + len(rows) * (height + 24)), "white")
    draw = ImageDraw.Draw(page)
    for column, title in enumerate(titles):
        draw.text((8 + column * (width + 8), 6), title, fill="black")
    for row, (title, pictures) in enumerate(rows):
        top = 24 + row * (height + 24)
        draw.text((8, top + 6), title, fill="black")
        for column, picture in enumerate(pictures):
            crop = Image.fromarray(picture).resize((width, height), Image.Resampling.NEAREST)
            page.paste(crop, (8 + column * (width + 8), top + 22))
    page.save(path, quality=90, subsampling=0)


def crop_of(picture, x, y):
    x, y = min(max(x, CROP[0]), picture.shape[1] - CROP[0]), min(max(y, CROP[1]), picture.shape[0] - CROP[1])
    return picture[y - CROP[1]:y + CROP[1], x - CROP[0]:x + CROP[0]]


def main():
    ko, folder, sheet_path = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3]
    folder.mkdir(parents=True, exist_ok=True)
    table = {limit: [] for limit in LIMITS}
    rows = []
    for photo in map(pathlib.Path, sys.argv[4:]):
        before = numpy.asarray(Image.open(photo))
        fitted = enhanced(ko, photo, folder, 0)
        for limit in LIMITS:
            after = enhanced(ko, photo, folder, limit)
            table[limit].append(measures(before, after, fitted))
            for name, x, y, title in SPOTS:
                if limit == DEFAULT and photo.stem.startswith(name):
                    rows.append((f"{name}: {title}", [crop_of(picture, x, y) for picture in (before, fitted, after)]))
    print("| most levels a step | specks | worst | steps | worst | grain | mean change | worst | rms change | worst |")
    print("|---|---|---|---|---|---|---|---|---|---|")
    for limit in LIMITS:
        specks, steps, grain, change, root = numpy.array(table[limit]).T
        print(f"| {limit or 'as fitted'} | {specks.mean():.3f} | {specks.max():.2f} | {steps.mean():.3f} | {steps.max():.2f} | "
              f"{grain.mean():.3f} | {change.mean():.3f} | {change.max():.2f} | {root.mean():.2f} | {root.max():.2f} |")
    sheet(sorted(rows), sheet_path)


if __name__ == "__main__":
    main()
