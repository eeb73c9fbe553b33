"""What a user's script sees of the types, under mypy --strict."""

import subprocess
import sys
from pathlib import Path

import pytest

import korva_reference as korva

SCRIPT = """
import numpy as np
from numpy.typing import NDArray
import korva_reference as korva

counts: NDArray[np.uint16] = korva.read_raw_data("frame.raw", (4, 4), np.uint16)
filtered: NDArray[np.uint16] = korva.median_filter_3x3(counts)
image: NDArray[np.float32] = korva.correct_bias(counts.astype(np.float32), np.ones((4, 4), np.float32))
middle: np.uint16 = korva.median_1d(counts[0])
spectra: NDArray[np.uint16] = korva.SnapshotRoad(counts, mosaic=(2, 2)).spectra(counts)
red = korva.rgbx_compute_band(image, "R")
report: bool = bool(korva.conformance.check("add", korva.add))
"""
WRONG = """
korva.rgbx_compute_band(image, "Y")
wrong: NDArray[np.float32] = korva.median_filter_5x5(counts)
korva.correct_bias(counts, image)
korva.add(counts, counts)
korva.demosaic_cube(counts, 2, 2, 0.5, 0.5)
"""


@pytest.mark.deep
def test_a_script_is_checked_by_its_sample_types(monkeypatch):
    monkeypatch.setenv("MYPYPATH", str(Path(korva.__file__).parents[1]))
    Path("script.py").write_text(SCRIPT)
    Path("wrong.py").write_text(SCRIPT + WRONG)
    command = [sys.executable, "-m", "mypy", "--strict", "--cache-dir=cache"]
    for checked in ("script.py", "--package=korva_reference"):
        subprocess.run([*command, checked], check=True)
    told = subprocess.run([*command, "wrong.py"], capture_output=True, text=True).stdout
    first = SCRIPT.count("\n") + 2
    assert {int(line.split(":")[1]) for line in told.splitlines() if ": error:" in line} == set(range(first, first + 5))
