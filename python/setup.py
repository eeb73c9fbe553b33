"""Gives the package the library's version, which is written once, in the C header."""

import re
from pathlib import Path

from setuptools import setup

header = (Path(__file__).parent / "../include/korva_reference_api.h").read_text()
setup(version=".".join(re.findall(r"KORVA_REFERENCE_API_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header)))
