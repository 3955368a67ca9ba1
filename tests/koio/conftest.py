"""The plug-in as the tests see it: a probe program that loads and saves, started once and asked line by line."""

import json
import os
import selectors
import subprocess
import time
from dataclasses import dataclass

import numpy as np
import pytest

ANSWER_SECONDS = 60

# What an image of the probe holds before a load, plane by plane.
OLD_PLANES = {
    "real": [[[7, 8]]],
    "rgb": [[[70, 71]], [[80, 81]], [[90, 91]]],
    "yiq": [[[70, 71]], [[80, 81]], [[90, 91]]],
    "gray": [[[70, 71]]],
}
SPACES = {"real": None, "rgb": "RGB", "yiq": "YIQ", "gray": "GRAY"}


@dataclass
class Report:
    """What a call left on its thread; the result of the call is its status, unless a test finds otherwise."""

    result: int
    status: int
    chain: str
    messages: list


@dataclass
class Loaded(Report):
    image: str
    space: str
    planes: np.ndarray

    def is_untouched(self):
        return self.space == SPACES[self.image] and np.array_equal(self.planes, OLD_PLANES[self.image])


class Probe:
    """The program, started when it is first needed and again after a crash, which is an assertion's failure."""

    def __init__(self, folder, **popen_arguments):
        self.folder = folder
        self.popen_arguments = popen_arguments
        self.process = None
        self.unread = b""

    def start(self):
        emulator = [os.environ["KO_EMULATOR"]] if os.environ["KO_EMULATOR"] else []
        self.process = subprocess.Popen(
            emulator + [os.environ["KO_PROBE"]],
            cwd=self.folder,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            bufsize=0,
            **self.popen_arguments,
        )
        self.unread = b""

    def stop(self):
        if self.process:
            self.process.kill()
            self.process.communicate()
            self.process = None

    def end(self):
        """Ends the program in good order, and gives its exit status."""
        if not self.process:
            return 0
        self.process.stdin.close()
        status = self.process.wait(ANSWER_SECONDS)
        self.process.stdout.close()
        self.process = None
        return status

    def ask(self, **command):
        if not self.process:
            self.start()
        self.process.stdin.write(json.dumps(command).encode() + b"\n")
        line = self.line(command)
        try:
            return json.loads(line)
        except ValueError:
            raise AssertionError(f"the answer is {line}: {command}")

    def line(self, command):
        deadline = time.monotonic() + ANSWER_SECONDS
        with selectors.DefaultSelector() as selector:
            selector.register(self.process.stdout, selectors.EVENT_READ)
            while b"\n" not in self.unread:
                if not selector.select(max(0, deadline - time.monotonic())):
                    self.stop()
                    raise AssertionError(f"no answer in {ANSWER_SECONDS} s: {command}")
                new = self.process.stdout.read(65536)
                if not new:
                    status = self.process.wait()
                    self.process = None
                    raise AssertionError(f"the program ended with status {status}: {command}")
                self.unread += new
        line, self.unread = self.unread.split(b"\n", 1)
        return line

    # Names of files are relative to the folder, so that one spelling serves on all systems.

    def load(self, image, name, format=None, gamma=None):
        command = {"do": "load", "image": image, "file": str(name), "format": format, "floats": "loaded.floats"}
        if gamma is not None:
            command["gamma"] = [repr(float(exponent)) for exponent in gamma]
        return self.loaded(command, self.ask(**command))

    def loaded(self, command, answer):
        floats = np.fromfile(self.folder / command["floats"], "<f4")
        planes = floats.reshape(answer["depth"], answer["height"], answer["width"])
        report = [answer[key] for key in ("result", "status", "chain", "messages")]
        return Loaded(*report, command["image"], answer["space"], planes)

    def save_command(self, image, planes, name, format=None, scale=1, option=0, floats="saved.floats"):
        planes = np.array(planes, "<f4")
        planes.tofile(self.folder / floats)
        return {
            "do": "save",
            "image": image,
            "file": str(name),
            "format": format,
            "scale": repr(float(scale)),
            "option": repr(float(option)),
            "floats": floats,
            "width": planes.shape[2],
            "height": planes.shape[1],
        }

    def save(self, image, planes, name, **arguments):
        return Report(**self.ask(**self.save_command(image, planes, name, **arguments)))


@pytest.fixture(scope="session")
def probe(tmp_path_factory):
    probe = Probe(tmp_path_factory.mktemp("files"))
    assert probe.ask(do="slots") == 8, "no plug-in"
    yield probe
    assert probe.end() == 0


@pytest.fixture
def folder(probe):
    """An empty folder, which the probe calls "f"."""
    folder = probe.folder / "f"
    folder.mkdir()
    yield folder
    for path in folder.iterdir():
        if path.is_dir():
            path.rmdir()
        else:
            path.unlink()
    folder.rmdir()
