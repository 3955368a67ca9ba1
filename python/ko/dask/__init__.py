"""ko.dask enhances pictures on many machines, as tasks of a Dask cluster.

    from distributed import Client
    import ko.dask

    with Client("tcp://scheduler:8786") as client:
        table = ko.dask.enhance(paths, "s3://bucket/better", client)
    for row in table.failed:
        print(row.path, row.error)

`python -m ko.dask` is the same as a command. Every machine needs this package and the program `ko` of the same version; a
worker runs the program on one picture at a time, so that results are those of `ko enhance` byte for byte.
"""

try:
    import distributed as _distributed
    import fsspec as _fsspec
except ImportError as _error:
    raise ImportError(
        f"ko.dask needs the packages distributed and fsspec, and {_error.name} is missing; the extra ko[dask] installs both"
    ) from _error

from ._run import enhance
from ._table import Row, Table

__all__ = ["Row", "Table", "enhance"]
