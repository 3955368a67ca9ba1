"""Files on any file system: local ones by the system's own calls, all others through fsspec.

A result appears under its name whole or not at all. It is written as a draft beside its target and renamed; where a file
becomes visible only once it is complete, as in object stores, it is written in one go instead. The names of a run's drafts
begin alike, so that those of lost workers can be removed when the run ends.
"""

from __future__ import annotations

import contextlib
import os
import posixpath
import shutil
from pathlib import Path
from typing import Any, Iterable, Mapping, Set, Tuple, Union
from urllib.parse import unquote, urlsplit

import fsspec
from fsspec.implementations.local import LocalFileSystem

Options = Mapping[str, Any]

# File systems in which an upload shows once it is complete, and a rename would be a copy.
WRITES_WHOLE_FILES = frozenset({"s3", "s3a", "gs", "gcs", "az", "abfs", "abfss", "oss"})


def absolute(path: Union[str, os.PathLike[str]], options: Options) -> str:
    """A path as every machine understands it: an absolute local path, or a URL."""
    text = os.fspath(path)
    if isinstance(path, str) and ("://" in path or "::" in path):
        files, place = fsspec.core.url_to_fs(path, **options)
        return place if isinstance(files, LocalFileSystem) else path
    return os.path.abspath(text)


def is_local(path: str) -> bool:
    return os.path.isabs(path)


def located(path: str, options: Options) -> Tuple[Any, str]:
    """The file system of an absolute path, and the path in it."""
    return fsspec.core.url_to_fs(path, **options)


def identity(path: str, options: Options) -> Tuple[Any, str]:
    """Equal for two paths that lead to the same file."""
    return (None, os.path.realpath(path)) if is_local(path) else located(path, options)


def name_of(path: str, options: Options) -> str:
    """The last part of a path."""
    if is_local(path):
        return os.path.basename(path)
    place = located(path, options)[1]
    return posixpath.basename(unquote(urlsplit(place).path) if "://" in place else place)


def make_folder(folder: str, options: Options) -> None:
    if is_local(folder):
        os.makedirs(folder, exist_ok=True)
        return
    files, place = located(folder, options)
    if not _writes_whole_files(files):
        files.makedirs(place, exist_ok=True)


def names_in(folder: str, options: Options) -> Set[str]:
    """The names of the files in a folder; none in one that does not exist."""
    try:
        if is_local(folder):
            return set(os.listdir(folder))
        files, place = located(folder, options)
        return {posixpath.basename(name.rstrip("/")) for name in files.ls(place, detail=False)}
    except FileNotFoundError:
        return set()


def fetch(source: str, options: Options, target: Path) -> None:
    """Makes a file available under a local name. A local one stays where it is."""
    if is_local(source):
        target.symlink_to(source)
        return
    files, place = located(source, options)
    files.get_file(place, str(target))


def place(result: Path, target: str, options: Options, draft_name: str) -> None:
    """Copies a local file to a target, under the name of a draft until it is complete."""
    if is_local(target):
        _place_locally(result, os.path.realpath(target), draft_name)
        return
    files, path = located(target, options)
    if _writes_whole_files(files):
        files.put_file(str(result), path)
        return
    draft = posixpath.join(posixpath.dirname(path), draft_name)
    try:
        files.put_file(str(result), draft)
        _rename(files, draft, path)
    except BaseException:
        with contextlib.suppress(Exception):
            files.rm_file(draft)
        raise


def remove_drafts(folders: Iterable[str], options: Options, prefix: str) -> None:
    """Removes the drafts that lost workers left. What cannot be listed or removed is left behind."""
    for folder in folders:
        with contextlib.suppress(Exception):
            if not is_local(folder) and _writes_whole_files(located(folder, options)[0]):
                continue
            for name in names_in(folder, options):
                if name.startswith(prefix):
                    _remove(folder, name, options)


def folder_of(path: str) -> str:
    return os.path.dirname(path) if is_local(path) else path[: path.rindex("/")]


def _writes_whole_files(files: Any) -> bool:
    protocols = [files.protocol] if isinstance(files.protocol, str) else files.protocol
    return not WRITES_WHOLE_FILES.isdisjoint(protocols)


# The bytes reach the disk before the name does: after a crash the target is the old file or the new one. An existing target
# keeps its permissions.
def _place_locally(result: Path, target: str, draft_name: str) -> None:
    if os.path.exists(target) and not os.path.isfile(target):
        raise IsADirectoryError("a folder or a device has this name")
    draft = os.path.join(os.path.dirname(target), draft_name)
    try:
        with open(result, "rb") as source, open(draft, "xb") as copy:
            shutil.copyfileobj(source, copy, 1 << 20)
            copy.flush()
            os.fsync(copy.fileno())
        if os.path.exists(target):
            shutil.copymode(target, draft)
        os.replace(draft, target)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(draft)
        raise


# fsspec's own substitute for a rename takes brackets in the path for a pattern. A server may refuse to replace a file and say
# so in an answer that nothing looks at.
def _rename(files: Any, draft: str, path: str) -> None:
    if type(files).mv is fsspec.AbstractFileSystem.mv:
        files.cp_file(draft, path)
        files.rm_file(draft)
    else:
        files.mv(draft, path)
        if files.exists(draft):
            raise OSError("the server did not rename the draft")


def _remove(folder: str, name: str, options: Options) -> None:
    if is_local(folder):
        os.unlink(os.path.join(folder, name))
        return
    files, place = located(folder, options)
    files.rm_file(posixpath.join(place, name))
