"""The command `python -m ko.dask`: pictures in, better pictures and a table out, by the workers of a Dask cluster."""

from __future__ import annotations

import argparse
import contextlib
import json
import sys
from typing import Any, Iterator, List, Optional, TextIO, Tuple

import distributed

from .. import _values
from . import _layout
from ._run import enhance
from ._table import Row, Table

ALL_DONE, SOME_FAILED, WRONG_USAGE = 0, 1, 2

ABOUT = """Opens the shadows of photographs on the workers of a Dask cluster: `ko enhance` as one task per picture. A picture
that would not benefit is copied. Paths are local, and then seen by all workers under the same name, or URLs such as
s3://bucket/photo.jpg or https://host/photo.jpg."""

STATUS = """The exit status is 0 if all pictures succeeded, including those that are left as they are; 1 if some failed, or
if the cluster cannot be reached; 2 if the command line is wrong and nothing was done."""


def grid(text: str) -> Tuple[int, ...]:
    return tuple(int(number) for number in text.split("x"))


def size(text: str) -> Optional[float]:
    return None if text == "full" else float(text)


# Options that were not given are missing from what is parsed: their defaults are those of the function.
def parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="python -m ko.dask", description=ABOUT, epilog=STATUS)
    parser.add_argument("paths", nargs="*", metavar="PATH", help="a picture: a local path or a URL")
    add_files(parser.add_argument_group("files"))
    add_cluster(parser.add_argument_group("cluster"))
    add_run(parser.add_argument_group("run"))
    add_enhancement(parser.add_argument_group("enhancement, as in `ko help enhance`"))
    return parser


def add_files(group: Any) -> None:
    group.add_argument(
        "--files-from", metavar="FILE", help="a file that names further pictures, one per line; - is the standard input"
    )
    group.add_argument("-o", "--output", metavar="OUT", help="a folder for the results, a local path or a URL")
    group.add_argument(
        "--suffix", default="", metavar="TEXT", help="put before the extension of each result; without -o, beside the input"
    )
    group.add_argument("--format", choices=list(_layout.FORMATS), help="of all results; otherwise each picture keeps its own")
    group.add_argument(
        "-n", "--no-clobber", action="store_true", help="leave existing results alone, and skip their pictures"
    )
    group.add_argument(
        "--table",
        default="-",
        metavar="FILE",
        help="where to write one JSON object per picture, or CSV if the name ends in .csv (the standard output)",
    )


def add_cluster(group: Any) -> None:
    group.add_argument("--scheduler", metavar="ADDRESS", help="of the cluster's scheduler, such as tls://host:8786")
    group.add_argument("--workers", type=int, metavar="N", help="instead, workers on this machine for the time of the run")
    group.add_argument("--tls-ca-file", metavar="FILE", help="the authority's certificate; with it, all traffic is encrypted")
    group.add_argument("--tls-cert", metavar="FILE", help="this client's certificate")
    group.add_argument("--tls-key", metavar="FILE", help="the key of that certificate")
    group.add_argument("--program", metavar="PATH", help="of ko on the workers; otherwise KO_PROGRAM, beside Python, in PATH")


def add_run(group: Any) -> None:
    group.add_argument("--retries", type=int, metavar="N", help="tries after an error that may pass (2)")
    group.add_argument("--time-limit", type=float, metavar="SECONDS", help="for the program on one picture (600)")
    group.add_argument("--memory-limit", metavar="BYTES", help="address space for the program on one picture (4 GiB)")
    group.add_argument("--in-options", type=json.loads, metavar="JSON", help="arguments of the inputs' file systems")
    group.add_argument("--out-options", type=json.loads, metavar="JSON", help="arguments of the results' file system")


def add_enhancement(group: Any) -> None:
    group.add_argument("--policy", metavar="NAME")
    group.add_argument("--force", action="store_true", default=None)
    group.add_argument("--again", action="store_true", default=None)
    group.add_argument("--grid", type=grid, metavar="COLUMNSxROWS")
    group.add_argument("--working-size", type=size, default=argparse.SUPPRESS, metavar="MEGAPIXELS|full")
    for name in ("levels", "max-slope", "quality"):
        group.add_argument(f"--{name}", type=int, metavar="NUMBER")
    for name in ("score", "max-gain", "strength", "limit", "ratio"):
        group.add_argument(f"--{name}", type=float, metavar="NUMBER")


def names_from(path: str) -> List[str]:
    """The names in a list: one per line, or each ended by a zero byte if there is one."""
    with contextlib.ExitStack() as stack:
        file = sys.stdin.buffer if path == "-" else stack.enter_context(open(path, "rb"))
        text = file.read()
    end = b"\0" if b"\0" in text else b"\n"
    names = [name if end == b"\0" else name.rstrip(b"\r") for name in text.split(end)]
    return [name.decode(sys.getfilesystemencoding(), "surrogateescape") for name in names if name]


@contextlib.contextmanager
def client_of(options: argparse.Namespace) -> Iterator[distributed.Client]:
    if options.scheduler is None:
        with distributed.LocalCluster(n_workers=options.workers, threads_per_worker=1, dashboard_address=None) as cluster:
            with distributed.Client(cluster) as client:
                yield client
        return
    security = None
    if options.tls_ca_file:
        security = distributed.Security(
            tls_ca_file=options.tls_ca_file,
            tls_client_cert=options.tls_cert,
            tls_client_key=options.tls_key,
            require_encryption=True,
        )
    with distributed.Client(options.scheduler, security=security) as client:
        yield client


def run(options: argparse.Namespace) -> Table:
    own = {"paths", "files_from", "output", "table", "scheduler", "workers", "tls_ca_file", "tls_cert", "tls_key"}
    chosen = {
        name: value
        for name, value in vars(options).items()
        if name not in own and (value is not None or name == "working_size")
    }
    paths = list(dict.fromkeys(options.paths + (names_from(options.files_from) if options.files_from else [])))
    if not paths:
        raise ValueError("no input")
    if options.workers is not None:
        _values.whole("--workers", options.workers, 1, 1024)
    with client_of(options) as client:
        return enhance(paths, options.output, client, on_row=Progress(len(paths)), **chosen)


class Progress:
    """A line on a terminal that counts pictures, and a line for each that fails."""

    def __init__(self, pictures: int) -> None:
        self._pictures = pictures
        self._done = 0

    def __call__(self, row: Row) -> None:
        self._done += 1
        bar = sys.stderr.isatty()
        if row.error:
            text = f"ko.dask: {row.path}: {row.error}".encode("utf-8", "backslashreplace").decode("utf-8")
            print(("\r" if bar else "") + without_controls(text), file=sys.stderr)
        if bar:
            end = "\n" if self._done == self._pictures else ""
            print(f"\r{self._done} of {self._pictures}", end=end, file=sys.stderr, flush=True)


def without_controls(text: str) -> str:
    """A name in a text must not command a terminal."""
    return "".join(character if character.isprintable() else repr(character)[1:-1] for character in text)


def write(table: Table, target: str) -> None:
    if target == "-":
        table.write_json(sys.stdout)
        sys.stdout.flush()
        return
    with open(target, "w", encoding="utf-8", errors="backslashreplace", newline="") as file:
        (table.write_csv if target.endswith(".csv") else table.write_json)(file)


def main(words: Optional[List[str]] = None) -> int:
    options = parser().parse_args(words)
    if (options.scheduler is None) == (options.workers is None):
        parser().error("either --scheduler or --workers says what does the work")
    try:
        table = run(options)
        write(table, options.table)
    except (ImportError, TypeError, ValueError) as error:
        print(f"ko.dask: {error}", file=sys.stderr)
        return WRONG_USAGE
    except OSError as error:
        print(f"ko.dask: {error}", file=sys.stderr)
        return SOME_FAILED
    return SOME_FAILED if table.failed else ALL_DONE


if __name__ == "__main__":
    sys.exit(main())
