"""Single planes of levels, and what the library makes of them.

A plane is a numpy array of uint8 or float32 of the shape (height, width), with any strides; its levels are normally from 0 to
255, and floats may be any. Results are float32 arrays; they share the memory of a picture of the library, whose rows are
padded, and are therefore not contiguous in general.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Tuple

import numpy as np
import numpy.typing as npt

from . import _ko, _values

FloatPlane = npt.NDArray[np.float32]

_LARGEST_FLOAT = float(np.finfo(np.float32).max)
_LARGEST_SIGMA = 10_000.0


class RealImage:
    """A plane of floats as the library holds it, for several steps without a copy between them."""

    __slots__ = ("_plane",)

    def __init__(self, plane: npt.NDArray[Any]) -> None:
        self._plane = _ko.Plane(plane)

    @classmethod
    def _of(cls, plane: _ko.Plane) -> RealImage:
        image = cls.__new__(cls)
        image._plane = plane
        return image

    @property
    def array(self) -> FloatPlane:
        """The pixels, of the shape (height, width). Not a copy: writing to it changes the image."""
        return self._plane.array

    @property
    def shape(self) -> Tuple[int, int]:
        """Height and width, in pixels."""
        height, width = self.array.shape
        return height, width

    def min_max(self) -> Tuple[float, float]:
        """The smallest and the largest pixel."""
        return self._plane.extremes()

    def to_bytes(self) -> npt.NDArray[np.uint8]:
        """The pixels as bytes: truncated; 0 below 0; without an upper limit, so that 256.0 gives 0."""
        return self._plane.to_bytes()

    def transpose(self) -> RealImage:
        """An image with rows and columns exchanged."""
        return RealImage._of(self._plane.transposed())

    def bilateral(self, levels: int = 5) -> RealImage:
        """See `ko.bilateral`."""
        return RealImage._of(self._plane.bilateral(_values.whole("levels", levels, 1, 255)))

    def downsample(self, factor: float) -> RealImage:
        """See `ko.downsample`."""
        return RealImage._of(self._plane.downsampled(_factor(factor)))

    def upsample(self, factor: float) -> RealImage:
        """See `ko.upsample`."""
        return RealImage._of(self._plane.upsampled(_factor(factor)))

    def resize(self, width: int, height: int) -> RealImage:
        """See `ko.resize`."""
        return RealImage._of(self._plane.resized(_side("width", width), _side("height", height)))


def _factor(value: float) -> float:
    return _values.number("factor", value, 1.0, 1e6)


def _side(name: str, value: int) -> int:
    return _values.whole(name, value, 1, 250_000_000)


def bilateral(plane: npt.NDArray[Any], levels: int = 5) -> FloatPlane:
    """Smooths a plane within its edges, by blurring at some levels of the intensity, 1 to 255. The standard deviation is one
    fiftieth of the shorter side. A flat plane gives all 0, not its own level."""
    return RealImage(plane).bilateral(levels).array


def downsample(plane: npt.NDArray[Any], factor: float) -> FloatPlane:
    """A plane whose sides are divided by a factor of at least 1 and cut to whole pixels. Takes pixels, averages none."""
    return RealImage(plane).downsample(factor).array


def upsample(plane: npt.NDArray[Any], factor: float) -> FloatPlane:
    """A plane whose sides are multiplied by a factor of at least 1 and cut to whole pixels. Repeats pixels."""
    return RealImage(plane).upsample(factor).array


def resize(plane: npt.NDArray[Any], width: int, height: int) -> FloatPlane:
    """A plane of any size, in pixels. Takes or repeats pixels, averages none."""
    return RealImage(plane).resize(width, height).array


class KernelGaussian:
    """A Gaussian blur. It does not change once made; any number of threads may use one.

    sigma:      standard deviation in pixels, above 0 and up to 10000.
    truncation: where the finite form ends, in standard deviations, 0 to 100.
    recursive:  a filter whose time does not grow with sigma, and that keeps a constant plane constant up to its edge. The
                finite form darkens a plane towards its edge, and a plane smaller than the kernel comes out black.
    """

    __slots__ = ("_kernel",)

    def __init__(self, sigma: float, truncation: float = 3.0, *, recursive: bool = False) -> None:
        deviation = _values.number("sigma", sigma, 0.0, _LARGEST_SIGMA)
        if deviation < 1e-3:
            raise ValueError(f"sigma is at least 0.001, not {sigma}")
        self._kernel = _ko.Kernel(deviation, _values.number("truncation", truncation, 0.0, 100.0), bool(recursive))

    @property
    def coefficients(self) -> npt.NDArray[np.float32]:
        """The coefficients of the finite form, an odd number of them that adds up to 1; none of the recursive form."""
        return self._kernel.coefficients

    def blur(self, plane: npt.NDArray[Any]) -> FloatPlane:
        """A blurred plane."""
        return self._kernel.blurred(_ko.Plane(plane)).array


class TRC:
    """A tone curve: a table from whole levels to whole levels. It does not change once made."""

    __slots__ = ("_curve",)

    def __init__(self, array: npt.ArrayLike) -> None:
        """Takes 1 to 65536 entries, whole numbers from 0 to 2**32 - 1."""
        numbers = np.asarray(array)
        if numbers.dtype.kind not in "iu":
            raise TypeError(f"a curve consists of whole numbers, not {numbers.dtype}")
        self._curve = _ko.Curve(numbers)

    @classmethod
    def _of(cls, curve: _ko.Curve) -> TRC:
        trc = cls.__new__(cls)
        trc._curve = curve
        return trc

    @classmethod
    def identity(cls, size: int = 256) -> TRC:
        """The curve that changes nothing."""
        return cls(np.arange(_values.whole("size", size, 1, 65536)))

    @classmethod
    def fit(cls, picture: npt.NDArray[Any], target: npt.NDArray[Any], size: int = 256) -> TRC:
        """The rising curve that brings one plane closest to another of the same shape, with a mild pull towards a power
        curve. size is a number of entries up to 256: the library's power curves grow with the largest curve that a process
        fits, so that a larger one would change what is fitted after it."""
        return cls._of(_ko.Curve.fitted(picture, target, _values.whole("size", size, 1, 256)))

    @property
    def array(self) -> npt.NDArray[np.uint32]:
        """The entries. Not a copy, and not to be written."""
        return self._curve.array

    def __len__(self) -> int:
        return len(self.array)

    def then(self, second: TRC) -> TRC:
        """This curve and then another, as one. Raises ValueError if an entry is past the end of the second curve."""
        return TRC._of(_ko.Curve.composed(self._curve, second._curve))

    def resize(self, size: int) -> TRC:
        """The curve with another number of entries, 1 to 65536. Shrinking takes entries and keeps their values; growing
        interpolates, and multiplies the values by the whole number of times that the size grows. Raises `ko.Error` for a
        curve of fewer than 3 entries that is to grow."""
        return TRC._of(self._curve.resized(_values.whole("size", size, 1, 65536)))

    def apply(self, plane: npt.NDArray[Any]) -> FloatPlane:
        """A plane with each pixel replaced by the entry at its level, truncated. A level past the curve, or below 0, takes the
        last entry; a NaN takes the first."""
        return self._curve.apply(plane)


class Histogram:
    """Counts pixels into bins over a range of levels. Several threads that use one take turns.

    size:             bins, 2 to 65536.
    minimum, maximum: the levels of the first and the last bin.
    """

    __slots__ = ("_counts",)

    def __init__(self, size: int = 256, minimum: float = 0.0, maximum: float = 255.0) -> None:
        low = _values.number("minimum", minimum, -_LARGEST_FLOAT, _LARGEST_FLOAT)
        high = _values.number("maximum", maximum, -_LARGEST_FLOAT, _LARGEST_FLOAT)
        if not np.float32(low) < np.float32(high):
            raise ValueError("minimum is below maximum")
        self._counts = _ko.Counts(_values.whole("size", size, 2, 65536), low, high)

    def count(self, plane: npt.NDArray[Any]) -> None:
        """Adds a plane. A level goes to the nearest bin, what is out of the range to the first or the last one, a NaN to the
        first."""
        self._counts.count(plane)

    @property
    def values(self) -> npt.NDArray[np.uint32]:
        """A copy of the counters."""
        return self._counts.values

    @property
    def pixels(self) -> int:
        """Pixels of the plane that was counted last."""
        return self._counts.pixels

    def value_at(self, fraction: float) -> float:
        """The level of the first bin at which the counters, added up from the first, reach a share of `pixels`: 0.5 is the
        median."""
        return self._counts.value_at(_values.number("fraction", fraction, 0.0, 1.0))

    def apply(self, curve: TRC) -> None:
        """Moves each counter to the bin that a curve of as many entries gives for it."""
        self._counts.push(curve._curve)


@dataclass(frozen=True)
class Components:
    """Connected components of a plane.

    labels: int32 array of the plane's shape: 0 for pixels that are not lit, otherwise the number of the component, from 1 on.
    boxes:  uint32 array of the shape (components, 4): left, top, right and bottom in pixels, the last two exclusive.
    areas:  uint32 array of the shape (components,): pixels.
    """

    labels: npt.NDArray[np.int32]
    boxes: npt.NDArray[np.uint32]
    areas: npt.NDArray[np.uint32]


def components(plane: npt.NDArray[Any], threshold: float) -> Components:
    """The components of the pixels above a threshold, eight neighbours each. A NaN is not above any."""
    return Components(*_ko.components(plane, _values.number("threshold", threshold, -_LARGEST_FLOAT, _LARGEST_FLOAT)))
