"""What became of each picture. A table needs no library of its own: it is a sequence of tuples, and writes itself as text."""

from __future__ import annotations

import csv
import json
from typing import Any, Dict, Iterable, Iterator, List, NamedTuple, Optional, Sequence, TextIO, Tuple, Union, overload


class Row(NamedTuple):
    """What became of one picture.

    path:     the input, an absolute path or a URL.
    output:   the result, likewise; "" if none was written.
    decision: "enhanced"; "left as it is" or "unchanged", where the result is a copy; "skipped" for a result that existed; ""
              for a picture that failed.
    reason:   why it was not enhanced, in words; otherwise "".
    measures: "score", "detail", "entropy" and "noise" with value and limit, or None if the picture was not judged. The
              score is a number from 0 to 1, the others count blocks out of 64.
    notices:  what the result does not hold of the input.
    seconds:  that the picture took on its worker, with reading and writing it.
    worker:   the address of the worker, or "" if none ended it.
    error:    why it failed; otherwise "".
    """

    path: str
    output: str = ""
    decision: str = ""
    reason: str = ""
    measures: Optional[Dict[str, Dict[str, Optional[float]]]] = None
    notices: Tuple[str, ...] = ()
    seconds: float = 0.0
    worker: str = ""
    error: str = ""

    def record(self) -> Dict[str, Any]:
        """The row as names with values that are numbers or texts: a measure is the number that was measured."""
        values: Dict[str, Any] = self._asdict()
        measures = values.pop("measures") or {}
        values["notices"] = "; ".join(self.notices)
        values.update({name: measures.get(name, {}).get("value") for name in ("score", "detail", "entropy", "noise")})
        return values


class Table(Sequence[Row]):
    """One row for each picture, in the order of the inputs."""

    def __init__(self, rows: Iterable[Row]) -> None:
        self._rows = tuple(rows)

    @overload
    def __getitem__(self, index: int) -> Row: ...

    @overload
    def __getitem__(self, index: slice) -> Table: ...

    def __getitem__(self, index: Union[int, slice]) -> Union[Row, Table]:
        return Table(self._rows[index]) if isinstance(index, slice) else self._rows[index]

    def __len__(self) -> int:
        return len(self._rows)

    def __iter__(self) -> Iterator[Row]:
        return iter(self._rows)

    def __repr__(self) -> str:
        counts: Dict[str, int] = {}
        for row in self._rows:
            outcome = "failed" if row.error else row.decision
            counts[outcome] = counts.get(outcome, 0) + 1
        return f"<ko.dask.Table: {', '.join(f'{count} {outcome}' for outcome, count in sorted(counts.items())) or 'empty'}>"

    @property
    def failed(self) -> Table:
        """The rows of the pictures that failed."""
        return Table(row for row in self._rows if row.error)

    def records(self) -> List[Dict[str, Any]]:
        """Rows as `Row.record` gives them, such as `pandas.DataFrame` takes."""
        return [row.record() for row in self._rows]

    def write_csv(self, stream: TextIO) -> None:
        """Writes a line of names, and one line for each picture."""
        writer = csv.DictWriter(stream, fieldnames=list(Row("").record()), lineterminator="\n")
        writer.writeheader()
        writer.writerows(self.records())

    def write_json(self, stream: TextIO) -> None:
        """Writes an object for each picture, on a line of its own. Characters outside of ASCII are escaped."""
        for row in self._rows:
            stream.write(json.dumps(row._asdict()) + "\n")
