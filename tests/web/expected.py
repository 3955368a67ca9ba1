"""Writes pictures and what the Python package makes of them, for the tests of the package for JavaScript.

    python3 expected.py FOLDER

writes the pictures as raw bytes, and expected.json: the calls with their arguments and their results. Long results stand there
as SHA-256 sums of their bytes.
"""

import hashlib
import json
import os
import sys
from pathlib import Path

import numpy as np
from PIL import Image

import ko

SAMPLES = Path(os.environ["KO_ROOT"]) / "samples"

SIDES = [(1, 1), (1, 90), (2, 3), (7, 5), (16, 16), (63, 64), (100, 1), (129, 257), (640, 33), (301, 199)]

ENHANCEMENTS = [
    {},
    {"policy": "always"},
    {"policy": "risky", "score": 0.35, "grid": [5, 3], "max_gain": 4.5},
    {"policy": "always", "grid": [1, 1], "strength": 12.5, "limit": 0.9, "levels": 9, "max_slope": 0, "ratio": 1.0},
    {"policy": "always", "grid": [256, 2], "max_slope": 2, "working_size": 0.05, "ratio": 0.0},
    {"policy": "conservative", "score": 0.2, "working_size": None},
]

# Scores appear in reasons with as many digits as they need.
JUDGEMENTS = [{}, {"score": 0.5, "levels": 20, "working_size": 0.1}, {"score": 0.7000001}, {"score": 1.0}, {"score": 2 / 3}]

REPAIRS = [
    {},
    {"sensitivity": "careful"},
    {"sensitivity": "eager", "frames": True},
    {"full": True},
    {"plain": True},
    {"plain": True, "full": True, "frames": True},
]

FORMS = ["text", "binary", "encoded"]


def summed(array):
    return hashlib.sha256(np.ascontiguousarray(array).tobytes()).hexdigest()


def summed_scores(scores):
    """NaN has several forms, of which one is taken for all."""
    return None if scores is None else summed(np.where(np.isnan(scores), np.float32(np.nan), scores))


def gradient(height, width):
    y, x = np.mgrid[0:height, 0:width]
    levels = (x * 255.0 / max(width - 1, 1) + y * 99.0 / max(height - 1, 1)) / 2
    return np.stack([levels, levels / 2, 255 - levels], axis=-1).astype(np.uint8)


def scene(random, height, width):
    """A bright part over a dark one with detail, and some noise."""
    rough = random.integers(0, 60, (height // 9 + 2, width // 7 + 2, 3))
    levels = np.kron(rough, np.ones((9, 7, 1)))[:height, :width] + random.normal(0, 1, (height, width, 3))
    levels[: height // 3] += 150
    return np.clip(levels, 0, 255).astype(np.uint8)


def made_pictures():
    """Thirty pictures: of each pair of sides one of noise, one of gradients and one dark scene."""
    for number, (height, width) in enumerate(SIDES):
        random = np.random.default_rng(number)
        yield f"noise{number}", random.integers(0, 256, (height, width, 3), dtype=np.uint8)
        yield f"gradient{number}", gradient(height, width)
        yield f"scene{number}", scene(random, height, width)


def samples():
    for name in ["rocket.jpg", "coffee.png", "chelsea.png", "face.jpg"]:
        with Image.open(SAMPLES / name) as image:
            yield name, np.array(image.convert("RGB"))


def grays(pictures):
    return [(f"gray {name}", np.ascontiguousarray(picture[..., 1])) for name, picture in pictures[:1] + pictures[11:14]]


def enhanced(picture, options):
    result, enhancement = ko.enhance(picture, **options)
    measures = enhancement.measures
    return {
        "pixels": summed(result),
        "decision": enhancement.decision,
        "reason": enhancement.reason or None,
        "measures": measures and {name: {"value": one.value, "limit": one.limit} for name, one in measures.items()},
        "curves": enhancement.curves and summed(enhancement.curves.array),
    }


def judged(picture, options):
    judgement = ko.judge(picture, **options)
    return {
        "values": judgement.values,
        "limits": judgement.limits,
        "blocks": {name: summed_scores(one.scores) for name, one in judgement.blocks.items()},
        "thresholds": {name: one.threshold for name, one in judgement.blocks.items()},
        "verdicts": {
            name: {"enhanced": one.enhanced, "passesAs": one.passes_as, "reason": one.reason or None}
            for name, one in judgement.verdicts.items()
        },
    }


def saved(curves, form, folder):
    path = folder / "curves"
    try:
        curves.save(path, form)
    except ValueError as error:
        return str(error)
    return summed(np.frombuffer(path.read_bytes(), np.uint8))


def fitted(picture, options, folder):
    curves = ko.Curves.fit(picture, **options)
    return {
        "grid": list(curves.grid),
        "array": summed(curves.array),
        "files": {form: saved(curves, form, folder) for form in FORMS},
        "applied": summed(curves.apply(picture, ratio=0.25)),
    }


def repaired(picture, options):
    result, eyes = ko.redeye(picture, **options)

    def numbers(box):
        return None if box is None else [int(side) for side in box]

    places = [
        {
            "box": numbers(place.box),
            "window": numbers(place.window),
            "label": place.label,
            "score": place.score,
            "feScore": place.fe_score,
            "beScore": place.be_score,
        }
        for place in eyes.places
    ]
    return {"pixels": summed(result), "decision": eyes.decision, "places": places}


def calls(name, picture, folder):
    is_sample = "." in name
    for options in ENHANCEMENTS:
        yield "enhance", options, enhanced(picture, options)
    for options in JUDGEMENTS:
        yield "judge", options, judged(picture, options)
    for options in [{}, {"grid": [3, 4], "max_gain": 8.0}]:
        yield "fit", options, fitted(picture, options, folder)
    for options in REPAIRS if is_sample else REPAIRS[:1]:
        yield "redeye", options, repaired(picture, options)


def main(folder):
    folder.mkdir(parents=True, exist_ok=True)
    coloured = [*samples(), *made_pictures()]
    pictures = []
    for name, picture in coloured + grays(coloured):
        (folder / f"{name}.raw").write_bytes(picture.tobytes())
        found = [{"call": call, "options": options, "result": result} for call, options, result in calls(name, picture, folder)]
        height, width = picture.shape[:2]
        pictures.append(
            {"name": name, "width": width, "height": height, "channels": 3 if picture.ndim == 3 else 1, "calls": found}
        )
    (folder / "expected.json").write_text(json.dumps(pictures, indent=1))


if __name__ == "__main__":
    main(Path(sys.argv[1]))
