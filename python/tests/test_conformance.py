"""Another implementation is compared case by case, and told apart by its first wrong sample."""

import doctest
import json
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import korva_reference as korva
from korva_reference import conformance


def test_a_report_shows_the_first_difference_and_how_to_see_it_alone():
    def wrong_at_a_wide_end(image):
        result = korva.median_filter_3x3(image)
        if image.shape[-1] > 2048:
            result[..., -1] += 1
        return result

    report = conformance.check("median_filter_3x3", wrong_at_a_wide_end, cases=40)
    assert not report and list(report.differences) == [15, 31]
    arguments, expected = conformance.case("median_filter_3x3", 15)
    last = expected.shape[-1] - 1
    first, found, sizes, rerun = str(report).splitlines()
    assert first == "median_filter_3x3: 2 of 40 cases differ; the first is case 15"
    assert f"row 0, column {last}: got 0x" in found and f" of {expected.size} samples differ" in found
    assert sizes.strip() == f"image {arguments['image'].dtype} of shape {arguments['image'].shape}"
    assert rerun.strip() == 'rerun: korva_reference.conformance.check("median_filter_3x3", function, cases=[15])'


def test_bits_count_unless_a_tolerance_is_given():
    def in_double(a, b, weight):
        return (a * np.float32(weight) + b * np.float32(1 - weight)).astype(np.float32)

    assert not conformance.check("mix", in_double)
    small = [n for n in range(100) if all(abs(conformance.case("mix", n)[0][k]).max() < 1e5 for k in "ab")]
    assert len(small) > 20 and conformance.check("mix", in_double, cases=small, tolerance=0.1)
    report = conformance.check("add", lambda a, b: (a + b).astype(np.float64), cases=1)
    assert "got float64 of shape" in str(report) and "expected float32" in str(report)
    assert "ZeroDivisionError" in str(conformance.check("add", lambda a, b: 1 / 0, cases=1))
    with pytest.raises(ValueError, match="routine: expected one of crop_image, .*, found 'blur'"):
        conformance.check("blur", abs)


def test_exported_cases_are_those_that_are_checked():
    command = [sys.executable, "-m", "korva_reference.conformance", "--export", "out", "--cases", "3", "reflectance",
               "apply_demosaicing_bilinear"]
    subprocess.run(command, check=True)
    index = json.load(open("out/index.json"))
    assert index["release"] == korva.__version__ and len(index["cases"]) == 6
    for entry in index["cases"]:
        arguments, expected = conformance.case(entry["routine"], entry["case"])
        for value, told in [*((arguments[name], told) for name, told in entry["arguments"].items()),
                            (expected, entry["expected"])]:
            if isinstance(value, np.ndarray):
                read = korva.read_raw_data("out/" + told["file"], tuple(told["shape"]), told["dtype"])
                assert conformance.difference(read, value) == ""
            else:
                assert float(told) == value
    assert subprocess.run([*command, "blur"], capture_output=True).returncode == 2


PAGE = Path(__file__).parents[2] / "docs/conformance.md"


@pytest.mark.skipif(not PAGE.exists(), reason="runs in the source tree")
def test_the_documented_lines_print_what_they_say():
    tried = doctest.testfile(str(PAGE), module_relative=False)
    assert tried.attempted >= 7 and tried.failed == 0
