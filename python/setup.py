# SPDX-License-Identifier: Apache-2.0
"""pip install ./python: builds the package ipg with the project's CMake.

Offline, with Debian's packages (python3-pip, pybind11-dev, python3-numpy and
the build dependencies of scripts/install-deps): no pyproject.toml, so pip
builds with the setuptools already installed. IPG_BUILD_DIR=<folder> builds in
(and reuses) a configured build tree instead of a fresh one.
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = Path(__file__).resolve().parent
SOURCE = Path(os.environ.get("IPG_SOURCE_DIR", HERE.parent)).resolve()


def project_version():
    text = (SOURCE / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"project\(ipg VERSION ([0-9.]+)", text).group(1)


class CMakeBuild(build_ext):
    """Builds the target ipg-python and copies the module, with the libipg it
    loads from its own folder, into the package."""

    def build_extension(self, ext):
        build = os.environ.get("IPG_BUILD_DIR")
        if build is None:
            build = Path(self.build_temp).resolve() / "cmake"
            subprocess.check_call(["cmake", "-S", str(SOURCE), "-B", str(build), "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                                   "-DIPG_BUILD_TESTS=OFF", "-DIPG_BUILD_PYTHON=ON",
                                   f"-DPython_EXECUTABLE={sys.executable}"])
        build = Path(build).resolve()
        subprocess.check_call(["cmake", "--build", str(build), "--target", "ipg-python", "-j", str(os.cpu_count() or 1)])
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        module = next((build / "python" / "ipg").glob("_ipg*.so"), None)
        if module is None:
            sys.exit(f"no ipg._ipg module in {build}: see the CMake messages (pybind11 and numpy are needed)")
        shutil.copyfile(module, target)
        soname = f"libipg.so.{project_version().split('.')[0]}"
        shutil.copyfile(build / soname, target.parent / soname)  # the module's RPATH starts with $ORIGIN


setup(
    name="ipg",
    version=project_version(),
    description="Image-processing operators for 2-D medical images (DICOM model)",
    license="Apache-2.0",
    packages=["ipg"],
    python_requires=">=3.8",
    install_requires=["numpy"],
    ext_modules=[Extension("ipg._ipg", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    zip_safe=False,
)
