"""Failures: the library's, hostile files, and exhausted memory."""

import copy
import os
import pickle
import subprocess
import sys

import numpy as np
import pytest

import ko


def test_an_error_has_the_chain_and_the_status(tmp_path):
    with pytest.raises(ko.Error) as caught:
        ko.TRC([0, 1]).resize(300)
    assert issubclass(ko.Error, RuntimeError)
    assert caught.value.status == 10
    assert str(caught.value).startswith("the curve cannot be resized: ") and "Invalid argument" in str(caught.value)
    with pytest.raises(ko.Error, match="missing.cfg") as caught:
        ko.RedEyeModel(tmp_path / "missing.cfg")
    assert caught.value.status == 30


def test_a_failure_leaves_nothing_behind(rocket):
    with pytest.raises(ko.Error):
        ko.TRC([0, 1]).resize(300)
    assert ko.enhance(rocket)[1].decision == "enhanced"
    assert ko.TRC([0, 1, 2]).resize(6).array.shape == (6,)


@pytest.mark.parametrize(
    "content, error",
    [
        (b"", ko.Error),
        (b"nonsense\n", ko.Error),
        (b"GrayLinear\nbits 8 1 1\n1\n2\n", ko.Error),
        (b"GrayLinear\nbits 8 0 0\n", ValueError),
        (b"GrayLinear\nbits 4 1 1\n" + b"1\n" * 16, ValueError),
        (b"GrayLinear\nbits 8 1 1\n" + b"300\n" * 256, ValueError),
        (b"GrayLinear\nbits 8 1 1\n" + b"-1\n" * 256, ValueError),
        (b"GrayLinearBinary\nbits 8 1 1\n" + b"\xff" * 256, ValueError),
        (b"GrayLinearEncoded\nbits 8 2 2\n" + b"\x10", ko.Error),
        (b"GrayLinear\nbits 30 65535 65535\n1\n", (MemoryError, ko.Error)),
        (b"GrayLinear\nbits 8 -1 -1\n1\n", (MemoryError, ko.Error, ValueError)),
        (os.urandom(5000), ko.Error),
    ],
)
def test_hostile_files(tmp_path, content, error):
    path = tmp_path / "curves"
    path.write_bytes(content)
    with pytest.raises(error):
        ko.Curves.load(path)


def test_files_that_cannot_be_opened(rocket, tmp_path):
    with pytest.raises(FileNotFoundError):
        ko.Curves.load(tmp_path / "missing")
    with pytest.raises(IsADirectoryError):
        ko.Curves.load(tmp_path)
    curves = ko.Curves.fit(rocket)
    with pytest.raises(FileNotFoundError):
        curves.save(tmp_path / "missing" / "curves")
    with pytest.raises(ValueError, match="null"):
        curves.save(str(tmp_path / "a\0b"))
    with pytest.raises(ValueError, match="form"):
        curves.save(tmp_path / "curves", "pdf")
    assert list(tmp_path.iterdir()) == []


def test_a_form_that_does_not_hold_curves_keeps_the_old_file(rocket, tmp_path):
    path = tmp_path / "curves"
    good = ko.Curves.fit(rocket)
    good.save(path)
    falling = ko.Curves(np.arange(256)[np.newaxis, np.newaxis, ::-1])
    with pytest.raises(ValueError, match="encoded"):
        falling.save(path, "encoded")
    with pytest.raises(ValueError, match="text"):
        ko.Curves(np.zeros((1, 1, 768), int)).save(path)
    assert ko.Curves.load(path) == good and list(tmp_path.iterdir()) == [path]
    falling.save(path)
    assert ko.Curves.load(path) == falling and list(tmp_path.iterdir()) == [path]


def test_damaged_models(face, tmp_path):
    own = ko.RedEyeModel(os.path.join(os.path.dirname(ko.__file__), "redeye", "redeye.cfg"))
    folder = os.path.dirname(own.configuration)
    assert ko.redeye(face, model=own)[1].boxes.tolist() == ko.redeye(face)[1].boxes.tolist()
    for damaged in os.listdir(folder):
        for name in os.listdir(folder):
            content = open(os.path.join(folder, name), "rb").read()
            (tmp_path / name).write_bytes(content[: len(content) // 2] if name == damaged else content)
        with pytest.raises(ko.Error):
            ko.redeye(face, model=tmp_path / "redeye.cfg")


def test_curves_are_pickled_and_copied(rocket):
    curves = ko.Curves.fit(rocket)
    for again in (pickle.loads(pickle.dumps(curves)), copy.deepcopy(curves)):
        assert again == curves and hash(again) == hash(curves)
    assert curves != 3


EXHAUSTED = """
import resource, sys
import numpy as np
import ko
picture = np.random.default_rng(1).integers(0, 256, (3000, 3000, 3), dtype=np.uint8)
small = picture[:200, :200].copy()
used = int(open("/proc/self/statm").read().split()[0]) * resource.getpagesize()
caught = 0
for megabytes in (1, 30, 60, 120, 200):
    resource.setrlimit(resource.RLIMIT_AS, (used + megabytes * 2**20, resource.RLIM_INFINITY))
    try:
        ko.enhance(picture, force=True, working_size=None)
    except MemoryError:
        caught += 1
    try:
        ko.KernelGaussian(3, recursive=True).blur(picture[..., 0])
    except MemoryError:
        caught += 1
resource.setrlimit(resource.RLIMIT_AS, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
assert ko.enhance(small, force=True)[1].decision == "enhanced"
print(caught)
"""


def test_exhausted_memory():
    result = subprocess.run([sys.executable, "-c", EXHAUSTED], capture_output=True, text=True)
    assert result.returncode == 0, result.stderr
    assert int(result.stdout) >= 6


def test_refused_sizes_of_planes():
    with pytest.raises(ValueError, match="at most"):
        ko.resize(np.zeros((1, 1), np.uint8), 20_000, 12_501)
    with pytest.raises(ValueError):
        ko.upsample(np.zeros((10, 10), np.uint8), 1e6)
    with pytest.raises(ValueError, match="no pixels"):
        ko.downsample(np.zeros((10, 10), np.uint8), 11)


@pytest.mark.parametrize(
    "call",
    [
        lambda: ko.KernelGaussian(0),
        lambda: ko.KernelGaussian(float("nan")),
        lambda: ko.KernelGaussian(1e30),
        lambda: ko.KernelGaussian(1, float("inf")),
        lambda: ko.downsample(np.zeros((5, 5), np.uint8), 0.5),
        lambda: ko.upsample(np.zeros((5, 5), np.uint8), float("nan")),
        lambda: ko.bilateral(np.zeros((5, 5), np.uint8), 0),
        lambda: ko.Histogram(1),
        lambda: ko.Histogram(10, 5, 5),
        lambda: ko.Histogram(10, 0, float("nan")),
        lambda: ko.Histogram().value_at(2),
        lambda: ko.Histogram(10).apply(ko.TRC.identity()),
        lambda: ko.TRC(np.zeros(0, int)),
        lambda: ko.TRC([[1]]),
        lambda: ko.TRC([-1]),
        lambda: ko.TRC([2**32]),
        lambda: ko.TRC([0, 5]).then(ko.TRC([0, 1])),
        lambda: ko.TRC.identity().resize(0),
        lambda: ko.TRC.fit(np.zeros((5, 5), np.uint8), np.zeros((5, 6), np.uint8)),
        lambda: ko.TRC.fit(np.zeros((5, 5), np.uint8), np.zeros((5, 5), np.uint8), 257),
        lambda: ko.components(np.zeros((5, 5), np.uint8), float("nan")),
    ],
)
def test_refused_arguments_of_the_families(call):
    with pytest.raises(ValueError):
        call()
