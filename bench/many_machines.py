#!/usr/bin/env python3
"""How the work on many machines grows: pictures per second of ko.dask with one and two workers on this machine, beside the
program alone and under GNU parallel, and what a task costs the scheduler and the client; from these, what ten and a hundred
workers can do.

    many_machines.py KO FOLDER [PICTURES]

KO is the program, FOLDER a place for the photographs and the results. The photographs are PICTURES JPEG files of 24
megapixels, 16 without a number, made from samples/rocket.jpg, each with other grain; they are kept for the next run. The
package must be importable, as with PYTHONPATH=BUILD/python. Each way of working keeps the best of five rounds.
"""
import os
import pathlib
import resource
import shutil
import subprocess
import sys
import tempfile
import time

from distributed import Client
from PIL import Image

import ko.dask
from photographs import SAMPLE, SIZES, photograph

ROUNDS = 5
SMALL = 1000  # pictures of 64 x 64 for what a task costs
TICKS = os.sysconf("SC_CLK_TCK")


def make_photographs(folder, count):
    folder.mkdir(parents=True, exist_ok=True)
    paths = [folder / f"photograph-24-{i:02}.jpg" for i in range(count)]
    for i, path in enumerate(paths):
        if not path.exists():
            photograph(path, *SIZES[24], seed=i)
    return paths


def make_small(folder):
    folder.mkdir(exist_ok=True)
    picture = Image.open(SAMPLE).resize((64, 64))
    paths = [folder / f"{i:04}.jpg" for i in range(SMALL)]
    for path in paths:
        picture.save(path)
    return paths


def seconds_of_process(pid):
    """The CPU time that a process has used."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


class Cluster:
    """A scheduler and workers of one thread each, as processes of their own."""

    def __init__(self, workers, program, folder):
        environment = {**os.environ, "KO_PROGRAM": str(program)}
        file = folder / "scheduler.json"
        file.unlink(missing_ok=True)

        def start(kind, *options):
            command = [sys.executable, "-m", f"distributed.cli.dask_{kind}", f"--scheduler-file={file}", *options]
            return subprocess.Popen([*command, "--no-dashboard"], env=environment, stderr=subprocess.DEVNULL)

        self.scheduler = start("scheduler", "--host=127.0.0.1", "--port=0")
        options = ["--nthreads=1", f"--local-directory={folder}"]
        self._processes = [start("worker", *options) for _ in range(workers)] + [self.scheduler]
        while not file.exists():
            time.sleep(0.05)
        self.client = Client(scheduler_file=str(file))
        self.client.wait_for_workers(workers)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.client.close()
        for process in self._processes:
            process.terminate()
            process.wait()


class Runs:
    """The ways to process the photographs. Each keeps its best round: the machine may have other work."""

    def __init__(self, program, folder, photographs):
        self.program, self.folder, self.photographs = program, folder, photographs
        self.list = folder / "list"
        self.list.write_text("".join(f"{path}\n" for path in photographs))
        self.rates = {}

    def round(self):
        for jobs in (1, 2):
            self.measure(f"ko enhance --jobs {jobs}", self.command("enhance", "--jobs", str(jobs), "--files-from", self.list))
            if shutil.which("parallel"):
                self.measure(f"GNU parallel -j {jobs}", self.command("enhance", "{}", jobs=jobs))
        for workers in (1, 2):
            with Cluster(workers, self.program, self.folder) as cluster:
                self.measure(f"ko.dask, {workers} workers", lambda out: ko.dask.enhance(self.photographs, out, cluster.client))

    def command(self, *words, jobs=None):
        parallel = ["parallel", "--will-cite", "-j", str(jobs), "-a", self.list] if jobs else []
        return lambda out: subprocess.run([*parallel, self.program, *words, "--quiet", "-o", f"{out}/"], check=True)

    def measure(self, name, run):
        with tempfile.TemporaryDirectory(dir=self.folder) as out:
            started = time.monotonic()
            run(out)
            rate = len(self.photographs) / (time.monotonic() - started)
            if len(os.listdir(out)) != len(self.photographs):
                raise RuntimeError(f"{name}: not all pictures were written")
        self.rates[name] = max(rate, self.rates.get(name, 0.0))


def cost_of_a_task(program, folder):
    """CPU seconds of the scheduler and of the client for one picture."""
    small = make_small(folder / "small")
    with Cluster(2, program, folder) as cluster, tempfile.TemporaryDirectory(dir=folder) as out:
        ko.dask.enhance(small[:20], out, cluster.client)
        scheduler, client = seconds_of_process(cluster.scheduler.pid), time.process_time()
        assert not ko.dask.enhance(small, out, cluster.client).failed
        return (seconds_of_process(cluster.scheduler.pid) - scheduler) / SMALL, (time.process_time() - client) / SMALL


def cost_of_a_picture(program, folder, photograph):
    """CPU seconds of the program, and MB read and written."""
    result = folder / "one.jpg"
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run([program, "enhance", "--quiet", photograph, "-o", result], check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    moved = photograph.stat().st_size + result.stat().st_size
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime, moved / 1e6


def report_growth(rate, limit, moved):
    """Each worker adds what one does, until the scheduler or the client has no time left."""
    for workers in (10, 100):
        pictures = min(workers * rate, limit)
        print(f"{workers} workers: {pictures:.1f} pictures/s, {pictures * moved:.0f} MB/s of storage, worked out")
    print(f"limit: {limit:.0f} pictures/s, {limit / rate:.0f} workers")


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    program = pathlib.Path(sys.argv[1]).resolve()
    folder = pathlib.Path(sys.argv[2]).resolve()
    photographs = make_photographs(folder, int(sys.argv[3]) if len(sys.argv) == 4 else 16)
    for path in photographs:
        path.read_bytes()  # into the system's cache: what is measured is the work, not the disk
    runs = Runs(program, folder, photographs)
    for _ in range(ROUNDS):
        runs.round()
    for name, rate in runs.rates.items():
        print(f"{name:<24} {rate:>6.2f} pictures/s")
    seconds, moved = cost_of_a_picture(program, folder, photographs[0])
    print(f"one picture: {seconds:.2f} s of a processor, {moved:.1f} MB read and written")
    scheduler, client = cost_of_a_task(program, folder)
    print(f"one task: {scheduler * 1000:.2f} ms of the scheduler, {client * 1000:.2f} ms of the client")
    report_growth(runs.rates["ko.dask, 1 workers"], 1 / max(scheduler, client), moved)


if __name__ == "__main__":
    main()
