"""Builds the wheel: CMake builds the project that this folder is part of, and installs its component ko_python."""

import os
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext
from setuptools.command.build_py import build_py

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent


def project_version() -> str:
    """The version of the project, which the library's header states."""
    header = ROOT / "src" / "lib" / "ko" / "include" / "ko" / "version.h"
    if not header.is_file():
        raise SystemExit(f"{ROOT} does not hold the sources of ko; build it in a checkout: pip install CHECKOUT/python")
    numbers = re.findall(r"#define KO_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header.read_text(encoding="utf-8"))
    return ".".join(numbers)


def run(*command: str) -> None:
    try:
        subprocess.run(command, check=True)
    except subprocess.CalledProcessError as error:
        raise SystemExit(f"{' '.join(command[:2])} failed; its messages are above") from error


class BuildPackage(build_ext):
    """The whole package, Python modules included, comes from CMake."""

    def build_extension(self, ext: Extension) -> None:
        if shutil.which("cmake") is None:
            raise SystemExit("CMake 3.25 or newer is needed to build ko, and there is none in PATH")
        build = Path(self.build_temp).resolve()
        target = Path(self.get_ext_fullpath(ext.name)).resolve().parent.parent
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        options = ["-DCMAKE_BUILD_TYPE=Release", "-DKO_PYTHON=ON", "-DKO_HOST=OFF", "-DKO_TESTS=OFF"]
        options += [f"-DPython3_EXECUTABLE={sys.executable}", *shlex.split(os.environ.get("CMAKE_ARGS", ""))]
        jobs = str(self.parallel or os.cpu_count() or 1)
        run("cmake", "-S", str(ROOT), "-B", str(build), *generator, *options)
        run("cmake", "--build", str(build), "--target", "ko_python", "--parallel", jobs)
        run("cmake", "--install", str(build), "--component", "ko_python", "--prefix", str(target))


class BuildNothing(build_py):
    def run(self) -> None:
        pass


setup(
    name="ko",
    version=project_version(),
    description="Improves photographs: opens shadows, and finds and repairs red eyes",
    python_requires=">=3.9",
    install_requires=["numpy"],
    extras_require={"dask": ["distributed>=2022.12", "fsspec"]},
    packages=["ko", "ko.dask"],
    ext_modules=[Extension("ko._ko", sources=[])],
    cmdclass={"build_ext": BuildPackage, "build_py": BuildNothing},
    zip_safe=False,
)
