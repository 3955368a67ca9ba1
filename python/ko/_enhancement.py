"""Judging and enhancing a picture."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Dict, Optional, Sequence, Tuple

import numpy as np
import numpy.typing as npt

from . import _ko, _values
from ._curves import Curves


@dataclass(frozen=True)
class Measure:
    """What was measured of a picture, and the most that a policy allows.

    `value` is None for a measure that was not taken: the score if none was given, the noise of a gray picture. The score is a
    number from 0 to 1; the other measures are numbers of blocks out of 64.
    """

    value: Optional[float]
    limit: float


@dataclass(frozen=True)
class Enhancement:
    """What was decided about a picture.

    decision: "enhanced"; "left" if the judgement turned the picture down; "unchanged" if curves would change nothing.
    reason:   why the picture was not enhanced, in words; otherwise "".
    measures: "score", "detail", "entropy" and "noise" with the limits of the policy. A picture within the limits of a more
              careful policy passes too. None if the picture was not judged: under the policy "always", or unchanged.
    curves:   those that were applied, or None.
    """

    decision: str
    reason: str
    measures: Optional[Dict[str, Measure]]
    curves: Optional[Curves]


@dataclass(frozen=True)
class BlockScores:
    """One measure block by block.

    scores:    float32 array of 8 x 8 blocks, rows from the top; None for the noise of a gray picture.
    threshold: a block counts against the picture if its score is below it, in the case of noise above it.
    count:     blocks that count against the picture; None if the measure was not taken.
    """

    scores: Optional[npt.NDArray[np.float32]]
    threshold: float
    count: Optional[int]


@dataclass(frozen=True)
class Verdict:
    """What a policy makes of a picture.

    passes_as: the policy whose limits the picture is within, this one or a more careful one; None if it is turned down.
    reason:    everything that exceeds the limits of this policy itself, in words; "" if nothing does.
    """

    passes_as: Optional[str]
    reason: str

    @property
    def enhanced(self) -> bool:
        """Whether the picture would be enhanced."""
        return self.passes_as is not None


@dataclass(frozen=True)
class Judgement:
    """All measures of a picture, whatever the decision.

    blocks:   "detail", "entropy" and "noise", block by block.
    values:   the numbers that count: the given score or None, and how many blocks exceed each threshold.
    limits:   for "conservative", "default" and "risky" the largest allowed value of each measure.
    verdicts: for these policies and "always", the decision.
    """

    blocks: Dict[str, BlockScores]
    values: Dict[str, Optional[float]]
    limits: Dict[str, Dict[str, float]]
    verdicts: Dict[str, Verdict]


def enhance(
    picture: npt.NDArray[Any],
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
) -> Tuple[npt.NDArray[Any], Enhancement]:
    """Opens the shadows of a picture that benefits.

    picture:      uint8 or float32, (height, width) or (height, width, 3), levels 0 to 255. Floats are rounded to whole levels
                  before they are enhanced; a float32 picture that is turned down keeps its levels.
    force:        enhance whatever the judgement, as policy="always".
    policy:       "conservative", "default", "risky" or "always": how readily pictures are enhanced.
    score:        a score of your own for the judgement, 0 to 1, the lower the better.
    grid:         tiles across and down, 1 to 256 each; each tile gets a tone curve. Reduced for a picture too small for it.
    max_gain:     gain in the deepest shadows, 1 to 100.
    strength:     how far the gain reaches from the shadows towards the limit, 0 to 10000.
    limit:        share of full brightness above which nothing changes, 0.01 to 1.
    levels:       brightness levels of the edge-preserving blur, 1 to 255.
    max_slope:    most levels by which a curve rises per step, 1 to 255; 0 leaves curves as fitted; None is the gain, and at
                  least 3.
    ratio:        colour: 0 shifts the channels, 1 scales them, values between mix the two.
    working_size: size in megapixels, 0.01 to 250, at which the picture is judged and its curves are made; None is its own.

    Returns a new array of the picture's shape and type, a copy if the picture is not enhanced, and the decision.
    """
    tuning = _values.tuning(
        grid=grid,
        max_gain=max_gain,
        strength=strength,
        limit=limit,
        levels=levels,
        ratio_weight=ratio,
        working_size=working_size,
        max_slope=max_slope,
    )
    number = _values.choice("policy", policy, _values.POLICIES)
    result, decision, reason, measured, curves = _ko.enhance(
        picture, tuning, _values.POLICIES["always"] if force else number, _values.score(score)
    )
    measures = None
    if measured is not None:
        values, limits = measured
        measures = {name: Measure(value, limits[name]) for name, value in values.items()}
    return result, Enhancement(decision, reason, measures, None if curves is None else Curves._of(curves))


def judge(
    picture: npt.NDArray[Any],
    *,
    score: Optional[float] = None,
    max_gain: float = 3.0,
    strength: float = 40.0,
    limit: float = 0.6275,
    levels: int = 5,
    working_size: Optional[float] = _values.DEFAULT_WORKING_SIZE,
) -> Judgement:
    """Measures what counts for and against enhancing a picture. The arguments are those of `enhance`."""
    tuning = _values.tuning(
        max_gain=max_gain, strength=strength, limit=limit, levels=levels, working_size=working_size
    )
    found = _ko.judge(picture, tuning, _values.score(score))
    blocks = {
        name: BlockScores(scores, found["thresholds"][name], found["values"][name])
        for name, scores in found["blocks"].items()
    }
    verdicts = {policy: Verdict(*verdict) for policy, verdict in found["verdicts"].items()}
    return Judgement(blocks, found["values"], found["limits"], verdicts)
