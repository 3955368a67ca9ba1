"""Which picture becomes which file, by the rules of the program: a result keeps its input's name, and nothing is overwritten
that another picture of the run reads or writes."""

from __future__ import annotations

import os
import posixpath
from dataclasses import dataclass
from typing import Any, Dict, Iterable, List, Optional, Tuple, Union

from . import _store

Path = Union[str, "os.PathLike[str]"]

# The extensions of pictures as the program recognises them, and what their results are named.
_ONLY_READ = {".heic", ".heif", ".avif"}
_WRITTEN = {".jpg", ".jpeg", ".jpe", ".png", ".tif", ".tiff", ".webp"}

FORMATS = {"jpeg": ".jpg", "png": ".png", "tiff": ".tif", "webp": ".webp"}


@dataclass(frozen=True)
class Job:
    """A picture and its target, each an absolute path or a URL."""

    source: str
    target: str
    extension: str  # of the input, if it is that of a picture


def lay_out(
    paths: Iterable[Path],
    out: Optional[Path],
    suffix: str,
    format: Optional[str],
    in_options: _store.Options,
    out_options: _store.Options,
) -> List[Job]:
    """The jobs in the order of the paths. A path that is named twice is processed once. Raises ValueError for targets that
    clash."""
    if isinstance(paths, (str, os.PathLike)):
        raise TypeError("paths is a list of paths, not a single one")
    if out is None and not suffix:
        raise ValueError("no output: out or suffix says where the results go")
    if "/" in suffix:
        raise ValueError("suffix is a part of a file's name, without slashes")
    folder = None if out is None else _folder(out, out_options)
    jobs: Dict[Tuple[Any, str], Job] = {}
    for path in paths:
        source = _store.absolute(path, in_options)
        name = _store.name_of(source, in_options)
        if not name:
            raise ValueError(f"{source} names no file")
        target = _beside(source, name) if folder is None else folder
        extension = posixpath.splitext(name)[1].lower()
        jobs.setdefault(
            _store.identity(source, in_options),
            Job(
                source,
                target + "/" + target_name(name, suffix, format),
                extension if extension in _ONLY_READ | _WRITTEN else "",
            ),
        )
    _refuse_clashes(jobs, out_options)
    return list(jobs.values())


def target_name(name: str, suffix: str, format: Optional[str]) -> str:
    """The name of a result. A format that is not specified is the input's, or JPEG for an input that is only read."""
    stem, extension = posixpath.splitext(name)
    if format is not None:
        extension = FORMATS[format]
    elif extension.lower() in _ONLY_READ:
        extension = ".jpg"
    return stem + suffix + extension


def _folder(out: Path, options: _store.Options) -> str:
    if "::" in os.fspath(out):
        raise ValueError(f"{os.fspath(out)} is a path through one file system into another; out is a folder of one")
    return _store.absolute(out, options).rstrip("/")


def _beside(source: str, name: str) -> str:
    if "::" in source or not source.endswith("/" + name):
        raise ValueError(f"no result can be written beside {source}: give a folder for it")
    return _store.folder_of(source)


def _refuse_clashes(jobs: Dict[Tuple[Any, str], Job], options: _store.Options) -> None:
    writers: Dict[Tuple[Any, str], str] = {}
    for source, job in jobs.items():
        target = _store.identity(job.target, options)
        refusal = f"cannot write {job.target}: "
        if target == source:
            raise ValueError(refusal + "it is the input")
        if target in jobs:
            raise ValueError(refusal + "it is another input")
        if target in writers:
            raise ValueError(refusal + f"two inputs would become this file, {writers[target]} and {job.source}")
        writers[target] = job.source
