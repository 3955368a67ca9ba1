"""The wheel: built by pip, installed into an empty folder, and used from there by a fresh interpreter."""

import os
import shutil
import subprocess
import sys
import zipfile
from pathlib import Path

import pytest

ROOT = Path(os.environ["KO_ROOT"])

PIP = [sys.executable, "-m", "pip", "--disable-pip-version-check", "--no-cache-dir"]

ENHANCE = """
import sys
import numpy as np
from PIL import Image
import ko
import ko._ko
with Image.open(sys.argv[1]) as image:
    picture = np.array(image.convert("RGB"))
result, enhancement = ko.enhance(picture)
eyes = ko.redeye(picture)[1]
maps = {line.split()[-1] for line in open("/proc/self/maps") if "libko" in line}
print(ko.__file__, ko.__version__, enhancement.decision, eyes.decision, (result != picture).any(), *maps, sep="\\n")
"""


def pip(*arguments):
    result = subprocess.run([*PIP, *map(str, arguments)], capture_output=True, text=True)
    return result.returncode, result.stdout + result.stderr


@pytest.fixture(scope="module")
def wheel(tmp_path_factory):
    folder = tmp_path_factory.mktemp("wheel")
    status, output = pip("wheel", "--no-deps", "--no-build-isolation", "--wheel-dir", folder, ROOT / "python")
    assert status == 0, output
    (file,) = folder.iterdir()
    return file


def test_what_it_holds(wheel):
    assert wheel.name.startswith(f"ko-{os.environ['KO_VERSION']}-cp3")
    names = set(zipfile.ZipFile(wheel).namelist())
    expected = {"ko/__init__.py", "ko/py.typed", "ko/_ko.pyi", "ko/libko.so.0", "ko/dask/__init__.py", "ko/dask/__main__.py"}
    expected |= {f"ko/redeye/{file.name}" for file in (ROOT / "models" / "redeye").iterdir()}
    if os.environ["KO_AVX2_FOLDER"]:
        expected.add(f"ko/{os.environ['KO_AVX2_FOLDER']}/libko.so.0")
    assert expected <= names
    metadata = zipfile.ZipFile(wheel).read(f"ko-{os.environ['KO_VERSION']}.dist-info/METADATA").decode()
    assert "Provides-Extra: dask\n" in metadata
    assert {name.split("/")[0] for name in names} == {"ko", f"ko-{os.environ['KO_VERSION']}.dist-info"}


def test_it_works_from_an_empty_folder(wheel, tmp_path):
    status, output = pip("install", "--no-deps", "--no-index", "--break-system-packages", "--target", tmp_path / "there", wheel)
    assert status == 0, output
    environment = {key: value for key, value in os.environ.items() if key != "LD_LIBRARY_PATH"}
    for tunables, plain in (("glibc.cpu.hwcaps=-AVX2", True), ("", False)):
        result = subprocess.run(
            [sys.executable, "-c", ENHANCE, ROOT / "samples" / "rocket.jpg"],
            capture_output=True,
            text=True,
            cwd=tmp_path,
            env={**environment, "PYTHONPATH": str(tmp_path / "there"), "GLIBC_TUNABLES": tunables},
        )
        assert result.returncode == 0, result.stderr
        file, version, decision, eyes, changed, *libraries = result.stdout.split("\n")[:-1]
        assert Path(file) == tmp_path / "there" / "ko" / "__init__.py"
        assert (version, decision, eyes, changed) == (os.environ["KO_VERSION"], "enhanced", "none", "True")
        (library,) = libraries
        assert library.startswith(str(tmp_path / "there"))
        assert not plain or "hwcaps" not in library


def test_without_the_sources_it_says_so(tmp_path):
    shutil.copytree(ROOT / "python", tmp_path / "python", ignore=shutil.ignore_patterns("build", "*.egg-info"))
    status, output = pip("wheel", "--no-deps", "--no-build-isolation", "--wheel-dir", tmp_path, tmp_path / "python")
    assert status != 0
    assert "does not hold the sources of ko" in output
