"""The free pictures that scenes are made of."""
import pathlib

import numpy as np
from PIL import Image

LONGEST_SIDE = 1500  # of a photograph
LONGEST_SIDE_OF_CUT_OUT = 400


def paths(listed):
    return [pathlib.Path(line) for line in pathlib.Path(listed).read_text().splitlines()]


def photographs(listed):
    loaded = []
    for path in paths(listed):
        picture = Image.open(path).convert("RGB")
        picture.thumbnail((LONGEST_SIDE, LONGEST_SIDE), Image.BOX)
        loaded.append(np.asarray(picture))
    return loaded


def cut_outs(listed):
    """Pictures of single things on transparent ground."""
    loaded = []
    for path in paths(listed):
        picture = Image.open(path).convert("RGBA")
        picture.thumbnail((LONGEST_SIDE_OF_CUT_OUT, LONGEST_SIDE_OF_CUT_OUT), Image.BOX)
        loaded.append(picture)
    return loaded
