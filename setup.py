"""Builds the wheel: the project's CMake builds its extension module. "pip wheel ." calls this; see docs/python.md.

MD_PYTHON_BUILD_DIR names a configured CMake build folder to take the module from. Without it, build-wheel/cmake is configured.
"""
import os
import pathlib
import re
import shutil
import subprocess

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext
from wheel.bdist_wheel import bdist_wheel

SOURCE = pathlib.Path(__file__).resolve().parent
VERSION = re.search(r"^project\(md_message VERSION ([0-9.]+)", (SOURCE / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
CONFIGURED = os.environ.get("MD_PYTHON_BUILD_DIR")
# Of setuptools, whose default is the project's own build folder.
WORK = pathlib.Path(CONFIGURED) / "python" / "setuptools" if CONFIGURED else SOURCE / "build-wheel"


class BuildByCMake(build_ext):
    """Gets the module from CMake instead of compiling its sources."""

    def build_extension(self, ext):
        build = pathlib.Path(CONFIGURED) if CONFIGURED else WORK / "cmake"
        if not CONFIGURED:
            parts = ("TESTS", "EXAMPLES", "FUZZ", "STATIC")
            subprocess.run(["cmake", "-S", SOURCE, "-B", build, "-DCMAKE_BUILD_TYPE=Release", "-DMD_WITH_NATS=OFF",
                            *(f"-DMD_BUILD_{part}=OFF" for part in parts)], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "md_message_python_wheel",
                        "--parallel", str(os.cpu_count())], check=True)
        module = pathlib.Path(self.get_ext_fullpath(ext.name))
        module.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(build / "python" / "wheel" / "md_message" / "_md_message.abi3.so", module)


class Abi3Wheel(bdist_wheel):
    """One wheel for Python 3.11 and all later ones."""

    def get_tag(self):
        return "cp311", "abi3", super().get_tag()[2]


WORK.mkdir(parents=True, exist_ok=True)
setup(
    version=VERSION,
    ext_modules=[Extension("md_message._md_message", sources=[], py_limited_api=True)],
    cmdclass={"build_ext": BuildByCMake, "bdist_wheel": Abi3Wheel},
    options={"build": {"build_base": str(WORK)}, "egg_info": {"egg_base": str(WORK)}},
)
