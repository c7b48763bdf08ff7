"""Builds the package by the project's own CMake files: `pip install --no-build-isolation ./python`."""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = pathlib.Path(__file__).resolve().parent
VERSION = re.search(r"project\(Korvane VERSION ([0-9.]+)", (HERE.parent / "CMakeLists.txt").read_text()).group(1)


class CMakeBuild(build_ext):
    """The extension, with the shared libraries and the codec module that it needs beside it."""

    def build_extension(self, ext):
        package = pathlib.Path(self.get_ext_fullpath(ext.name)).resolve().parent
        with tempfile.TemporaryDirectory() as folder:
            build, stage = pathlib.Path(folder, "build"), pathlib.Path(folder, "stage")
            subprocess.run(["cmake", "-S", HERE.parent, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                            "-DKORVANE_BUILD_PYTHON=ON", "-DKORVANE_BUILD_TESTS=OFF", "-DKORVANE_PYTHON_DIR=.",
                            "-DCMAKE_INSTALL_LIBDIR=korvane", f"-DPython_EXECUTABLE={sys.executable}",
                            f"-DCMAKE_INSTALL_PREFIX={stage}"], check=True)
            subprocess.run(["cmake", "--build", build, "--target", "korvane-python", "KorvaneKit", "Korvane", "DcmCodec",
                            "KorvaneDicom", "korvane-host"], check=True)
            subprocess.run(["cmake", "--install", build], check=True)
            package.mkdir(parents=True, exist_ok=True)
            for file in (stage / "korvane").iterdir():
                if file.is_file() and ".so" in file.name:
                    shutil.copy2(file, package, follow_symlinks=True)


setup(
    version=VERSION,
    packages=["korvane"],
    package_data={"korvane": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("korvane._korvane", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
