"""Builds the wheel: the modules, and beside them the library as the project's CMake makes it."""

import shutil
from pathlib import Path

from setuptools import find_packages
from skbuild import setup
from skbuild.command.bdist_wheel import bdist_wheel
from skbuild.command.sdist import sdist
from skbuild.constants import CMAKE_INSTALL_DIR


class PlatformWheel(bdist_wheel):
    """The library is loaded at run time, so one wheel serves every Python of a platform."""

    def get_tag(self):
        return ("py3", "none", super().get_tag()[2])


class SourceWithLibrary(sdist):
    """Takes along the library's sources, which lie in the folder above."""

    def make_release_tree(self, base_dir, files):
        super().make_release_tree(base_dir, files)
        root = Path("library") if Path("library").exists() else Path("..")
        for folder in ("cmake", "include", "src"):
            shutil.copytree(root / folder, Path(base_dir, "library", folder))
        shutil.copy(root / "CMakeLists.txt", Path(base_dir, "library"))


# Modules of an earlier build would go into the wheel.
shutil.rmtree(CMAKE_INSTALL_DIR(), ignore_errors=True)
setup(
    packages=find_packages(include=["korva_reference*"]),
    package_data={"korva_reference": ["py.typed"]},
    cmake_languages=["CXX"],
    cmdclass={"bdist_wheel": PlatformWheel, "sdist": SourceWithLibrary},
)
