"""The files of a red-eye model: a configuration, a projection, two classifiers, and a gate."""
import pathlib
import struct

import numpy as np

PATCH, BINS, CELLS = 32, 12, 4
FEATURES = 3 * BINS * CELLS * CELLS  # of three channels
ROWS = BINS * CELLS * CELLS  # the fewest that a projection may have

GEOMETRY = {
    "side of a patch in pixels": PATCH,
    "orientation bins": BINS,
    "cells per side": CELLS,
    "width of the gradient filter": 1 / 32,
    "not used": 0,
    "width of an orientation bin": 0.3,
    "width of a cell": 0.5,
    "width of the window": 0.5,
    "least weight": 0.02,
}


def write(folder, name, mean, weights, offsets, bounds):
    """Writes a model whose scores are the logistic functions of (features - mean) . weights[i] + offsets[i].

    bounds: the sums of FE and of BE from which on a patch is accepted, and under which it is rejected: ((a, r), (a, r)).
    """
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    logistic = [1 / (1 + np.exp(-bound)) for pair in bounds for bound in pair]
    captions = ["FE score accepted above", "FE score rejected below", "BE score accepted above", "BE score rejected below"]
    lines = [(caption, f"{value:.9g}") for caption, value in [*GEOMETRY.items(), *zip(captions, logistic)]]
    lines += [("projection", f"{name}.projection"), ("classifiers", name)]
    (folder / f"{name}.cfg").write_text("".join(f"{caption}\n{value}\n" for caption, value in lines))

    matrix = np.zeros((ROWS, FEATURES), "<f4")  # the first two rows are all that the classifiers look at
    matrix[:2] = weights
    header = struct.pack("<Iii", 1, ROWS, FEATURES)
    unused = np.zeros(ROWS, "<f4")
    (folder / f"{name}.projection").write_bytes(header + unused.tobytes() + mean.astype("<f4").tobytes() + matrix.tobytes())
    for number, kind in enumerate(("FE", "BE")):
        row = np.zeros(2, "<f4")
        row[number] = 1
        (folder / f"{name}_RE_{kind}").write_bytes(struct.pack("<If", 2, -offsets[number]) + row.tobytes())


def in_order(nodes, at=0):
    """The nodes of a tree, the left branch of each before its right one, as the gate's file has them."""
    node = nodes[at]
    if node["is_leaf"]:
        return [f"-1 {node['value']:.6g}"]
    return [f"{node['feature_idx']} {node['num_threshold']:.9g}", *in_order(nodes, node["left"]), *in_order(nodes, node["right"])]


def write_gate(folder, name, trees, accept, reject):
    """Writes the gate of a model: what fitted trees add up to, and the sums above which and under which it decides."""
    lines = ["ko red-eye gate 1", str(trees.n_features_in_), f"{accept:.9g} {reject:.9g} {float(trees._baseline_prediction):.9g}"]
    lines.append(str(trees.n_iter_))
    for stage in trees._predictors:
        nodes = in_order(stage[0].nodes)
        lines += [str(len(nodes)), *nodes]
    (pathlib.Path(folder) / f"{name}.gate").write_text("\n".join(lines) + "\n")
