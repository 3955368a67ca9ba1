#!/usr/bin/env python3
"""The study behind the default of --working-size: how the answer about a photograph, and its curves, depend on the size of the
working copy. Writes the tables of docs/working-size.md to the standard output.

    working_size.py KO FOLDER PHOTO...

KO is the program, FOLDER a place for copies of the photographs at other sizes, which are kept for the next run.
"""
import json
import pathlib
import statistics
import subprocess
import sys

import numpy
from PIL import Image

Image.MAX_IMAGE_PIXELS = None

WORKING_SIZES = ["0.25", "0.5", "1", "2", "full"]
COPY_SIZES = [4.0, 2.0, 1.0, 0.5]  # megapixels, beside the size that the photograph has
LIMITS = {"detail": 63, "entropy": 20, "noise": 23}  # of the default policy, for the distance from them
LARGEST_FOR_DIFFERENCES = 9.5  # megapixels


def copies(photo, folder):
    """The photograph at its own size and at each smaller one, as PNG files: (megapixels, path)."""
    picture = Image.open(photo)
    picture = picture.convert("L" if picture.mode in ("1", "L", "I") else "RGB")
    megapixels = picture.width * picture.height / 1e6
    found = []
    for size in [megapixels] + [size for size in COPY_SIZES if size < 0.95 * megapixels]:
        path = folder / f"{photo.stem}-{size:.2f}.png"
        if not path.exists():
            scale = (size / megapixels) ** 0.5
            side = (max(1, round(picture.width * scale)), max(1, round(picture.height * scale)))
            copy = picture if size == megapixels else picture.resize(side, Image.Resampling.BOX)
            copy.save(path, compress_level=1)
        found.append((size, path))
    return found


def judge(ko, paths, working_size):
    """The judgement of each picture: (enhanced by default, blocks over the threshold by measure, seconds)."""
    command = [ko, "judge", "--json", "--working-size", working_size, *paths]
    lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
    answers = []
    for line in lines:
        answer = json.loads(line)
        answers.append((answer["decisions"][1]["enhanced"], answer["blocks_over"]))
    return answers


def enhanced(ko, path, folder, working_size):
    target = folder / "enhanced.png"
    command = [ko, "enhance", "--json", "--force", "--jobs", "1", "--working-size", working_size, path, "-o", target]
    timings = json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)["timings"]
    return numpy.asarray(Image.open(target)).astype(numpy.int16), timings["curves"]


def shown(counts):
    return "/".join("-" if counts[measure] is None else str(counts[measure]) for measure in LIMITS)


def study_answers(ko, photographs):
    print("| working copy | enhanced | same answer at every size | others |")
    print("|---|---|---|---|")
    changing = []
    for working_size in WORKING_SIZES:
        same = yes = total = 0
        others = []
        for name, sizes in photographs:
            answers = judge(ko, [path for _, path in sizes], working_size)
            yes += answers[0][0]
            if len(sizes) < 2:
                continue
            total += 1
            if len({answer[0] for answer in answers}) == 1:
                same += 1
            else:
                others.append(name)
                row = ", ".join(f"{size:.2g} MP: {shown(counts)}" for (size, _), (_, counts) in zip(sizes, answers))
                changing.append(f"| {working_size} | {name} | {row} |")
        print(f"| {working_size} | {yes} of {len(photographs)} | {same} of {total} ({100 * same / total:.1f} %) | "
              f"{len(others)} |")
    print("\nBlocks over the thresholds (detail/entropy/noise; limits of the default policy 63/20/23) of those that change:\n")
    print("| working copy | photograph | blocks at each size |")
    print("|---|---|---|")
    print("\n".join(changing))


def study_margins(ko, photographs, working_size):
    print(f"\nNearest to a limit at {working_size} MP:\n")
    print("| photograph | blocks at its own size | at 0.5 MP |")
    print("|---|---|---|")
    for name, sizes in photographs:
        answers = judge(ko, [path for _, path in sizes], working_size)
        first = answers[0][1]
        if any(first[m] is not None and abs(first[m] - limit) <= 1 for m, limit in LIMITS.items()):
            print(f"| {name} | {shown(first)} | {shown(answers[-1][1])} |")


def study_decoding(ko, photographs, originals, working_size):
    """JPEG files are decoded reduced for the working copy: does the answer differ from that about all of their pixels?"""
    other = 0
    jpegs = 0
    for (_, sizes), original in zip(photographs, originals):
        if original.suffix.lower() not in (".jpg", ".jpeg"):
            continue
        jpegs += 1
        (reduced, _), (whole, _) = judge(ko, [original, sizes[0][1]], working_size)
        other += reduced != whole
    print(f"\nJPEG files whose answer differs from that about their pixels as PNG: {other} of {jpegs}")


def study_pictures(ko, photographs, folder):
    print("\n| working copy | median difference | 90th percentile | largest | bytes within 2 | curves |")
    print("|---|---|---|---|---|---|")
    chosen = [sizes[0][1] for _, sizes in photographs if 1.9 < sizes[0][0] < LARGEST_FOR_DIFFERENCES]
    differences = {working_size: [] for working_size in WORKING_SIZES}
    for path in chosen:
        whole, seconds = enhanced(ko, path, folder, "full")
        differences["full"].append((0.0, 1.0, seconds))
        for working_size in WORKING_SIZES[:-1]:
            picture, seconds = enhanced(ko, path, folder, working_size)
            difference = numpy.abs(picture - whole)
            root = float((difference.astype(numpy.float64) ** 2).mean() ** 0.5)
            differences[working_size].append((root, float((difference <= 2).mean()), seconds))
    for working_size in WORKING_SIZES:
        roots, near, seconds = (sorted(column) for column in zip(*differences[working_size]))
        print(f"| {working_size} | {statistics.median(roots):.2f} | {roots[int(0.9 * len(roots))]:.2f} | {roots[-1]:.2f} | "
              f"{100 * statistics.median(near):.1f} % | {1000 * statistics.median(seconds):.0f} ms |")
    print(f"\n{len(chosen)} photographs of 1.9 to {LARGEST_FOR_DIFFERENCES} megapixels; root mean square, in levels of 255.")


def main():
    ko, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    originals = [pathlib.Path(photo) for photo in sys.argv[3:]]
    folder.mkdir(parents=True, exist_ok=True)
    photographs = [(photo.stem, copies(photo, folder)) for photo in originals]
    print(f"{len(photographs)} photographs\n")
    study_answers(ko, photographs)
    study_margins(ko, photographs, "0.5")
    study_decoding(ko, photographs, originals, "0.5")
    study_pictures(ko, photographs, folder)


if __name__ == "__main__":
    main()
