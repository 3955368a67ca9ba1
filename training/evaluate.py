"""What `ko redeye` makes of the pictures of a folder, as a table and a sheet of crops before and after.

    evaluate.py KO FOLDER SHEET [OPTION...]

FOLDER holds pictures and annotations.json, which has for each file

    "pupils": red pupils, each with middle "x", "y" and radius "r" in pixels; the pixel in column i spans i to i + 1
    "eyes": ordinary eyes in the same form, with the radius of the iris; may be missing

SHEET is the PNG file for the crops. The options are passed on to `ko redeye`.
"""
import json
import math
import pathlib
import subprocess
import sys
import tempfile

import numpy as np
from PIL import Image, ImageDraw

WORKING_AREA = 1_000_000  # pixels of the library's working image
SIZES = [(0, 3.5), (3.5, 4.5), (4.5, 6), (6, 12), (12, 30), (30, 40), (40, math.inf)]  # diameters in working pixels
AT_ONCE = 200  # files in one run
CROP, COLUMNS, MOST_OF_A_KIND = 120, 5, 10
WRONG, KEPT, MISSED, REPAIRED = range(4)  # kinds of crops, in the order of the sheet


def interval(count, total):
    """Wilson's 95 % confidence interval of a share."""
    if total == 0:
        return 0.0, 1.0
    z, p = 1.96, count / total
    middle = (p + z * z / (2 * total)) / (1 + z * z / total)
    half = z * math.sqrt(p * (1 - p) / total + z * z / (4 * total * total)) / (1 + z * z / total)
    return max(middle - half, 0.0), min(middle + half, 1.0)


def share(count, total):
    low, high = interval(count, total)
    return f"{count:5d} of {total:5d}  {100 * count / max(total, 1):5.1f} %  ({100 * low:.1f} to {100 * high:.1f})"


def run(ko, files, output, options):
    """The program's JSON objects by file name."""
    objects = {}
    for start in range(0, len(files), AT_ONCE):
        part = files[start : start + AT_ONCE]
        command = [ko, "redeye", "--json", *options, "-o", str(output) + "/", *map(str, part)]
        for line in subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False).stdout.splitlines():
            found = json.loads(line)
            objects[pathlib.Path(found["file"]).name] = found
        print(f"\r{min(start + AT_ONCE, len(files))} of {len(files)} pictures", end="", file=sys.stderr, flush=True)
    print(file=sys.stderr)
    return objects


def pixels_of(path):
    return np.asarray(Image.open(path).convert("RGB"), np.int16)


def disc(shape, circle, radii=1.0):
    y, x = np.ogrid[: shape[0], : shape[1]]
    return np.hypot(x + 0.5 - circle["x"], y + 0.5 - circle["y"]) <= radii * circle["r"]


def redness(picture, circle):
    inside = picture[disc(picture.shape, circle)].astype(float)
    return float(np.clip(inside[:, 0] - inside[:, 1:].mean(axis=1), 0, None).mean()) if len(inside) else 0.0


def middle(place):
    x0, y0, x1, y1 = place["box"]
    return (x0 + x1) / 2, (y0 + y1) / 2


def inside(place, circle, radii=1.0):
    x, y = middle(place)
    return math.hypot(x - circle["x"], y - circle["y"]) < radii * circle["r"]


def why_not_proposed(picture, pupil, diameter):
    """The likely reason why no place was found at a pupil."""
    shorter = min(picture.shape[:2]) * math.sqrt(min(1.0, WORKING_AREA / (picture.shape[0] * picture.shape[1])))
    reddest = float(np.percentile(picture[..., 0] - picture[..., 1:].mean(axis=2), 99.9))
    red = redness(picture, pupil)
    if diameter < 4.5:
        return f"too small: {diameter:.1f} working pixels"
    if diameter > 0.1 * shorter:
        return f"too large: {diameter:.0f} working pixels of {shorter:.0f}"
    if red < 0.35 * reddest:
        return f"faint: its redness is {red:.0f}, that of the reddest things {reddest:.0f}"
    return "not round or not compact enough"


class Tally:
    """What is counted over all pictures."""

    def __init__(self):
        self.pupils = []  # (diameter in working pixels, proposed, label, repaired)
        self.eyes = []  # whether an ordinary eye was changed
        self.wrong = []  # (file, place) accepted that are no red pupils
        self.beside = 0  # of these, on an eye
        self.others = 0  # places on no pupil
        self.pictures = 0
        self.with_wrong = 0
        self.reasons = []
        self.crops = []  # (kind, title, before, after)

    def add(self, name, before, after, annotation, found):
        self.pictures += 1
        working = math.sqrt(min(1.0, WORKING_AREA / (before.shape[0] * before.shape[1])))
        places = found.get("places", [])
        pupils, eyes = annotation.get("pupils", []), annotation.get("eyes", [])
        for pupil in pupils:
            here = [place for place in places if inside(place, pupil)]
            labels = {place["label"] for place in here}
            label = next((label for label in ("accepted", "undecided", "rejected") if label in labels), "")
            red = redness(before, pupil), redness(after, pupil)
            repaired = red[1] <= red[0] / 2
            diameter = 2 * pupil["r"] * working
            self.pupils.append((diameter, bool(here), label, repaired))
            if not here:
                self.reasons.append(f"{name} ({pupil['x']:.0f}, {pupil['y']:.0f}): {why_not_proposed(before, pupil, diameter)}")
            self.crop(name, f"{label or 'not found'}{'' if repaired else ', red'}", before, after, pupil,
                      REPAIRED if repaired else KEPT if here else MISSED)
        for eye in eyes:
            around = disc(before.shape, eye)
            self.eyes.append(bool((before[around] != after[around]).any()))
        others = [place for place in places if not any(inside(place, pupil) for pupil in pupils)]
        self.others += len(others)
        wrong = [place for place in others if place["label"] == "accepted"]
        self.with_wrong += bool(wrong)
        for place in wrong:
            self.wrong.append((name, place))
            self.beside += any(inside(place, eye, 2) for eye in pupils + eyes)
            x, y = middle(place)
            self.crop(name, "WRONG", before, after, {"x": x, "y": y, "r": max(place["box"][2] - place["box"][0], 4) / 2}, WRONG)

    def crop(self, name, title, before, after, circle, kind):
        half = max(3.2 * circle["r"], 12)
        box = [int(circle["x"] - half), int(circle["y"] - half), int(circle["x"] + half), int(circle["y"] + half)]
        pair = [Image.fromarray(p.astype(np.uint8)).crop(box).resize((CROP, CROP), Image.BICUBIC) for p in (before, after)]
        self.crops.append((kind, f"{pathlib.Path(name).stem[:12]} {title}", *pair))

    def table(self):
        pupils = self.pupils
        proposed = [pupil for pupil in pupils if pupil[1]]
        large = [pupil for pupil in pupils if pupil[0] >= 6]
        rows = [("pictures", str(self.pictures))]
        if pupils:
            rows += [("pupils proposed", share(len(proposed), len(pupils))),
                     ("  accepted", share(sum(p[2] == "accepted" for p in pupils), len(pupils))),
                     ("  left undecided", share(sum(p[2] == "undecided" for p in pupils), len(pupils))),
                     ("pupils repaired", share(sum(p[3] for p in pupils), len(pupils))),
                     ("  of 6 working pixels and more", share(sum(p[3] for p in large), len(large))),
                     ("  of the proposed ones", share(sum(p[3] for p in proposed), len(proposed)))]
            rows += [(f"  {low:g} {'and more' if high == math.inf else f'to {high:g}'} working pixels", share(sum(p[3] for p in part), len(part)) +
                      f", proposed {sum(p[1] for p in part)}")
                     for low, high in SIZES if (part := [p for p in pupils if low <= p[0] < high])]
        if self.eyes:
            rows.append(("ordinary eyes changed", share(sum(self.eyes), len(self.eyes))))
        rows += [("other places", str(self.others)),
                 ("  accepted", f"{len(self.wrong)}, {self.beside} of them on an eye"),
                 ("pictures with a wrong change", share(self.with_wrong, self.pictures))]
        return "\n".join(f"{caption:34}{value}" for caption, value in rows)

    def sheet(self):
        """Some crops of each kind."""
        crops = [crop for kind in range(4) for crop in [c for c in self.crops if c[0] == kind][:MOST_OF_A_KIND]]
        rows = max(math.ceil(len(crops) / COLUMNS), 1)
        sheet = Image.new("RGB", (COLUMNS * (2 * CROP + 10), rows * (CROP + 22)), "white")
        draw = ImageDraw.Draw(sheet)
        for number, (_, title, before, after) in enumerate(crops):
            x, y = number % COLUMNS * (2 * CROP + 10), number // COLUMNS * (CROP + 22)
            draw.text((x + 2, y + 4), title, fill="black")
            sheet.paste(before, (x, y + 20))
            sheet.paste(after, (x + CROP + 2, y + 20))
        return sheet


def main():
    ko, folder, target, options = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3], sys.argv[4:]
    annotations = json.loads((folder / "annotations.json").read_text())
    tally = Tally()
    with tempfile.TemporaryDirectory() as output:
        found = run(ko, [folder / name for name in annotations], output, options)
        for name, annotation in annotations.items():
            if name not in found or "output" not in found[name]:
                print(f"{name}: not read", file=sys.stderr)
                continue
            tally.add(name, pixels_of(folder / name), pixels_of(found[name]["output"]), annotation, found[name])
    print(tally.table())
    if tally.reasons:
        print("not proposed:", *tally.reasons, sep="\n  ")
    for name, place in tally.wrong:
        print(f"wrong: {name} {place}")
    tally.sheet().save(target)
    print(f"crops: {target}")


if __name__ == "__main__":
    main()
