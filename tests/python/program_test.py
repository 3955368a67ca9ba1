"""The package gives what the program gives, byte for byte."""

import json

import numpy as np
import pytest

import ko


@pytest.mark.parametrize(
    "options, arguments",
    [
        ([], {}),
        (["--force"], {"force": True}),
        (["--policy", "conservative"], {"policy": "conservative"}),
        (["--grid", "5x3", "--ratio", "0.25", "--force"], {"grid": (5, 3), "ratio": 0.25, "force": True}),
        (
            ["--max-gain", "2", "--strength", "90", "--limit", "0.5", "--levels", "7", "--force"],
            {"max_gain": 2, "strength": 90, "limit": 0.5, "levels": 7, "force": True},
        ),
        (
            ["--working-size", "full", "--max-slope", "0", "--force"],
            {"working_size": None, "max_slope": 0, "force": True},
        ),
        (["--working-size", "0.05", "--max-slope", "2"], {"working_size": 0.05, "max_slope": 2}),
    ],
)
@pytest.mark.parametrize("gray", [False, True])
def test_enhance(rocket, program, options, arguments, gray):
    picture = np.ascontiguousarray(rocket[:, :, 1]) if gray else rocket
    expected = program.picture("enhance", picture, *options)
    result, _ = ko.enhance(picture, **arguments)
    assert result.dtype == np.uint8 and result.shape == picture.shape
    assert np.array_equal(result, expected)
    assert not np.array_equal(expected, picture)


def answer_of(program, command, picture, *options):
    return json.loads(program.run(command, program.file_of(picture), "--json", *options))


def test_a_picture_that_is_left(coffee, program, tmp_path):
    wall = coffee[:200, :200] // 2 + 128
    answer = answer_of(program, "enhance", wall, "-o", tmp_path / "out.png")
    result, enhancement = ko.enhance(wall)
    assert enhancement.decision == "left" and answer["decision"] == "left as it is"
    assert enhancement.reason == answer["reason"]
    assert enhancement.curves is None
    assert np.array_equal(result, wall) and not np.shares_memory(result, wall)


def test_a_gray_picture_under_one_curve(rocket):
    gray = rocket[:, :, 0]
    result, enhancement = ko.enhance(gray, grid=(1, 1), force=True)
    assert enhancement.decision == "unchanged" and "1x1" in enhancement.reason
    assert np.array_equal(result, gray)


@pytest.mark.parametrize("gray", [False, True])
@pytest.mark.parametrize("score", [None, 0.5])
def test_judge(rocket, program, gray, score):
    picture = np.ascontiguousarray(rocket[:, :, 1]) if gray else rocket
    expected = answer_of(program, "judge", picture, *([] if score is None else ["--score", score]))
    judgement = ko.judge(picture, score=score)
    for name, blocks in judgement.blocks.items():
        assert blocks.threshold == expected["block_thresholds"][name]
        assert blocks.count == judgement.values[name] == expected["blocks_over"][name]
        if expected["scores"][name] is None:
            assert blocks.scores is None
            continue
        assert blocks.scores.shape == (8, 8) and blocks.scores.dtype == np.float32
        wanted = np.array([np.nan if x is None else x for x in expected["scores"][name]], dtype=np.float32)
        finite = np.where(np.isfinite(blocks.scores.ravel()), blocks.scores.ravel(), np.nan)
        assert np.array_equal(finite, wanted, equal_nan=True)
    assert judgement.values["score"] == expected["score"] == score
    assert [verdict.passes_as for verdict in judgement.verdicts.values()] == [d["passes_as"] for d in expected["decisions"]]
    for decision in expected["decisions"]:
        verdict = judgement.verdicts[decision["policy"]]
        assert verdict.enhanced == decision["enhanced"]
        assert verdict.reason == (decision["reason"] or "")
        if decision["limits"] is not None:
            assert judgement.limits[decision["policy"]] == decision["limits"]


def test_the_measures_of_an_enhancement_are_those_of_a_judgement(rocket):
    judgement = ko.judge(rocket)
    _, enhancement = ko.enhance(rocket, policy="risky")
    for name, measure in enhancement.measures.items():
        assert measure == ko.Measure(judgement.values[name], judgement.limits["risky"][name])
    assert ko.enhance(rocket, force=True)[1].measures is None


@pytest.mark.parametrize(
    "options, arguments",
    [
        ([], {}),
        (["--sensitivity", "eager"], {"sensitivity": "eager"}),
        (["--sensitivity", "careful", "--frames"], {"sensitivity": "careful", "frames": True}),
        (["--full"], {"full": True}),
        (["--plain"], {"plain": True}),
    ],
)
def test_redeye(face, program, tmp_path, options, arguments):
    expected = program.picture("redeye", face, *options)
    answer = answer_of(program, "redeye", face, "-o", tmp_path / "out.png", "--again", *options)
    result, eyes = ko.redeye(face, **arguments)
    assert np.array_equal(result, expected)
    assert not np.array_equal(expected, face)
    assert eyes.decision == "repaired" and eyes.reason == ""
    assert len(eyes.places) == len(answer["places"]) >= 2
    for place, wanted in zip(eyes.places, answer["places"]):
        assert list(place.box) == wanted["box"] and place.label == wanted["label"]
        assert place.score == wanted.get("score")
        if place.label is not None:
            assert list(place.window) == wanted["window"]
            assert (place.fe_score, place.be_score) == (wanted["fe_score"], wanted["be_score"])
    assert eyes.boxes.tolist() == [list(place.box) for place in eyes.places]
    assert eyes.labels == [place.label for place in eyes.places]
    assert eyes.scores.shape == (len(eyes.places),)


def test_a_picture_without_red_eyes(coffee, face):
    result, eyes = ko.redeye(coffee)
    assert eyes.decision == "none" and np.array_equal(result, coffee)
    result, eyes = ko.redeye(face[:, :, 0])
    assert eyes.decision == "gray" and eyes.reason == "the picture is gray" and eyes.boxes.shape == (0, 4)
    assert np.array_equal(result, face[:, :, 0])


@pytest.mark.parametrize("form", ["text", "binary", "encoded"])
def test_saved_curves(rocket, program, tmp_path, form):
    file = tmp_path / "expected"
    program.run("curves", program.file_of(rocket), "-o", file, "--form", form, "--grid", "6x4")
    curves = ko.Curves.fit(rocket, grid=(6, 4))
    curves.save(tmp_path / "saved", form)
    assert (tmp_path / "saved").read_bytes() == file.read_bytes()
    assert ko.Curves.load(file) == curves
    assert np.array_equal(curves.apply(rocket, ratio=0.75), program.picture(["apply", file], rocket, "--ratio", "0.75"))


def test_the_program_reads_curves_from_an_array(rocket, program, tmp_path):
    levels = np.sqrt(np.arange(256) / 255) * 255
    curves = ko.Curves(np.broadcast_to(levels.astype(np.uint8), (3, 5, 256)))
    curves.save(tmp_path / "curves")
    assert np.array_equal(curves.apply(rocket), program.picture(["apply", tmp_path / "curves"], rocket))
