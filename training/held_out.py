"""Writes pictures on which the model was not trained, with annotations for evaluate.py.

    held_out.py rendered COUNT FOLDER PHOTOGRAPHS CUT_OUTS
    held_out.py free FOLDER PHOTOGRAPHS

PHOTOGRAPHS and CUT_OUTS are files with a path per line. Rendered scenes have another seed and other parameters than those of the
training. The free photographs have no red eyes; each is written whole, at 12 megapixels at most.
"""
import json
import multiprocessing
import os
import pathlib
import sys

import numpy as np
from PIL import Image

import pictures
import render

SEED = 2
state = {}


def start(folder, photographs, cut_outs):
    state.update(folder=folder, photographs=photographs, cut_outs=cut_outs)


def write_scene(number):
    rng = np.random.default_rng([SEED, number])
    picture, eyes = render.scene(rng, state["photographs"], state["cut_outs"], render.HeldOutStyle)
    name = f"{number:04d}.png"
    Image.fromarray(picture).save(state["folder"] / name, compress_level=1)
    annotation = {"pupils": [], "eyes": []}
    for eye in eyes:
        radius = eye["r"] if eye["red"] else eye["iris"]
        annotation["pupils" if eye["red"] else "eyes"].append({"x": eye["x"], "y": eye["y"], "r": radius})
    return name, annotation


def rendered(count, folder, photographs, cut_outs):
    arguments = (folder, pictures.photographs(photographs), pictures.cut_outs(cut_outs))
    with multiprocessing.Pool(os.cpu_count(), start, arguments) as pool:
        return dict(pool.imap(write_scene, range(count), 8))


def free(folder, photographs):
    annotations = {}
    for number, path in enumerate(pictures.paths(photographs)):
        picture = Image.open(path).convert("RGB")
        picture.thumbnail((4000, 3000), Image.BOX)
        name = f"{number:03d}_{path.stem}.jpg"
        picture.save(folder / name, quality=92)
        annotations[name] = {"pupils": []}
    return annotations


def main():
    kind, *arguments = sys.argv[1:]
    if kind == "rendered":
        count, folder, photographs, cut_outs = arguments
        folder = pathlib.Path(folder)
        folder.mkdir(parents=True, exist_ok=True)
        annotations = rendered(int(count), folder, photographs, cut_outs)
    else:
        folder, photographs = arguments
        folder = pathlib.Path(folder)
        folder.mkdir(parents=True, exist_ok=True)
        annotations = free(folder, photographs)
    (folder / "annotations.json").write_text(json.dumps(annotations, default=float))


if __name__ == "__main__":
    main()
