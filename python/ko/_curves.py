"""Grids of tone curves."""

from __future__ import annotations

import os
import secrets
import shutil
from pathlib import Path
from typing import Any, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

from . import _ko, _values

FORMS = {"text": 1, "binary": 2, "encoded": 3}


class Curves:
    """A grid of tone curves: one for each tile of a picture, blended from tile to tile.

    A curve of n entries, a multiple of 256, maps the levels 0 to n - 1 to levels of the same scale. A grid does not depend on
    the size of a picture. It does not change once made; any number of threads may use one.
    """

    __slots__ = ("_grid",)
    _grid: _ko.Grid

    def __init__(self, array: npt.ArrayLike) -> None:
        """Takes curves from whole numbers of the shape (rows of tiles, columns of tiles, entries), each from 0 to the
        number of entries less 1."""
        numbers = np.asarray(array)
        if numbers.dtype.kind not in "iu":
            raise TypeError(f"curves consist of whole numbers, not {numbers.dtype}")
        self._grid = _ko.Grid(numbers)

    @classmethod
    def _of(cls, grid: _ko.Grid) -> Curves:
        curves = cls.__new__(cls)
        curves._grid = grid
        return curves

    @classmethod
    def fit(
        cls,
        picture: npt.NDArray[Any],
        *,
        grid: Sequence[int] = (8, 8),
        max_gain: float = 3.0,
        strength: float = 40.0,
        limit: float = 0.6275,
        levels: int = 5,
        max_slope: Optional[int] = None,
        working_size: Optional[float] = _values.DEFAULT_WORKING_SIZE,
    ) -> Curves:
        """The curves of 256 entries that open the shadows of a picture, without a judgement. The arguments are those of
        `ko.enhance`."""
        tuning = _values.tuning(
            grid=grid,
            max_gain=max_gain,
            strength=strength,
            limit=limit,
            levels=levels,
            max_slope=max_slope,
            working_size=working_size,
        )
        return cls._of(_ko.fit(picture, tuning))

    @classmethod
    def load(cls, path: Union[str, os.PathLike[str]]) -> Curves:
        """Reads a file of any form, such as `ko curves` writes. Raises OSError if the file cannot be opened, `ko.Error` if it
        holds no curves, and ValueError for curves that cannot be applied. The library writes the line that it rejects to the
        standard error stream."""
        with open(path, "rb"):
            pass
        return cls._of(_ko.Grid.load(Path(path)))

    def save(self, path: Union[str, os.PathLike[str]], form: str = "text") -> None:
        """Writes a file that `Curves.load` and `ko apply` read.

        form: "text" holds all curves whose number of entries is a power of two; "binary" is a byte and "encoded" less than a
        byte per entry, and both hold most curves.

        Raises ValueError if the form does not hold these curves, OSError if the file cannot be written. The file is written
        beside its target and takes the target's name once it is complete and was read back.
        """
        number = _values.choice("form", form, FORMS)
        target = Path(path)
        draft = target.with_name(f".{target.name[:100]}.{secrets.token_hex(4)}")
        with open(draft, "xb"):
            pass
        try:
            if not self._grid.save(draft, number):
                raise ValueError(f"the form {form!r} does not hold these curves")
            if target.exists():
                shutil.copymode(target, draft)
            os.replace(draft, target)
        except BaseException:
            draft.unlink(missing_ok=True)
            raise

    @property
    def array(self) -> npt.NDArray[np.uint32]:
        """The entries, of the shape (rows of tiles, columns of tiles, entries). Not a copy, and not to be written."""
        return self._grid.array

    @property
    def grid(self) -> Tuple[int, int]:
        """Tiles across and down."""
        rows, columns, _ = self.array.shape
        return columns, rows

    @property
    def entries(self) -> int:
        """Entries of a curve."""
        return int(self.array.shape[2])

    def apply(self, picture: npt.NDArray[Any], *, ratio: float = 0.5) -> npt.NDArray[Any]:
        """A new picture with the curves applied.

        The picture needs two pixels per tile in each direction of several tiles. Floats are rounded to whole levels first. A
        gray picture stays as it is under a grid of one tile. ratio is that of `ko.enhance`.
        """
        return self._grid.apply(picture, _values.ratio(ratio))

    def application(self, shape: Sequence[int], *, ratio: float = 0.5) -> Application:
        """The application to a picture of a shape, (height, width) or (height, width, 3), whose rows come in pieces."""
        return Application(self, shape, ratio=ratio)

    def __array__(self, dtype: Optional[npt.DTypeLike] = None, copy: Optional[bool] = None) -> npt.NDArray[Any]:
        array = self.array if dtype is None else self.array.astype(dtype, copy=False)
        return array.copy() if copy else array

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Curves):
            return NotImplemented
        return self._grid.equals(other._grid)

    def __hash__(self) -> int:
        return hash(self.array.tobytes())

    def __reduce__(self) -> Tuple[type, Tuple[npt.NDArray[np.uint32]]]:
        return Curves, (np.array(self.array),)

    def __repr__(self) -> str:
        columns, rows = self.grid
        return f"<ko.Curves: {columns} x {rows} tiles, {self.entries} entries>"


class Application:
    """Applies curves to a picture that is passed row by row: `apply` takes the next rows, however many. The division into
    pieces does not change the result. Several threads that use one take turns."""

    __slots__ = ("_rows",)

    def __init__(self, curves: Curves, shape: Sequence[int], *, ratio: float = 0.5) -> None:
        sides = tuple(shape)
        if len(sides) not in (2, 3) or len(sides) == 3 and sides[2] != 3:
            raise ValueError(f"a picture has the shape (height, width) or (height, width, 3), not {sides}")
        height, width = (_values.whole("a side", side, 0, 2**31 - 1) for side in sides[:2])
        self._rows = _ko.Rows(curves._grid, width, height, len(sides) == 3, _values.ratio(ratio))

    @property
    def left(self) -> int:
        """Rows of the picture that have not been passed yet."""
        return self._rows.left

    def apply(self, rows: npt.NDArray[Any]) -> npt.NDArray[Any]:
        """The next rows with the curves applied, as a new array. Raises ValueError for more rows than are left."""
        return self._rows.apply(rows)
