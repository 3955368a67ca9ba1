"""Every wrapper gives what the function of the library gives, called through ctypes."""

import ctypes

import numpy as np
import pytest

import ko
from conftest import TRC, RealImage, TileTRC

F = ctypes.c_float
U32 = ctypes.c_uint32
U64 = ctypes.c_uint64


@pytest.mark.parametrize("sigma, truncation, recursive", [(1.5, 3.0, False), (0.3, 2.0, False), (6.0, 3.0, True)])
def test_blur(library, plane, sigma, truncation, recursive):
    kernel = library.call(
        "KoKernelGaussianNewTune", F(sigma), F(truncation), ctypes.c_int32(recursive), result=ctypes.c_void_p
    )
    expected = library.made("KoKernelGaussianConvolution", ctypes.c_void_p(kernel), library.image(plane))
    blur = ko.KernelGaussian(sigma, truncation, recursive=recursive)
    assert np.array_equal(blur.blur(plane), expected)
    width = library.call("KoKernelGaussianGetWidth", ctypes.c_void_p(kernel), result=U32)
    assert len(blur.coefficients) == width
    assert recursive or abs(float(blur.coefficients.sum()) - 1) < 1e-5


def test_other_sizes(library, plane):
    image = library.image(plane)
    assert np.array_equal(ko.upsample(plane, 1.7), library.made("KoRealImageUpsample", image, F(1.7)))
    assert np.array_equal(ko.downsample(plane, 2.3), library.made("KoRealImageDownsample", image, F(2.3)))
    assert np.array_equal(ko.resize(plane, 60, 200), library.made("KoRealImageResize", image, U64(60), U64(200)))
    assert ko.resize(plane, 60, 200).shape == (200, 60)


def test_bilateral(library, plane):
    result = ctypes.POINTER(RealImage)()
    assert library.call("KoFilterBLFApplyToRealImage", library.image(plane), ctypes.byref(result), U64(6)) == 0
    assert np.array_equal(ko.bilateral(plane, 6), library.array(result))


def test_images(library, plane):
    image = ko.RealImage(plane)
    assert image.shape == plane.shape and np.array_equal(image.array, plane)
    assert np.array_equal(image.transpose().array, plane.T)
    assert image.min_max() == (plane.min(), plane.max())
    bytes_ = np.zeros(plane.shape, np.uint8)
    room = bytes_.ctypes.data_as(ctypes.c_void_p)
    assert library.call("KoRealImageToByteArray", library.image(plane), room, U64(0), U64(plane.shape[0]), U64(0)) == 0
    assert np.array_equal(image.to_bytes(), bytes_)
    image.array[0, 0] = 1000
    assert image.min_max()[1] == 1000


def test_an_array_outlives_its_image(plane):
    pixels = ko.RealImage(plane).resize(500, 400).array
    others = [ko.RealImage(plane).resize(500, 400) for _ in range(20)]
    assert np.array_equal(pixels, others[-1].array)


def test_histogram(library, plane):
    record = library.call("KoHistogramNew", U32(64), F(-20), F(250), result=ctypes.c_void_p)
    handle = ctypes.c_void_p(record)
    for _ in range(2):
        assert library.call("KoHistogramCompute", handle, library.image(plane)) == 0
    histogram = ko.Histogram(64, -20, 250)
    histogram.count(plane)
    histogram.count(plane)

    def values():
        return [library.call("KoHistogramGetValue", handle, U32(i), result=U32) for i in range(64)]

    assert histogram.values.tolist() == values() and histogram.values.sum() == 2 * plane.size
    assert histogram.pixels == plane.size
    for fraction in (0.0, 0.1, 0.5, 1.0):
        assert histogram.value_at(fraction) == library.call("KoHistogramGetValueAtPercentile", handle, F(fraction), result=F)
    curve = np.arange(64)[::-1] // 2
    raw = np.ascontiguousarray(curve, dtype=np.int32)
    assert library.call("KoHistogramApplyRawTRC", handle, raw.ctypes.data_as(ctypes.c_void_p), U32(64)) == 0
    histogram.apply(ko.TRC(curve))
    assert histogram.values.tolist() == values()


def test_components(library):
    noise = np.random.default_rng(3).random((40, 57), dtype=np.float32)
    labels = np.zeros(noise.shape, np.int32)
    table = np.zeros(20 * 29 + 2, np.uint32)
    count = library.call(
        "KoConCompRealImage",
        library.image(noise),
        F(0.7),
        labels.ctypes.data_as(ctypes.c_void_p),
        table.ctypes.data_as(ctypes.c_void_p),
        result=U32,
    )
    roots = table[labels]
    found = ko.components(noise, 0.7)
    assert found.labels.dtype == np.int32 and np.array_equal(found.labels > 0, noise > 0.7)
    lit = sorted(set(roots[roots > 0].tolist()))
    assert count >= len(lit) == len(found.areas) == len(found.boxes) > 10
    for number, root in enumerate(lit, start=1):
        rows, columns = np.nonzero(roots == root)
        assert np.array_equal(found.labels == number, roots == root)
        assert found.areas[number - 1] == len(rows)
        assert found.boxes[number - 1].tolist() == [columns.min(), rows.min(), columns.max() + 1, rows.max() + 1]


def test_no_components():
    found = ko.components(np.zeros((5, 5), np.float32), 0)
    assert not found.labels.any() and found.boxes.shape == (0, 4) and found.areas.shape == (0,)


def trc_of(library, entries):
    record = library.call("KoTRCNew", U64(len(entries)), result=ctypes.POINTER(TRC))
    for i, entry in enumerate(entries):
        record.contents.array[i] = int(entry)
    return record


def test_curves_of_one_dimension(library, plane):
    entries = (np.arange(256) ** 2) // 255
    record = trc_of(library, entries)
    curve = ko.TRC(entries)
    assert curve.array.tolist() == entries.tolist() and len(curve) == 256
    image = library.image(plane)
    assert library.call("KoTRCApplyToRealImage", record, image) == 0
    assert np.array_equal(curve.apply(plane), library.array(image))
    for size in (64, 512, 1000):
        record = trc_of(library, entries)
        assert library.call("KoTRCResize", record, U64(size)) == 0
        assert curve.resize(size).array.tolist() == record.contents.array[:size]
    assert curve.array.tolist() == entries.tolist()
    assert curve.then(ko.TRC(255 - np.arange(256))).array.tolist() == (255 - entries).tolist()
    assert ko.TRC.identity(16).array.tolist() == list(range(16))


def test_a_fitted_curve(library, plane):
    picture = np.clip(plane, 0, 255)
    target = np.sqrt(picture / 255, dtype=np.float32) * 255
    record = trc_of(library, [0] * 256)
    iterators = []
    for values in (picture, target):
        image = library.image(values)
        iterators.append(library.call("KoRealImageLineIteratorNew", image, result=ctypes.c_void_p))
    assert library.call("KoTRCCompute", record, *map(ctypes.c_void_p, iterators)) == 0
    assert ko.TRC.fit(picture, target).array.tolist() == record.contents.array[:256]


def test_tile_curves_from_an_array_are_the_librarys(library, rocket, tmp_path):
    """What the library saves of a grid that it holds is what the package saves."""
    entries = np.random.default_rng(5).integers(0, 256, (2, 3, 256))
    grid = library.call("KoTileTRCNew", U64(256), U64(3), U64(2), result=ctypes.POINTER(TileTRC))
    numbers = entries.astype(np.uint32)
    ctypes.memmove(grid.contents.array, numbers.ctypes.data, numbers.nbytes)
    path = tmp_path / "library"
    assert library.call("KoTileTRCSave", grid, str(path).encode(), ctypes.c_int32(1), ctypes.c_int32(1)) == 0
    curves = ko.Curves(entries)
    curves.save(tmp_path / "package")
    assert (tmp_path / "package").read_bytes() == path.read_bytes()
    assert np.array_equal(ko.Curves.load(path).array, entries)


@pytest.mark.parametrize("gray", [False, True])
def test_application(library, rocket, gray):
    picture = np.ascontiguousarray(rocket[:, :, 0]) if gray else rocket
    entries = np.random.default_rng(5).integers(0, 256, (4, 3, 256))
    entries.sort(axis=2)
    grid = library.call("KoTileTRCNew", U64(256), U64(3), U64(4), result=ctypes.POINTER(TileTRC))
    numbers = entries.astype(np.uint32)
    ctypes.memmove(grid.contents.array, numbers.ctypes.data, numbers.nbytes)
    height, width = picture.shape[:2]
    interleaved, space = ctypes.c_int32(0), ctypes.c_int32(2 if gray else 0)
    record = library.call(
        "KoTileTRCApplyNew", grid, F(0.3), None, U64(width), U64(height), interleaved, space, result=ctypes.c_void_p
    )
    expected = np.zeros_like(picture)
    source, result = (array.ctypes.data_as(ctypes.c_void_p) for array in (picture, expected))
    assert library.call("KoTileTRCApplyToByteChunk", ctypes.c_void_p(record), U64(height), source, result) == 0
    assert np.array_equal(ko.Curves(entries).apply(picture, ratio=0.3), expected)
