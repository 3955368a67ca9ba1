"""Red eyes: found and repaired."""

from __future__ import annotations

import os
import threading
from dataclasses import dataclass
from pathlib import Path
from typing import Any, List, Optional, Tuple, Union

import numpy as np
import numpy.typing as npt

from . import _ko, _values

SENSITIVITIES = {"careful": 0, "default": 1, "eager": 2}

Box = Tuple[int, int, int, int]


class RedEyeModel:
    """A red-eye model, read from its configuration and tried on a built-in picture. Any number of threads may use one.

    Raises `ko.Error` for a model that cannot be used.
    """

    __slots__ = ("_model",)

    def __init__(self, configuration: Union[str, os.PathLike[str]]) -> None:
        self._model = _ko.RedEyeModel(Path(configuration))

    @property
    def configuration(self) -> str:
        """The path of the configuration."""
        return self._model.configuration


@dataclass(frozen=True)
class Place:
    """A place that could be a red eye. Boxes are left, top, right and bottom in pixels; the last two are exclusive.

    box:      what is red.
    window:   what the model saw; None for a place that was not judged, which a plain search finds near the edge.
    label:    "accepted", "undecided" or "rejected"; None if not judged.
    score:    how sure the model is, 0 to 1; None in a plain search.
    fe_score, be_score: of the model's two classifiers; None if not judged.
    """

    box: Box
    window: Optional[Box]
    label: Optional[str]
    score: Optional[float]
    fe_score: Optional[float]
    be_score: Optional[float]


@dataclass(frozen=True)
class RedEyes:
    """What was found in a picture.

    decision: "repaired"; "none" if nothing is taken for a red eye; "gray" for a picture without colour; "too many" if more
              places were found than any picture has eyes.
    reason:   why a picture was left without a search result, in words; otherwise "".
    places:   those that were found, the surest first.
    """

    decision: str
    reason: str
    places: List[Place]

    @property
    def boxes(self) -> npt.NDArray[np.int64]:
        """The boxes of the places, of the shape (places, 4)."""
        return np.array([place.box for place in self.places], dtype=np.int64).reshape(-1, 4)

    @property
    def scores(self) -> npt.NDArray[np.float32]:
        """The scores of the places, of the shape (places,); NaN for a place without one."""
        return np.array([np.nan if place.score is None else place.score for place in self.places], dtype=np.float32)

    @property
    def labels(self) -> List[Optional[str]]:
        """The labels of the places."""
        return [place.label for place in self.places]


_lock = threading.Lock()
_own_model: Optional[RedEyeModel] = None


def _default_model() -> RedEyeModel:
    """The model of the package, read once."""
    global _own_model
    with _lock:
        if _own_model is None:
            _own_model = RedEyeModel(Path(__file__).parent / "redeye" / "redeye.cfg")
        return _own_model


def _chosen(model: Union[None, str, os.PathLike[str], RedEyeModel]) -> RedEyeModel:
    if model is None:
        return _default_model()
    return model if isinstance(model, RedEyeModel) else RedEyeModel(model)


def _reason(decision: str, found: int, limit: int) -> str:
    if decision == "gray":
        return "the picture is gray"
    return f"{found} places could be red eyes (limit {limit})" if decision == "too many" else ""


def redeye(
    picture: npt.NDArray[Any],
    *,
    sensitivity: str = "default",
    model: Union[None, str, os.PathLike[str], RedEyeModel] = None,
    full: bool = False,
    plain: bool = False,
    frames: bool = False,
) -> Tuple[npt.NDArray[Any], RedEyes]:
    """Finds and repairs red eyes.

    picture:     uint8 or float32, (height, width) or (height, width, 3), levels 0 to 255. Floats are searched as whole levels;
                 what is not repaired keeps its levels.
    sensitivity: "careful", "default" or "eager": how readily a place counts as a red eye.
    model:       a model, or the path of its configuration; None is the package's own.
    full:        repair every place, whatever its label.
    plain:       search, judge and repair as the library alone does.
    frames:      draw a frame around each place.

    Returns a new array of the picture's shape and type, and what was found.
    """
    number = _values.choice("sensitivity", sensitivity, SENSITIVITIES)
    result, decision, found, limit, places = _ko.repair(
        picture, _chosen(model)._model, number, bool(full), bool(plain), bool(frames)
    )
    return result, RedEyes(decision, _reason(decision, found, limit), [Place(*place) for place in places])
