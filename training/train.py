"""Trains the red-eye model.

    train.py CANDIDATES FOLDER PHOTOGRAPH...

CANDIDATES is the program's search as a filter, FOLDER takes the model. The same seed, photographs and packages give the same bytes.
"""
import multiprocessing
import os
import sys
import tempfile

import numpy as np
from PIL import Image
from sklearn.linear_model import LogisticRegression
from sklearn.model_selection import cross_val_predict

import model
import samples

SEED = 1
SCENES = 8000
LONGEST_SIDE = 1500
STRENGTH = 0.02  # of the fit: the inverse of the penalty on weights
NORMAL_WEIGHT = 6  # ordinary eyes are few among the candidates, and the worst to get wrong
SECOND_LOOK = -1.5  # the second classifier learns from what has at least this sum in the first
FOLDS = 5
WRONG = 1 / 250  # of the candidates that are no red pupils may be accepted
UNDECIDED = 1.5  # how far below the bound of acceptance a candidate is left undecided
CONTRAST = 0.2  # the least that the program accepts by default
DIGITS = 5  # of weights, so that the last bits of a machine's arithmetic are of no account

state = {}


def start(program, configuration, photographs):
    state["search"] = samples.Search(program, configuration)
    state["photographs"] = photographs


def of_scene(number):
    return samples.of_scene(state["search"], SEED, number, state["photographs"])


def of_photograph(number):
    return samples.of_photograph(state["search"], SEED, number, state["photographs"][number])


def load(path):
    picture = Image.open(path).convert("RGB")
    picture.thumbnail((LONGEST_SIDE, LONGEST_SIDE), Image.BOX)
    return np.asarray(picture)


def collect(program, photographs):
    """Kinds, contrasts and features of all candidates."""
    found = []
    with tempfile.TemporaryDirectory() as folder:
        nothing = np.zeros(model.FEATURES, np.float32)
        model.write(folder, "nothing", nothing, np.stack([nothing, nothing]), (0, 0), ((0, 0), (0, 0)))
        arguments = (program, folder + "/nothing.cfg", photographs)
        with multiprocessing.Pool(os.cpu_count(), start, arguments) as pool:
            for what, function, count in (("scenes", of_scene, SCENES), ("photographs", of_photograph, len(photographs))):
                for number, part in enumerate(pool.imap(function, range(count), 8), 1):
                    found += part
                    if number % 200 == 0 or number == count:
                        print(f"\r{number} of {count} {what}, {len(found)} candidates", end="", flush=True)
                print()
    kinds = np.array([kind for kind, _ in found])
    rows = np.array([candidate for _, candidate in found])
    return kinds, rows[:, samples.NUMBERS - 1], rows[:, samples.NUMBERS :].astype(np.float64)


def classifier():
    return LogisticRegression(C=STRENGTH, max_iter=5000, tol=1e-6)


def sums_of(features, red, weights):
    """The sum of each candidate in a classifier that was trained on the others."""
    return cross_val_predict(classifier(), features, red, cv=FOLDS, method="decision_function", fit_params={"sample_weight": weights})


def best_bounds(first, second, red, counted):
    """The bounds with which most red pupils are accepted while at most WRONG of the other candidates are."""
    best = (-1, 0, 0)
    for a in np.arange(-4, 2.01, 0.25):
        for b in np.arange(-3, 2.01, 0.25):
            accepted = (first > a) & (second > b) & counted
            if accepted[~red].mean() <= WRONG:
                best = max(best, (accepted[red].mean(), a, b))
    return best[1:]


def main():
    program, folder, paths = sys.argv[1], sys.argv[2], sys.argv[3:]
    kinds, contrasts, features = collect(program, [load(path) for path in paths])
    mean, deviation = features.mean(0), features.std(0) + 1e-3
    standard = (features - mean) / deviation
    red = kinds == "red"
    weights = np.where(kinds == "normal", NORMAL_WEIGHT, 1)
    sums = [sums_of(standard, red, weights)]
    again = sums[0] > SECOND_LOOK
    weights_again = weights * np.where(red, 1, red[again].sum() / (~red[again]).sum())
    models = [classifier().fit(standard, red, weights), classifier().fit(standard[again], red[again], weights_again[again])]
    sums.append(models[1].decision_function(standard))
    sums[1][again] = sums_of(standard[again], red[again], weights_again[again])
    accept = best_bounds(*sums, red, contrasts > CONTRAST)
    bounds = [(bound, bound - UNDECIDED) for bound in accept]

    rows = np.stack([m.coef_[0] / deviation for m in models])
    offsets = np.array([m.intercept_[0] for m in models])
    model.write(folder, "redeye", np.round(mean, DIGITS), np.round(rows, DIGITS), np.round(offsets, DIGITS), bounds)
    accepted = (sums[0] > accept[0]) & (sums[1] > accept[1]) & (contrasts > CONTRAST)
    print(f"accepted from sums of {accept[0]} and {accept[1]} on; of the candidates, each judged by classifiers trained on others:")
    for kind in np.unique(kinds):
        print(f"  {kind}: {accepted[kinds == kind].sum()} of {(kinds == kind).sum()} accepted")


main()
