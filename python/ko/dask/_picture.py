"""One picture on a worker: fetch it, run the program on it, place the result.

The program runs as a process of its own. So a picture that crashes it, takes too long or needs too much memory is an error in
its row, and the worker goes on. What may pass, such as a broken connection, is raised, so that Dask tries again; what is the
picture's own fault is not.
"""

from __future__ import annotations

import contextlib
import functools
import json
import math
import os
import resource
import secrets
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Dict, List, Mapping, Optional, Tuple

import distributed

from . import _layout, _store
from ._table import Row


@dataclass(frozen=True)
class Work:
    """What the pictures of a run have in common.

    arguments:    of the program, without input and output.
    extension:    of the results' format, or "" if each picture keeps its own.
    program:      path or name of the program, or None to look for it.
    version:      that the program must have.
    time_limit:   seconds for one picture.
    memory_limit: bytes of address space for one picture.
    drafts:       how the names of the run's drafts begin.
    """

    arguments: List[str]
    extension: str
    program: Optional[str]
    version: str
    time_limit: float
    memory_limit: int
    drafts: str
    in_options: Mapping[str, Any]
    out_options: Mapping[str, Any]


class PictureError(Exception):
    """A picture cannot be processed, and trying again would not help."""


class PassingError(Exception):
    """A picture could not be processed this time. Its text alone travels to the client, which may lack the package that
    the original exception came from."""


def enhance_picture(job: _layout.Job, work: Work) -> Row:
    """The task of one picture. Raises PassingError."""
    started = time.monotonic()
    worker = distributed.get_worker()

    def row(**values: Any) -> Row:
        return Row(job.source, seconds=round(time.monotonic() - started, 3), worker=worker.address, **values)

    # The worker's own folder, which Dask empties after a worker that died.
    with tempfile.TemporaryDirectory(prefix="ko-", dir=worker.local_directory, ignore_cleanup_errors=True) as folder:
        try:
            answer, notices, result = _enhance(job, work, Path(folder))
            _place(result, job.target, work)
        except PictureError as error:
            return row(error=str(error))
    reason, measures = answer.get("reason", ""), answer.get("measures")
    return row(output=job.target, decision=answer["decision"], reason=reason, measures=measures, notices=notices)


def _enhance(job: _layout.Job, work: Work, folder: Path) -> Tuple[Dict[str, Any], Tuple[str, ...], Path]:
    program = _find_program(work.program)
    _check_version(program, work.version)
    picture = folder / ("picture" + job.extension)
    _fetch(job.source, picture, work)
    results = folder / "results"
    results.mkdir()
    # A folder as output keeps the format of the input, a file selects one.
    output = str(results / ("picture" + work.extension)) if work.extension else f"{results}/"
    command = [program, "enhance", "--json", *work.arguments, str(picture), "-o", output]
    answer, notices = _answer(*_run(command, work.time_limit, work.memory_limit))
    (result,) = results.iterdir()
    return answer, notices, result


def _fetch(source: str, picture: Path, work: Work) -> None:
    try:
        _store.fetch(source, work.in_options, picture)
    except (FileNotFoundError, IsADirectoryError, PermissionError) as error:
        raise PictureError(f"cannot be read: {_text(error)}") from None
    except Exception as error:
        raise PassingError(f"cannot be read: {_text(error)}") from None


def _place(result: Path, target: str, work: Work) -> None:
    try:
        _store.place(result, target, work.out_options, f"{work.drafts}{secrets.token_hex(4)}.part")
    except (FileNotFoundError, IsADirectoryError, NotImplementedError, PermissionError) as error:
        raise PictureError(f"cannot write {target}: {_text(error)}") from None
    except Exception as error:
        raise PassingError(f"cannot write {target}: {_text(error)}") from None


def _text(error: BaseException) -> str:
    if isinstance(error, OSError) and error.strerror:
        return error.strerror
    return str(error) or type(error).__name__


# ---- the program


def _find_program(wanted: Optional[str]) -> str:
    beside = str(Path(sys.executable).with_name("ko"))
    for candidate in [wanted] if wanted else [os.environ.get("KO_PROGRAM"), beside, "ko"]:
        found = shutil.which(candidate) if candidate else None
        if found:
            return found
    places = "" if wanted else "; it is looked for in KO_PROGRAM, beside Python and in PATH"
    raise PassingError(f"this worker has no program {wanted or 'ko'}{places}")


@functools.lru_cache(maxsize=None)
def _version_of(program: str) -> str:
    shown = subprocess.run([program, "--version"], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
    return shown.stdout.split("\n")[0]


# Another version may give other bytes, and a run must not depend on where a picture was processed.
def _check_version(program: str, version: str) -> None:
    found = _version_of(program)
    if found != f"ko {version}":
        raise PassingError(f"{program} on this worker is {found or 'not ko'}; this run needs ko {version}")


def _run(command: List[str], time_limit: float, memory_limit: int) -> Tuple[int, str, str]:
    with subprocess.Popen(
        command,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        encoding="utf-8",
        errors="replace",
        start_new_session=True,
    ) as process:
        try:
            _limit(process.pid, time_limit, memory_limit)
            out, err = process.communicate(timeout=time_limit)
        except BaseException as error:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
            if isinstance(error, subprocess.TimeoutExpired):
                raise PictureError(_too_long(time_limit)) from None
            raise
    if process.returncode == -signal.SIGXCPU:
        raise PictureError(_too_long(time_limit))
    return process.returncode, out, err


def _too_long(time_limit: float) -> str:
    return f"it took longer than {time_limit:g} s"


# From outside and after the start: code that runs between fork and exec is not safe in a process with threads. The limit of
# processor time also ends a program whose worker was lost.
def _limit(process: int, time_limit: float, memory_limit: int) -> None:
    with contextlib.suppress(ProcessLookupError):
        seconds = math.ceil(time_limit) + 1
        for kind, wanted in ((resource.RLIMIT_AS, memory_limit), (resource.RLIMIT_CPU, seconds)):
            hard = resource.prlimit(process, kind)[1]
            limit = wanted if hard == resource.RLIM_INFINITY else min(wanted, hard)
            resource.prlimit(process, kind, (limit, hard))


# The program ends with 0 or 1 and an object about the picture; anything else is not about the picture alone.
def _answer(status: int, out: str, err: str) -> Tuple[Dict[str, Any], Tuple[str, ...]]:
    if status < 0:
        raise PassingError(f"the program was ended by {signal.Signals(-status).name}")
    answer: Dict[str, Any] = {}
    with contextlib.suppress(ValueError):
        answer = json.loads(out)
    if "error" in answer:
        raise PictureError(answer["error"])
    if status != 0 or "decision" not in answer:
        said = err.strip().split("\n")[-1]
        raise PassingError(f"the program ended with status {status}" + (f": {said}" if said else ""))
    lines = [line.partition(": notice: ") for line in err.split("\n")]
    return answer, tuple(notice for _, found, notice in lines if found)
