"""What may be chosen about an enhancement, as arguments of the program. Values are checked before any work is handed out."""

from __future__ import annotations

from typing import List, Optional, Sequence

from .. import _values


def arguments(
    *,
    force: bool = False,
    policy: str = "default",
    score: Optional[float] = None,
    grid: Sequence[int] = (8, 8),
    max_gain: float = 3.0,
    strength: float = 40.0,
    limit: float = 0.6275,
    levels: int = 5,
    max_slope: Optional[int] = None,
    ratio: float = 0.5,
    working_size: Optional[float] = _values.DEFAULT_WORKING_SIZE,
    quality: Optional[int] = None,
    again: bool = False,
) -> List[str]:
    """The arguments after `ko enhance`, without input and output."""
    _values.choice("policy", policy, _values.POLICIES)
    columns, rows = _values.tiles(grid)
    found = ["--policy", "always" if force else policy, "--grid", f"{columns}x{rows}"]
    for name, value, low, high in (
        ("max_gain", max_gain, 1.0, 100.0),
        ("strength", strength, 0.0, 10000.0),
        ("limit", limit, 0.01, 1.0),
        ("ratio", ratio, 0.0, 1.0),
    ):
        found += ["--" + name.replace("_", "-"), repr(_values.number(name, value, low, high))]
    found += ["--levels", str(_values.whole("levels", levels, 1, 255))]
    if score is not None:
        found += ["--score", repr(_values.score(score))]
    if max_slope is not None:
        found += ["--max-slope", str(_values.whole("max_slope", max_slope, 0, 255))]
    if quality is not None:
        found += ["--quality", str(_values.whole("quality", quality, 1, 100))]
    size = "full" if working_size is None else repr(_values.number("working_size", working_size, 0.01, 250.0))
    return found + ["--working-size", size] + ["--again"] * bool(again)
