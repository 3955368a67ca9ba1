"""A run over many pictures from the client's side: hand out one task per picture, collect the rows.

Dask gives up on a task whose worker died several times while it held the task, whether it ran or waited there. So a picture may
be given up for its neighbour's fault. Each of those is tried once more alone, after all others: only a picture that loses its
worker then is to blame.
"""

from __future__ import annotations

import secrets
from typing import Callable, Dict, Iterator, List, Mapping, Optional, Sequence, Tuple, Union

import dask.utils
import distributed

from .. import _values
from .._ko import version
from . import _layout, _options, _store
from ._picture import Work, enhance_picture
from ._table import Row, Table

OnRow = Callable[[Row], None]


def enhance(
    paths: Sequence[_layout.Path],
    out: Optional[_layout.Path],
    client: Optional[distributed.Client] = None,
    *,
    suffix: str = "",
    format: Optional[str] = None,
    no_clobber: bool = False,
    retries: int = 2,
    time_limit: float = 600.0,
    memory_limit: Union[int, str] = "4 GiB",
    program: Optional[str] = None,
    in_options: Optional[Mapping[str, object]] = None,
    out_options: Optional[Mapping[str, object]] = None,
    on_row: Optional[OnRow] = None,
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
) -> Table:
    """Opens the shadows of the pictures that benefit, and copies the others: `ko enhance` as one Dask task per picture.

    paths:        pictures: local paths, which every worker must see under the same name, or URLs that fsspec knows.
    out:          a folder for the results, local or a URL, made if it is missing. None puts each result beside its input,
                  which needs a suffix.
    client:       of the cluster; None is the current one.
    suffix:       put before the extension of each result.
    format:       "jpeg", "png", "tiff" or "webp" for all results; None keeps each picture's own, and writes HEIC and AVIF
                  as JPEG.
    no_clobber:   leave results alone that exist when the run starts, and skip their pictures.
    retries:      how often a picture is tried again after an error that may pass, such as a broken connection.
    time_limit:   seconds for the program on one picture.
    memory_limit: address space for the program on one picture, in bytes or as a text such as "4 GiB".
    program:      path of the program on the workers; None looks for it in KO_PROGRAM, beside Python and in PATH.
    in_options, out_options: arguments of the file systems of the inputs and of the results, such as credentials. They
                  travel to the workers.
    on_row:       called with each row when its picture is done, in the thread of the caller.
    quality:      of JPEG and lossy WebP results, 1 to 100; None is that of the program.
    again:        enhance even pictures whose mark says that they are.

    The other arguments are those of `ko.enhance`. Raises ValueError before any work if two pictures have the same target, or
    one is the target of another. A picture that fails is an error in its row, and does not affect the others.
    """
    arguments = _options.arguments(
        force=force,
        policy=policy,
        score=score,
        grid=grid,
        max_gain=max_gain,
        strength=strength,
        limit=limit,
        levels=levels,
        max_slope=max_slope,
        ratio=ratio,
        working_size=working_size,
        quality=quality,
        again=again,
    )
    work = Work(
        arguments=arguments,
        extension="" if format is None else _values.choice("format", format, _layout.FORMATS),
        program=program,
        version=version,
        time_limit=_values.number("time_limit", time_limit, 0.001, 1e6),
        memory_limit=_values.whole("memory_limit", _bytes(memory_limit), 1 << 20, 1 << 62),
        drafts=f".ko-{secrets.token_hex(4)}-",
        in_options=dict(in_options or {}),
        out_options=dict((in_options if out is None else out_options) or {}),
    )
    tries = _values.whole("retries", retries, 0, 1000)
    jobs = _layout.lay_out(paths, out, suffix, format, work.in_options, work.out_options)
    found = client if client is not None else distributed.get_client()
    if found.asynchronous:
        raise TypeError("client is asynchronous; ko.dask needs one that is not")
    return Table(_rows(found, jobs, work, tries, no_clobber, on_row or (lambda row: None)))


def _bytes(limit: Union[int, str]) -> int:
    try:
        return dask.utils.parse_bytes(limit)
    except ValueError:
        raise ValueError(f"memory_limit is a number of bytes, or a text such as '4 GiB', not {limit!r}") from None


def _rows(
    client: distributed.Client, jobs: List[_layout.Job], work: Work, retries: int, no_clobber: bool, on_row: OnRow
) -> List[Row]:
    folders = sorted({_store.folder_of(job.target) for job in jobs})
    rows: Dict[int, Row] = {}

    def add(number: int, row: Row) -> None:
        rows[number] = row
        on_row(row)

    if no_clobber:
        for number, target in _existing(jobs, folders, work.out_options):
            add(number, Row(jobs[number].source, output=target, decision="skipped", reason=f"{target} exists"))
    for folder in folders:
        _store.make_folder(folder, work.out_options)
    try:
        for number, row in _processed(client, {i: job for i, job in enumerate(jobs) if i not in rows}, work, retries):
            add(number, row)
    finally:
        _store.remove_drafts(folders, work.out_options, work.drafts)
    return [rows[number] for number in range(len(jobs))]


def _existing(jobs: List[_layout.Job], folders: List[str], options: _store.Options) -> Iterator[Tuple[int, str]]:
    names = {folder: _store.names_in(folder, options) for folder in folders}
    for number, job in enumerate(jobs):
        if job.target.rpartition("/")[2] in names[_store.folder_of(job.target)]:
            yield number, job.target


def _processed(
    client: distributed.Client, jobs: Dict[int, _layout.Job], work: Work, retries: int
) -> Iterator[Tuple[int, Row]]:
    suspects = []
    for number, row in _round(client, jobs, work, retries):
        if row is None:
            suspects.append(number)
        else:
            yield number, row
    for number in sorted(suspects):
        for _, row in _round(client, {number: jobs[number]}, work, retries):
            yield number, row or Row(jobs[number].source, error="its worker died whenever it was processed, in the end alone")


# Each picture with its row, or with None if Dask gave up because workers died.
def _round(
    client: distributed.Client, jobs: Dict[int, _layout.Job], work: Work, retries: int
) -> Iterator[Tuple[int, Optional[Row]]]:
    if not jobs:
        return
    futures = client.map(
        enhance_picture,
        list(jobs.values()),
        work=work,
        key=[_key(number, job) for number, job in jobs.items()],
        retries=retries,
        pure=False,
    )
    numbers = {future.key: number for number, future in zip(jobs, futures)}
    try:
        for future in distributed.as_completed(futures):
            number = numbers[future.key]
            yield number, _row_of(future, jobs[number])
            future.release()
    finally:
        client.cancel([future for future in futures if not future.done()])


# The dashboard shows tasks by the part of their key before the first number.
def _key(number: int, job: _layout.Job) -> str:
    name = job.source.rpartition("/")[2].encode("utf-8", "replace").decode("utf-8")
    return f"ko-enhance-{number}-{secrets.token_hex(4)}-{name}"


def _row_of(future: distributed.Future, job: _layout.Job) -> Optional[Row]:
    try:
        return future.result()
    except distributed.KilledWorker:
        return None
    except distributed.CancelledError:
        return Row(job.source, error="cancelled: the scheduler was lost, or the task was cancelled there")
    except Exception as error:
        return Row(job.source, error=str(error) or type(error).__name__)
