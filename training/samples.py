"""Candidates for red eyes with what they are, found in rendered scenes and in free photographs by the program's own search."""
import subprocess

import numpy as np
from PIL import Image

import model
import render

CIRCLE, EVIDENCE = 3, 22  # numbers of a candidate before its features


class Search:
    """The program's search, as a process that is asked picture by picture."""

    def __init__(self, program, configuration):
        self.process = subprocess.Popen([program, configuration], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def candidates(self, picture):
        """An array with a row for each candidate of an RGB picture: circle, evidence and features."""
        height, width = picture.shape[:2]
        self.process.stdin.write(f"{width} {height}\n".encode() + np.ascontiguousarray(picture).tobytes())
        self.process.stdin.flush()
        count = int(self.process.stdout.readline())
        columns = CIRCLE + EVIDENCE + model.FEATURES
        return np.frombuffer(self.process.stdout.read(count * columns * 4), np.float32).reshape(count, columns)


def kind_of(candidate, eyes):
    """What a candidate is: a "red" pupil, the iris or pupil of a "normal" eye, "near" an eye, or "other"."""
    x, y, radius = candidate[:CIRCLE]
    near = False
    for eye in eyes:
        distance = np.hypot(x - eye["x"], y - eye["y"])
        if eye["red"] and distance < eye["r"] and radius < 2 * eye["r"]:
            return "red"
        if not eye["red"] and distance < eye["iris"]:
            return "normal"
        near = near or distance < 2 * eye["iris"]
    return "near" if near else "other"


def of_scene(search, seed, number, photographs, cut_outs):
    picture, eyes = render.scene(np.random.default_rng([seed, number]), photographs, cut_outs)
    return [(kind_of(candidate, eyes), candidate) for candidate in search.candidates(picture)]


def of_photograph(search, seed, number, photograph):
    """Candidates in a photograph and in pieces of it, none of which is a red eye."""
    rng = np.random.default_rng([seed, number, 1])
    found = []
    for scale in (1.0, 0.5, 0.25):
        size = max(int(photograph.shape[1] * scale), 16), max(int(photograph.shape[0] * scale), 16)
        reduced = np.asarray(Image.fromarray(photograph).resize(size, Image.BOX))
        for mirrored in (reduced, reduced[:, ::-1]):
            pieces = [mirrored]
            width, height = min(640, mirrored.shape[1]), min(480, mirrored.shape[0])
            for _ in range(4 if scale == 1.0 else 2):
                x, y = rng.integers(mirrored.shape[1] - width + 1), rng.integers(mirrored.shape[0] - height + 1)
                pieces.append(mirrored[y : y + height, x : x + width])
            for piece in pieces:
                found += [("other", candidate) for candidate in search.candidates(piece)]
    return found
