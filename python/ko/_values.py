"""Options with numbers or names as values: each is checked here, so that the extension gets only valid ones."""

from __future__ import annotations

import math
import operator
from typing import Mapping, Optional, Sequence, SupportsFloat, SupportsIndex, Tuple, TypeVar

from . import _ko

Choice = TypeVar("Choice")

POLICIES = {"conservative": 1, "default": 2, "risky": 3, "always": 4}

DEFAULT_WORKING_SIZE = 0.5
_WHOLE_PICTURE = 2**64 - 1
_NO_SCORE = -1.0


def whole(name: str, value: SupportsIndex, low: int, high: int) -> int:
    """A whole number from low to high."""
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{name} is a whole number, not {type(value).__name__}") from None
    if not low <= number <= high:
        raise ValueError(f"{name} is a whole number from {low} to {high}, not {number}")
    return number


def number(name: str, value: SupportsFloat, low: float, high: float) -> float:
    """A number from low to high; a NaN is in no range."""
    if isinstance(value, (str, bytes)) or not hasattr(value, "__float__") and not hasattr(value, "__index__"):
        raise TypeError(f"{name} is a number, not {type(value).__name__}")
    try:
        result = float(value)
    except OverflowError:
        result = math.inf
    if not low <= result <= high:
        raise ValueError(f"{name} is a number from {low:g} to {high:g}, not {value}")
    return result


def choice(name: str, value: str, choices: Mapping[str, Choice]) -> Choice:
    """What a name stands for."""
    if not isinstance(value, str):
        raise TypeError(f"{name} is a string, not {type(value).__name__}")
    if value not in choices:
        raise ValueError(f"{name} is one of {', '.join(choices)}, not {value!r}")
    return choices[value]


def ratio(value: float) -> float:
    return number("ratio", value, 0.0, 1.0)


def score(value: Optional[float]) -> float:
    return _NO_SCORE if value is None else number("score", value, 0.0, 1.0)


def tiles(value: Sequence[int]) -> Tuple[int, int]:
    try:
        columns, rows = value
    except (TypeError, ValueError):
        raise ValueError("grid is a pair of whole numbers, tiles across and down") from None
    return whole("grid", columns, 1, 256), whole("grid", rows, 1, 256)


def _working_area(value: Optional[float]) -> int:
    return _WHOLE_PICTURE if value is None else int(number("working_size", value, 0.01, 250.0) * 1e6)


def tuning(
    *,
    grid: Sequence[int] = (8, 8),
    max_gain: float = 3.0,
    strength: float = 40.0,
    limit: float = 0.6275,
    levels: int = 5,
    ratio_weight: float = 0.5,
    working_size: Optional[float] = DEFAULT_WORKING_SIZE,
    max_slope: Optional[int] = None,
) -> _ko.Tuning:
    """All that may be chosen about judgement and curves."""
    return _ko.Tuning(
        grid=tiles(grid),
        max_gain=number("max_gain", max_gain, 1.0, 100.0),
        strength=number("strength", strength, 0.0, 10000.0),
        limit=number("limit", limit, 0.01, 1.0),
        levels=whole("levels", levels, 1, 255),
        ratio=ratio(ratio_weight),
        working_area=_working_area(working_size),
        max_slope=None if max_slope is None else whole("max_slope", max_slope, 0, 255),
    )
