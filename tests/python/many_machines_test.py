"""The samples of docs/many-machines.md run as they stand, one after another, in a folder with 300 pictures in `photos`. The
machines of the document are this one."""

import contextlib
import io
import os
import re
import signal
import socket
import subprocess
import sys
import threading
import time
from pathlib import Path

import psutil
import pytest
from pictures import claiming_png, make_pictures

ROOT = Path(os.environ["KO_ROOT"])
DOCUMENT = ROOT / "docs" / "many-machines.md"


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@pytest.fixture
def place(tmp_path, monkeypatch):
    """The folder in which the samples run, with the commands that they name."""
    (tmp_path / "bin").mkdir()
    for name, command in (("ko", os.environ["KO_PROGRAM"]), ("python3", sys.executable), ("dask", f"{sys.executable} -m dask")):
        (tmp_path / "bin" / name).write_text(f'#!/bin/sh\nexec {command} "$@"\n')
        (tmp_path / "bin" / name).chmod(0o755)
    make_pictures(tmp_path / "photos", 300)
    (tmp_path / "photos" / "broken.jpg").write_bytes((ROOT / "samples" / "rocket.jpg").read_bytes()[:5000])
    (tmp_path / "photos" / "claims.png").write_bytes(claiming_png(60000, 60000, False))
    monkeypatch.setenv("PATH", f"{tmp_path}/bin:{os.environ['PATH']}")
    monkeypatch.chdir(tmp_path)
    return tmp_path


class Samples:
    """Runs samples and keeps what they start in the background."""

    def __init__(self):
        self._names = {}
        self._groups = []

    def run(self, language, text):
        return self._python(text) if language == "python" else self._shell(text)

    def _python(self, text):
        with contextlib.redirect_stdout(io.StringIO()) as shown:
            exec(compile(text, str(DOCUMENT), "exec"), self._names)
        return shown.getvalue()

    def _shell(self, text):
        with open("shown", "w+") as shown, open("log", "a") as log:
            shell = subprocess.Popen(["bash", "-e", "-c", text], stdout=shown, stderr=log, start_new_session=True)
            self._groups.append(shell.pid)
            assert shell.wait() == 0, Path("log").read_text()
            shown.seek(0)
            return shown.read()

    def close(self):
        if "client" in self._names:
            self._names["client"].close()
        for group in self._groups:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(group, signal.SIGKILL)


def lose_the_attic():
    """Kills a worker and its nanny when a third of the results exist."""
    deadline = time.monotonic() + 120
    while len(list(Path("better").glob("*"))) < 100 and time.monotonic() < deadline:
        time.sleep(0.01)
    for process in psutil.process_iter(["cmdline"]):
        if str(Path.cwd()) == cwd_of(process) and "attic" in process.info["cmdline"]:
            for one in [process, *process.children(recursive=True)]:
                one.kill()
            Path("lost").touch()


def cwd_of(process):
    try:
        return process.cwd()
    except psutil.Error:
        return None


def test_the_samples(place):
    text = DOCUMENT.read_text(encoding="utf-8").replace("8786", str(free_port())).replace("desk", "127.0.0.1")
    blocks = re.findall(r"^```(sh|python|text)\n(.*?)^```", text, re.MULTILINE | re.DOTALL)
    assert len(blocks) >= 8
    loss = threading.Thread(target=lose_the_attic)
    samples = Samples()
    try:
        loss.start()
        for (language, sample), (following, wanted) in zip(blocks, [*blocks[1:], ("", "")]):
            if language != "text":
                assert samples.run(language, sample) == (wanted if following == "text" else ""), sample
    finally:
        loss.join()
        samples.close()
    assert Path("lost").exists()
    subprocess.run(["ko", "enhance", "--quiet", "photos", "-o", "single"], stderr=subprocess.DEVNULL)
    assert subprocess.run(["diff", "-r", "single", "better"]).returncode == 0
