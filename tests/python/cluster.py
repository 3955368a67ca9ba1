"""A Dask cluster of processes on this machine, encrypted: what takes the place of several machines in the tests."""

import json
import os
import signal
import subprocess
import sys
import time

from distributed import Security

NEW_KEY = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes"
CERTIFICATES = [
    f"openssl req -x509 {NEW_KEY} -days 2 -subj /CN=authority -keyout ca-key.pem -out ca.pem",
    f"openssl req {NEW_KEY} -subj /CN=cluster -keyout key.pem -out request.pem",
    "openssl x509 -req -in request.pem -CA ca.pem -CAkey ca-key.pem -CAcreateserial -days 2 -out cert.pem",
]


def make_certificates(folder):
    folder.mkdir()
    for line in CERTIFICATES:
        subprocess.run(line.split(), cwd=folder, check=True, stderr=subprocess.DEVNULL)
    return folder


def security(certificates):
    return Security(
        tls_ca_file=str(certificates / "ca.pem"),
        tls_client_cert=str(certificates / "cert.pem"),
        tls_client_key=str(certificates / "key.pem"),
        require_encryption=True,
    )


class Cluster:
    """A scheduler and workers, each a process in a group of its own together with what it starts."""

    def __init__(self, folder, certificates, workers, allowed_failures):
        self.folder = folder
        self.scheduler_file = folder / "scheduler.json"
        files = {"--tls-ca-file": "ca.pem", "--tls-cert": "cert.pem", "--tls-key": "key.pem"}
        self._tls = [f"{option}={certificates}/{file}" for option, file in files.items()]
        self._environment = {**os.environ, "DASK_DISTRIBUTED__SCHEDULER__ALLOWED_FAILURES": str(allowed_failures)}
        self.scheduler = self._start("scheduler", "--protocol=tls", "--host=127.0.0.1", "--port=0", "--no-dashboard")
        self.workers = [self._worker(f"w{i}") for i in range(workers)]

    def _worker(self, name):
        options = [f"--name={name}", f"--local-directory={self.folder / name}", "--nthreads=1", "--no-dashboard"]
        return self._start("worker", "--host=127.0.0.1", *options)

    def _start(self, kind, *options):
        command = [sys.executable, "-m", f"distributed.cli.dask_{kind}", f"--scheduler-file={self.scheduler_file}", *options]
        with open(self.folder / "log", "ab") as log:
            return subprocess.Popen(command + self._tls, env=self._environment, stdout=log, stderr=log, start_new_session=True)

    def lose_machine(self):
        """Kills the last worker together with its nanny."""
        self.kill(self.workers[-1])

    def replace_machine(self):
        """Starts a worker on the disk of the lost one."""
        self.workers[-1] = self._worker(f"w{len(self.workers) - 1}")

    def scratch(self):
        """What pictures in progress, or lost ones, have on the disks of the workers."""
        return [str(path) for path in self.folder.glob("w*/*/*/ko-*")]

    def address(self):
        deadline = time.monotonic() + 60
        while not self.scheduler_file.exists():
            assert time.monotonic() < deadline and self.scheduler.poll() is None, (self.folder / "log").read_text()
            time.sleep(0.05)
        return json.loads(self.scheduler_file.read_text())["address"]

    @staticmethod
    def kill(process):
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()

    def close(self):
        for process in [*self.workers, self.scheduler]:
            self.kill(process)
