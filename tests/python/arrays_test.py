"""What arrays are accepted, in which layouts, and which are refused."""

import numpy as np
import pytest

import ko

LAYOUTS = {
    "every second pixel": lambda a: a[::2, ::2],
    "upside down": lambda a: a[::-1],
    "mirrored": lambda a: a[:, ::-1],
    "transposed": lambda a: a.swapaxes(0, 1),
    "BGR": lambda a: a[..., ::-1],
    "Fortran order": np.asfortranarray,
    "a part": lambda a: a[3:-7, 5:-11],
    "one row repeated": lambda a: np.broadcast_to(a[100], a.shape),
}


@pytest.mark.parametrize("layout", LAYOUTS)
@pytest.mark.parametrize("dtype", [np.uint8, np.float32])
def test_strides(rocket, layout, dtype):
    view = LAYOUTS[layout](rocket.astype(dtype))
    plain = np.array(view, order="C")
    assert np.array_equal(ko.enhance(view, force=True)[0], ko.enhance(plain, force=True)[0])
    assert np.array_equal(ko.redeye(view, full=True)[0], ko.redeye(plain, full=True)[0])
    assert np.array_equal(ko.judge(view).blocks["detail"].scores, ko.judge(plain).blocks["detail"].scores)
    assert ko.Curves.fit(view) == ko.Curves.fit(plain)
    kernel = ko.KernelGaussian(2)
    assert np.array_equal(kernel.blur(view[..., 0]), kernel.blur(plain[..., 0]))
    assert np.array_equal(view, plain)


def test_unaligned_floats(rocket):
    room = np.zeros(rocket[..., 0].size * 4 + 1, np.uint8)
    view = room[1:].view(np.float32).reshape(rocket.shape[:2])
    view[:] = rocket[..., 0]
    assert not view.flags.aligned
    expected = ko.enhance(rocket[..., 0], force=True)[0]
    assert np.array_equal(ko.enhance(view, force=True)[0], expected)
    assert np.array_equal(ko.RealImage(view).array, rocket[..., 0])


def test_unaligned_curves():
    room = np.zeros(256 * 8 + 1, np.uint8)
    numbers = room[1:].view(np.int64)
    numbers[:] = np.arange(256)
    assert not numbers.flags.aligned
    assert ko.TRC(numbers).array.tolist() == numbers.tolist()
    assert ko.Curves(numbers.reshape(1, 1, 256)).array[0, 0].tolist() == numbers.tolist()


def test_the_picture_stays_as_it_was(rocket, face):
    before, eyes = rocket.copy(), face.copy()
    result, _ = ko.enhance(rocket, force=True)
    repaired, _ = ko.redeye(face)
    assert np.array_equal(rocket, before) and np.array_equal(face, eyes)
    assert not np.shares_memory(result, rocket) and not np.shares_memory(repaired, face)
    rocket.flags.writeable = False
    try:
        assert ko.enhance(rocket, force=True)[0].flags.writeable
    finally:
        rocket.flags.writeable = True


def test_floats_are_rounded_to_whole_levels(rocket):
    noise = np.random.default_rng(1).uniform(-0.49, 0.49, rocket.shape).astype(np.float32)
    floats = np.clip(rocket + noise, 0, 255)
    result, enhancement = ko.enhance(floats)
    expected, _ = ko.enhance(rocket)
    assert enhancement.decision == "enhanced"
    assert result.dtype == np.float32 and np.array_equal(result, expected)


def test_halves_are_rounded_to_the_even_level():
    levels = np.array([[0.5, 1.5, 2.5, 254.5]] * 4, dtype=np.float32)
    curves = ko.Curves(np.arange(256)[np.newaxis, np.newaxis, ::-1])
    colour = np.repeat(levels[..., np.newaxis], 3, axis=2)
    expected = curves.apply(np.rint(colour).astype(np.uint8))
    assert np.array_equal(curves.apply(colour), expected)
    assert np.rint(colour)[0, :, 0].tolist() == [0, 2, 2, 254]


def test_a_float_picture_that_is_left_keeps_its_levels(coffee):
    floats = (coffee[:200, :200] // 2 + np.float32(127.25)).astype(np.float32)
    result, enhancement = ko.enhance(floats)
    assert enhancement.decision == "left"
    assert result.dtype == np.float32 and np.array_equal(result, floats) and not np.shares_memory(result, floats)


def test_what_is_not_repaired_keeps_its_levels(face):
    floats = np.clip(face + np.float32(0.25), 0, 255)
    result, eyes = ko.redeye(floats)
    expected, _ = ko.redeye(face)
    repaired = (expected != face)
    assert eyes.decision == "repaired" and 0 < repaired.sum() < face.size / 10
    assert np.array_equal(result[repaired], expected[repaired])
    assert np.array_equal(result[~repaired], floats[~repaired])


CALLS = {
    "enhance": ko.enhance,
    "judge": ko.judge,
    "redeye": ko.redeye,
    "fit": ko.Curves.fit,
    "apply": ko.Curves(np.zeros((1, 1, 256), np.uint8)).apply,
}
PLANE_CALLS = {
    "blur": ko.KernelGaussian(1).blur,
    "bilateral": ko.bilateral,
    "components": lambda plane: ko.components(plane, 1),
    "resize": lambda plane: ko.resize(plane, 5, 5),
    "histogram": lambda plane: ko.Histogram().count(plane),
    "curve": ko.TRC.identity().apply,
    "image": ko.RealImage,
}

REFUSED = [
    (lambda a: a.astype(np.float64), TypeError, "float64"),
    (lambda a: a.astype(np.uint16), TypeError, "uint16"),
    (lambda a: a.astype(np.int8), TypeError, "int8"),
    (lambda a: a > 3, TypeError, "bool"),
    (lambda a: a.astype(np.complex64), TypeError, "complex64"),
    (lambda a: a.astype(object), TypeError, "object"),
    (lambda a: a.astype(np.dtype(np.float32).newbyteorder()), TypeError, "native byte order"),
    (lambda a: a.tolist(), TypeError, "list"),
    (lambda a: None, TypeError, "NoneType"),
    (lambda a: a[:0], ValueError, "no pixels"),
    (lambda a: a[:, :0], ValueError, "no pixels"),
    (lambda a: a.reshape(-1), ValueError, "shape"),
    (lambda a: a[np.newaxis, np.newaxis], ValueError, "shape"),
    (lambda a: np.broadcast_to(a[:1, :1].reshape(-1)[0], (100_000, 100_000)), ValueError, "at most 250000000"),
    (lambda a: np.broadcast_to(a[:1, :1].reshape(-1)[0], (2**40, 1)), ValueError, "at most 250000000"),
]


@pytest.mark.parametrize("change, error, text", REFUSED)
@pytest.mark.parametrize("call", CALLS)
def test_refused_pictures(rocket, call, change, error, text):
    with pytest.raises(error, match=text):
        CALLS[call](change(rocket))


@pytest.mark.parametrize("change, error, text", REFUSED)
@pytest.mark.parametrize("call", PLANE_CALLS)
def test_refused_planes(rocket, call, change, error, text):
    with pytest.raises(error, match=text):
        PLANE_CALLS[call](change(rocket[..., 0]))


@pytest.mark.parametrize("channels", [1, 2, 4])
def test_refused_numbers_of_channels(channels):
    for call in CALLS.values():
        with pytest.raises(ValueError, match="shape"):
            call(np.zeros((50, 50, channels), np.uint8))
    with pytest.raises(ValueError, match="shape"):
        ko.bilateral(np.zeros((50, 50, channels), np.uint8))


@pytest.mark.parametrize("level", [np.nan, np.inf, -np.inf, -0.01, 255.01, 1e38])
def test_refused_levels(rocket, level):
    floats = rocket.astype(np.float32)
    floats[-1, -1, -1] = level
    for call in CALLS.values():
        with pytest.raises(ValueError, match="from 0 to 255"):
            call(floats)


def test_planes_may_hold_any_floats(rocket):
    floats = rocket[..., 0].astype(np.float32)
    floats[5, 5:11] = [np.nan, np.inf, -np.inf, 1e38, -1e38, 1e-45]
    for call in PLANE_CALLS.values():
        call(floats)


@pytest.mark.parametrize("shape", [(1, 1), (1, 1, 3), (2, 2), (1, 50, 3), (50, 1, 3), (3, 2, 3)])
def test_tiny_pictures(shape):
    picture = np.arange(np.prod(shape), dtype=np.uint8).reshape(shape)
    result, _ = ko.enhance(picture, force=True)
    assert result.shape == shape
    assert ko.redeye(picture)[0].shape == shape
    assert ko.judge(picture).blocks["detail"].scores.shape == (8, 8)


@pytest.mark.parametrize(
    "arguments, error",
    [
        ({"policy": "brave"}, ValueError),
        ({"policy": 2}, TypeError),
        ({"score": 1.5}, ValueError),
        ({"score": "low"}, TypeError),
        ({"grid": (0, 8)}, ValueError),
        ({"grid": (8, 257)}, ValueError),
        ({"grid": (8, 10**30)}, ValueError),
        ({"grid": 8}, ValueError),
        ({"grid": (8.0, 8.0)}, TypeError),
        ({"max_gain": 0.5}, ValueError),
        ({"max_gain": np.nan}, ValueError),
        ({"strength": -1}, ValueError),
        ({"limit": 0}, ValueError),
        ({"levels": 0}, ValueError),
        ({"levels": 2.5}, TypeError),
        ({"max_slope": -1}, ValueError),
        ({"ratio": 1.01}, ValueError),
        ({"ratio": 10**400}, ValueError),
        ({"working_size": 0}, ValueError),
    ],
)
def test_refused_options(rocket, arguments, error):
    with pytest.raises(error, match=next(iter(arguments))):
        ko.enhance(rocket, **arguments)


def test_numbers_of_numpy_are_options(rocket):
    options = {"grid": (np.int64(4), np.uint8(4)), "max_gain": np.float32(2), "levels": np.int16(5)}
    assert ko.enhance(rocket, **options)[1].curves.grid == (4, 4)


# ---- curves


def test_curves_as_an_array(rocket):
    curves = ko.Curves.fit(rocket, grid=(6, 4))
    assert curves.array.shape == (4, 6, 256) and curves.array.dtype == np.uint32
    assert curves.grid == (6, 4) and curves.entries == 256
    assert not curves.array.flags.writeable
    for numbers in (curves.array, curves.array.astype(np.uint8), curves.array.astype(">i2"), np.asfortranarray(curves.array)):
        assert ko.Curves(numbers) == curves
    changed = np.array(curves.array)
    changed[3, 5, 255] -= 1
    assert ko.Curves(changed) != curves


def test_an_array_of_curves_outlives_them(rocket):
    array = ko.Curves.fit(rocket).array
    expected = np.array(array)
    others = [ko.Curves(np.full((8, 8, 256), i)) for i in range(50)]
    assert np.array_equal(array, expected) and len(others) == 50


@pytest.mark.parametrize(
    "array, error, text",
    [
        (np.full((2, 2, 256), 256), ValueError, "entry 0 of the curve in row 0, column 0"),
        (np.full((2, 2, 256), -1), ValueError, "not between 0 and 255"),
        (np.full((2, 2, 256), 2**63, np.uint64), ValueError, "not between 0 and 255"),
        (np.full((2, 2, 256), 2**32), ValueError, "not between 0 and 255"),
        (np.zeros((2, 2, 256)), TypeError, "whole numbers"),
        (np.zeros((2, 2, 256), bool), TypeError, "whole numbers"),
        (np.zeros((2, 256), int), ValueError, "shape"),
        (np.zeros((0, 2, 256), int), ValueError, "no curves"),
        (np.zeros((2, 2, 0), int), ValueError, "multiple of 256"),
        (np.zeros((2, 2, 255), int), ValueError, "multiple of 256"),
        (np.zeros((1, 1, 65792), int), ValueError, "multiple of 256"),
        (np.broadcast_to(np.uint8(0), (2**20, 2**20, 256)), ValueError, "too large"),
    ],
)
def test_refused_curves(array, error, text):
    with pytest.raises(error, match=text):
        ko.Curves(array)


def test_the_last_entry_is_looked_at():
    entries = np.zeros((3, 2, 256), int)
    entries[2, 1, 255] = 256
    with pytest.raises(ValueError, match="entry 255 of the curve in row 2, column 1"):
        ko.Curves(entries)


@pytest.mark.parametrize("dtype", [np.uint8, np.float32])
@pytest.mark.parametrize("step", [1, 7, 100, 426, 427])
def test_rows_in_pieces(rocket, dtype, step):
    picture = rocket.astype(dtype)
    curves = ko.Curves.fit(rocket)
    application = curves.application(picture.shape, ratio=0.2)
    pieces = [application.apply(picture[y : y + step]) for y in range(0, len(picture), step)]
    assert application.left == 0
    assert np.array_equal(np.concatenate(pieces), curves.apply(picture, ratio=0.2))


def test_refused_rows(rocket):
    application = ko.Curves.fit(rocket).application(rocket.shape)
    height = len(rocket)
    application.apply(rocket[:400])
    assert application.left == height - 400
    for rows in (rocket[:100], rocket[:10, :-1], rocket[:10, :, 0]):
        with pytest.raises(ValueError, match="rows"):
            application.apply(rows)
    assert application.left == height - 400
    application.apply(rocket[400:])
    with pytest.raises(ValueError, match="more rows"):
        application.apply(rocket[:1])
    for shape in ((0, 5), (5,), (5, 5, 4), (10**6, 10**6), (5, 5)):
        with pytest.raises(ValueError):
            ko.Curves.fit(rocket).application(shape)


def test_curves_need_two_pixels_per_tile(rocket):
    curves = ko.Curves.fit(rocket)
    assert curves.apply(rocket[:16, :16]).shape == (16, 16, 3)
    with pytest.raises(ValueError, match="too small"):
        curves.apply(rocket[:15, :16])
