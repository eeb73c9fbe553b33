"""Whole roads give the results of the example hosts to the last bit, and flag what they say."""

import os
import subprocess
from pathlib import Path

import numpy as np
import pytest

import korva_reference as korva
from korva_reference import envi

HOSTS = Path(os.environ.get("KORVA_REFERENCE_LIBRARY", "/nowhere")).parent / "examples"
needs_hosts = pytest.mark.skipif(not (HOSTS / "rgbx").exists(), reason="the example hosts are not built beside the library")
REFERENCES = dict(exposure=1.5, white_exposure=0.7, white_reflectance=0.9, full_scale=5000)
OPTIONS = [f"--{name.replace('_', '-')}={value}" for name, value in REFERENCES.items()]


def counts(name, *shape, high=3000, low=0):
    values = np.random.default_rng(len(name)).integers(low, high, shape, dtype=np.uint16)
    korva.write_raw_data(name, values)
    return values


def host(name, *options):
    subprocess.run([HOSTS / name, *map(str, options), "--output", name], check=True, stdout=subprocess.DEVNULL)


@needs_hosts
@pytest.mark.parametrize("geometry, options", [
    (dict(mosaic=(3, 5)), ["--mosaic", 5, 3]), (dict(tile=(8, 10)), ["--tile", 10, 8]),
    (dict(mosaic=(4, 4), crop=(4, 8, 18, 23)), ["--mosaic", 4, 4, "--crop", 8, 4, 23, 18]),
])
def test_snapshot_road_is_the_hosts(geometry, options):
    frame, white, bias = counts("f", 24, 40), counts("wh", 24, 40, low=1), counts("bia", 24, 40, high=9)
    white[8:16, 12:24] = 0
    korva.write_raw_data("wh", white)
    bands = len(korva.snapshot_bands(frame, **geometry))
    matrix = np.random.default_rng(1).random((4, bands)) - 0.3
    np.savetxt("matrix", matrix, fmt="%.17g")
    host("snapshot_mosaic", "--frame", "f", "--white", "wh", "--bias", "bia", "--matrix", "matrix", "--width", 40,
         "--height", 24, *options, *OPTIONS)
    road = korva.SnapshotRoad(white, bias=bias, matrix=matrix, **geometry, **REFERENCES)
    expected, header = envi.read("snapshot_mosaic/corrected.raw")
    assert np.array_equal(road.spectra(frame), expected) and (expected == korva.FLAGGED).any()
    assert header.others["data ignore value"] == "65535" and len(expected) == 4


@needs_hosts
def test_line_scan_road_is_the_hosts():
    frames, white, bias = counts("fr", 90, 21, 12), counts("wh", 21, 12, low=1), counts("bia", 21, 12, high=9)
    host("line_scan", "--frames", "fr", "--white", "wh", "--bias", "bia", "--width", 12, "--height", 21,
         "--strip-height", 3, "--first-band", 2, "--last-band", 6, *OPTIONS)
    done = []
    spectra = korva.line_scan_spectra(
        korva.open_frames("fr", (21, 12)), white, bias=bias, strip_height=3, first_band=2, last_band=6, **REFERENCES,
        progress=lambda *step: done.append(step))
    assert np.array_equal(spectra, envi.read("line_scan/corrected.raw")[0])
    assert done == [(k + 1, 90) for k in range(90)]


@needs_hosts
def test_rgbx_road_is_the_hosts():
    frame, dark, flat = counts("f", 22, 24), counts("dar", 22, 24, high=90), counts("flat", 22, 24)
    host("rgbx", "--frame", "f", "--dark", "dar", "--flat", "flat", "--width", 24, "--height", 22, "--weight", 0.25)
    road = korva.RGBXRoad(dark=dark, flat=flat)
    rgb, x, new_wli = road.pictures(frame, weight=0.25)
    bands = envi.read("rgbx/bands.raw")[0]
    assert np.array_equal(road.cleaned(frame), envi.read("rgbx/cleaned_frame.raw")[0][0])
    assert np.array_equal(rgb, bands[:3]) and np.array_equal(x, bands[3])
    assert np.array_equal(new_wli, envi.read("rgbx/wli_weight_0.25.raw")[0])


def test_what_a_saturated_sample_takes_part_in_is_flagged():
    frame, white = np.full((12, 12), 100, np.uint16), np.full((12, 12), 200, np.uint16)
    frame[5, 6] = 4095  # Band 6 of 4 x 4, whose images are resampled from 2 x 2 neighbours.
    cube = korva.snapshot_reflectance(frame, white, mosaic=(4, 4), saturation=4095)
    assert np.argwhere(cube == korva.FLAGGED).tolist() == [[6, row, column] for row in (0, 1) for column in (1, 2)]
    assert (cube == 5000).sum() == 16 * 9 - 4
    spectra = korva.snapshot_spectra(frame, white, mosaic=(4, 4), saturation=4095)
    assert np.array_equal((spectra == korva.FLAGGED).all(axis=0), cube[6] == korva.FLAGGED)
    scene = korva.line_scan_reflectance([frame] * 3, white, strip_height=2, first_band=2, last_band=3, saturation=4095)
    assert np.argwhere(scene == korva.FLAGGED).tolist() == [[0, 1, 6], [0, 3, 6]]


def test_frames_of_one_file_with_headers_are_read_one_by_one():
    block = np.arange(40, dtype=np.uint16).reshape(4, 10)  # Frames of 6 behind 3, and 1 after each.
    korva.write_raw_data("scan", block)
    frames = korva.open_frames("scan", (2, 3), offset=6, stride=20)
    assert len(frames) == 4 and [frame.tolist() for frame in frames] == block[:, 3:9].reshape(4, 2, 3).tolist()
    assert frames[-1][0, 0] == 33 and len(frames[1:3]) == 2
    assert korva.read_raw_data("scan", 37, "u2", offset=6)[0] == 3
    for options, words in ((dict(), "12 apart"), (dict(stride=10), "expected a whole number from 12"),
                           (dict(offset=70), "from byte 70"), (dict(offset=6, stride=22), "whole frames of 12 bytes")):
        with pytest.raises(ValueError, match=words):
            korva.open_frames("scan", (2, 3), **options)
    os.truncate("scan", 50)
    with pytest.raises(ValueError, match="expected 12 bytes from byte 46 on, found 4 bytes"):
        frames[2]


@pytest.mark.parametrize("call, words", [
    (lambda f: korva.snapshot_bands(f), "mosaic, tile: expected one of the two, found none"),
    (lambda f: korva.snapshot_bands(f, mosaic=4), r"mosaic: expected a pair \(rows, columns\), found 4"),
    (lambda f: korva.snapshot_bands(f, mosaic=(2, 2), crop=(1, 0, 4, 4)), "crop: expected .* from a corner of 2 x 2"),
    (lambda f: korva.snapshot_bands(f, tile=(20, 2)), "frame: expected at least 20 rows"),
    (lambda f: korva.SnapshotRoad(f, mosaic=(2, 2), matrix=np.ones((1, 3))), "matrix: expected 4 weights"),
    (lambda f: korva.SnapshotRoad(f, mosaic=(2, 2), matrix=np.ones((1, 4)) * 2), "output bands below 65535"),
    (lambda f: korva.SnapshotRoad(f, mosaic=(2, 2), exposure=0), "exposure: expected a number above 0, found 0"),
    (lambda f: korva.snapshot_reflectance(f[:4], f, mosaic=(2, 2)), r"frame: expected shape \(12, 12\)"),
    (lambda f: korva.line_scan_scene([f], strip_height=2, first_band=0, last_band=1), "at least 2 frames, one for"),
])
def test_limits(call, words):
    with pytest.raises((TypeError, ValueError), match=words):
        call(np.ones((12, 12), np.uint16))
