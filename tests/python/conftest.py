"""What the tests of the Python package share: pictures, the program, and the library through ctypes."""

import ctypes
import os
import subprocess
from pathlib import Path

import numpy as np
import pytest
from PIL import Image

ROOT = Path(os.environ["KO_ROOT"])


def sample(name):
    with Image.open(ROOT / "samples" / name) as image:
        return np.array(image.convert("RGB"))


@pytest.fixture(scope="session")
def rocket():
    """A picture that is enhanced."""
    return sample("rocket.jpg")


@pytest.fixture(scope="session")
def coffee():
    return sample("coffee.png")


@pytest.fixture(scope="session")
def face():
    """A picture with two red eyes."""
    return sample("face.jpg")


@pytest.fixture
def program(tmp_path):
    """Runs the program on an array, as a PNG file in and out."""

    class Program:
        def run(self, *arguments):
            return subprocess.run([os.environ["KO_PROGRAM"], *map(str, arguments)], check=True, capture_output=True).stdout

        def file_of(self, picture):
            path = tmp_path / "in.png"
            Image.fromarray(picture).save(path)
            return path

        def picture(self, command, picture, *options):
            result = tmp_path / "out.png"
            arguments = command if isinstance(command, list) else [command]
            self.run(*arguments, self.file_of(picture), "-o", result, "--again", *options)
            with Image.open(result) as image:
                return np.array(image)

    return Program()


class RealImage(ctypes.Structure):
    _fields_ = [
        ("width", ctypes.c_uint64),
        ("height", ctypes.c_uint64),
        ("padding", ctypes.c_uint64),
        ("buffer", ctypes.POINTER(ctypes.c_float)),
        ("rows", ctypes.POINTER(ctypes.POINTER(ctypes.c_float))),
    ]


class TRC(ctypes.Structure):
    _fields_ = [("size", ctypes.c_uint64), ("array", ctypes.POINTER(ctypes.c_uint32))]


class TileTRC(ctypes.Structure):
    _fields_ = [
        ("size", ctypes.c_uint64),
        ("columns", ctypes.c_uint64),
        ("rows", ctypes.c_uint64),
        ("array", ctypes.POINTER(ctypes.c_uint32)),
    ]


class Library:
    """The library itself: every function takes and gives what its header says."""

    def __init__(self, path):
        self.dll = ctypes.CDLL(path)
        self.dll.KoInit(None, None)

    def call(self, name, *arguments, result=ctypes.c_int32):
        function = getattr(self.dll, name)
        function.restype = result
        return function(*arguments)

    def image(self, plane):
        values = np.ascontiguousarray(plane, dtype=np.float32)
        height, width = values.shape
        image = self.call(
            "KoRealImageNewFromFloatArray",
            ctypes.c_uint64(width),
            ctypes.c_uint64(height),
            values.ctypes.data_as(ctypes.c_void_p),
            result=ctypes.POINTER(RealImage),
        )
        assert image
        return image

    def array(self, image):
        record = image.contents
        return np.array([record.rows[y][: record.width] for y in range(record.height)], dtype=np.float32)

    def made(self, name, *arguments):
        """The plane that a function with a result address as its last argument makes."""
        result = ctypes.POINTER(RealImage)()
        assert self.call(name, *arguments, ctypes.byref(result)) == 0
        return self.array(result)


@pytest.fixture(scope="session")
def library():
    return Library(os.environ["KO_LIBRARY"])


@pytest.fixture(scope="session")
def plane():
    """Levels with fractions, and some out of the range of bytes."""
    return np.random.default_rng(7).normal(128, 60, (83, 121)).astype(np.float32)
