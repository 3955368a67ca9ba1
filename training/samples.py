"""Candidates for red eyes with what they are, found in rendered scenes and in free photographs by the program's own search."""
import subprocess

import numpy as np
from PIL import Image

import model
import render

NUMBERS = 5  # of a candidate before its features: its box, and its contrast


class Search:
    """The program's search, as a process that is asked picture by picture."""

    def __init__(self, program, configuration):
        self.process = subprocess.Popen([program, configuration], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def candidates(self, picture):
        """An array with a row for each candidate of an RGB picture: box, contrast and features."""
        height, width = picture.shape[:2]
        self.process.stdin.write(f"{width} {height}\n".encode() + np.ascontiguousarray(picture).tobytes())
        self.process.stdin.flush()
        count = int(self.process.stdout.readline())
        columns = NUMBERS + model.FEATURES
        return np.frombuffer(self.process.stdout.read(count * columns * 4), np.float32).reshape(count, columns)


def kind_of(candidate, pupils):
    """What a candidate is: "red", "normal", "near" an eye, or "other"."""
    x, y = (candidate[0] + candidate[2]) / 2, (candidate[1] + candidate[3]) / 2
    for pupil in pupils:
        if np.hypot(x - pupil["x"], y - pupil["y"]) < pupil["r"]:
            return "red" if pupil["red"] else "normal"
    near = any(np.hypot(x - p["x"], y - p["y"]) < 3 * p["r"] for p in pupils)
    return "near" if near else "other"


def of_scene(search, seed, number, photographs):
    picture, pupils = render.scene(np.random.default_rng([seed, number]), photographs)
    return [(kind_of(candidate, pupils), candidate) for candidate in search.candidates(picture)]


def of_photograph(search, seed, number, photograph):
    """Candidates in pieces of a photograph, none of which is a red eye."""
    rng = np.random.default_rng([seed, number, 1])
    found = []
    for scale in (1.0, 0.5, 0.25):
        size = max(int(photograph.shape[1] * scale), 16), max(int(photograph.shape[0] * scale), 16)
        reduced = np.asarray(Image.fromarray(photograph).resize(size, Image.BOX))
        for mirrored in (reduced, reduced[:, ::-1]):
            width, height = min(640, mirrored.shape[1]), min(480, mirrored.shape[0])
            for _ in range(4 if scale == 1.0 else 2):
                x, y = rng.integers(mirrored.shape[1] - width + 1), rng.integers(mirrored.shape[0] - height + 1)
                found += [("other", c) for c in search.candidates(mirrored[y : y + height, x : x + width])]
    return found
