"""Trains the red-eye model.

    train.py CANDIDATES FOLDER PHOTOGRAPHS CUT_OUTS SCENES

CANDIDATES is the program's search as a filter, FOLDER takes the model. PHOTOGRAPHS and CUT_OUTS are files with a path per line,
SCENES is the number of rendered scenes. The same seed, number, pictures and packages give the same bytes.
"""
import multiprocessing
import os
import sys
import tempfile

import numpy as np
from sklearn.ensemble import HistGradientBoostingClassifier
from sklearn.linear_model import LogisticRegression
from sklearn.model_selection import GroupKFold, cross_val_predict

import model
import pictures
import samples

SEED = 1
STRENGTH = 0.02  # of the linear fits: the inverse of the penalty on weights
NORMAL_WEIGHT = 6  # ordinary eyes are few among the candidates, and the worst to get wrong
SECOND_LOOK = -1.5  # the second classifier learns from what has at least this sum in the first
FOLDS = 5
WRONG = 1 / 100  # places per scene that are no red pupils may be accepted
UNDECIDED = 2.0  # how far below the bound of acceptance a place is left undecided
BOUNDS = ((2.0, -2.0), (2.0, -2.0))  # of the two classifiers, for a host without the gate
DIGITS = 5  # of weights, so that the last bits of a machine's arithmetic are of no account
TREES = {"max_iter": 400, "max_leaf_nodes": 8, "learning_rate": 0.06, "l2_regularization": 20.0, "min_samples_leaf": 40}

state = {}


def start(program, configuration, photographs, cut_outs):
    state.update(search=samples.Search(program, configuration), photographs=photographs, cut_outs=cut_outs)


def of_scene(number):
    return samples.of_scene(state["search"], SEED, number, state["photographs"], state["cut_outs"])


def of_photograph(number):
    return samples.of_photograph(state["search"], SEED, number, state["photographs"][number])


class Candidates:
    """All candidates: what each is, its circle, its evidence, its features, and the picture that it comes from."""

    def __init__(self, found, scenes):
        self.scenes = scenes  # pictures with lower numbers are rendered
        rows = np.array([row for _, _, row in found])
        self.picture = np.array([picture for picture, _, _ in found])
        self.kind = np.array([kind for _, kind, _ in found])
        self.red = self.kind == "red"
        self.circle = rows[:, : samples.CIRCLE]
        self.evidence = rows[:, samples.CIRCLE : samples.CIRCLE + samples.EVIDENCE]
        self.features = rows[:, samples.CIRCLE + samples.EVIDENCE :].astype(np.float64)
        self.weight = np.where(self.kind == "normal", NORMAL_WEIGHT, 1)

    def outside(self, make, inputs, chosen=slice(None), weight=None):
        """The sum of each chosen candidate in a classifier that was trained on other pictures."""
        weight = self.weight if weight is None else weight
        return cross_val_predict(make(), inputs[chosen], self.red[chosen], cv=GroupKFold(FOLDS), groups=self.picture[chosen],
                                 method="decision_function", fit_params={"sample_weight": weight[chosen]})

    def places(self, scores):
        """The surest candidate of each place in a scene, as places are merged by the program."""
        kept = []
        for picture in np.unique(self.picture[self.picture < self.scenes]):
            here = np.flatnonzero(self.picture == picture)
            mine = []
            for i in here[np.argsort(-scores[here], kind="stable")]:
                x, y, radius = self.circle[i]
                if all(np.hypot(x - self.circle[j, 0], y - self.circle[j, 1]) >= max(radius, self.circle[j, 2]) for j in mine):
                    mine.append(i)
            kept += mine
        return np.array(kept)


def collect(program, photographs, cut_outs, scenes):
    found = []
    with tempfile.TemporaryDirectory() as folder:
        nothing = np.zeros(model.FEATURES, np.float32)
        model.write(folder, "nothing", nothing, np.stack([nothing, nothing]), (0, 0), ((0, 0), (0, 0)))
        arguments = (program, folder + "/nothing.cfg", photographs, cut_outs)
        with multiprocessing.Pool(os.cpu_count(), start, arguments) as pool:
            steps = (("scenes", of_scene, scenes, 0), ("photographs", of_photograph, len(photographs), scenes))
            for what, function, count, first in steps:
                for number, part in enumerate(pool.imap(function, range(count), 8)):
                    found += [(first + number, kind, row) for kind, row in part]
                    if (number + 1) % 200 == 0 or number + 1 == count:
                        print(f"\r{number + 1} of {count} {what}, {len(found)} candidates", end="", flush=True)
                print()
    return Candidates(found, scenes)


def linear():
    return LogisticRegression(C=STRENGTH, max_iter=2000, tol=1e-5)


def trees():
    return HistGradientBoostingClassifier(early_stopping=False, random_state=SEED, **TREES)


def logistic(sums):
    return 1 / (1 + np.exp(-sums))


def main():
    program, folder, photographs, cut_outs, scenes = sys.argv[1:]
    candidates = collect(program, pictures.photographs(photographs), pictures.cut_outs(cut_outs), int(scenes))
    red = candidates.red

    mean, deviation = candidates.features.mean(0), candidates.features.std(0) + 1e-3
    standard = (candidates.features - mean) / deviation
    sums = [candidates.outside(linear, standard)]
    again = sums[0] > SECOND_LOOK
    balanced = candidates.weight * np.where(red, 1, red[again].sum() / (~red[again]).sum())
    fitted = [linear().fit(standard, red, candidates.weight), linear().fit(standard[again], red[again], balanced[again])]
    sums.append(fitted[1].decision_function(standard))
    sums[1][again] = candidates.outside(linear, standard, again, balanced)

    inputs = np.column_stack([logistic(sums[0]), logistic(sums[1]), candidates.evidence]).astype(np.float32)
    scores = candidates.outside(trees, inputs)
    places = candidates.places(scores)
    wrong = np.sort(scores[places][~red[places]])[::-1]
    accept = round(float(wrong[int(WRONG * candidates.scenes)]), DIGITS)

    rows = np.stack([fit.coef_[0] / deviation for fit in fitted])
    offsets = np.array([fit.intercept_[0] for fit in fitted])
    model.write(folder, "redeye", np.round(mean, DIGITS), np.round(rows, DIGITS), np.round(offsets, DIGITS), BOUNDS)
    model.write_gate(folder, "redeye", trees().fit(inputs, red, candidates.weight), accept, accept - UNDECIDED)

    accepted = scores[places] > accept
    print(f"accepted from a sum of {accept} on; of the places, each judged by what was trained on other pictures:")
    for kind in np.unique(candidates.kind):
        mine = candidates.kind[places] == kind
        print(f"  {kind}: {accepted[mine].sum()} of {mine.sum()} accepted")


if __name__ == "__main__":
    main()
