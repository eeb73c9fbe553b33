"""Every function calls its routine, and gives the same bits wherever and however its arrays lie."""

import threading
import time

import numpy as np
import pytest
from cases import CASES, GuardedPages, LAYOUTS, WITHOUT_OUT, assert_same, make

import korva_reference as korva

PAGES = [GuardedPages() for _ in range(4)]


@pytest.mark.parametrize("name", CASES)
def test_result_is_that_of_plain_arrays_in_every_layout_of_the_inputs(name):
    for seed in range(60):
        function, arguments, expected = make(name, seed)
        rng = np.random.default_rng(seed)
        arrays = [key for key, value in arguments.items() if isinstance(value, np.ndarray) and key != "slices"]
        for key, pages in zip(arrays, PAGES):
            arguments[key] = pages.place(arguments[key], rng, LAYOUTS[rng.integers(len(LAYOUTS))])
        assert_same(function(**arguments), expected, f"{name}, case {seed}")
        for key, pages in zip(arrays, PAGES):
            assert pages.unchanged_round(), f"{name}, case {seed}: {key} was written to"


@pytest.mark.parametrize("name", [name for name in CASES if name not in WITHOUT_OUT])
def test_out_receives_the_result_and_nothing_round_it_changes(name):
    for seed in range(60, 90):
        function, arguments, expected = make(name, seed)
        rng = np.random.default_rng(seed)
        row_wise = expected.ndim == 2 and name in (
            "crop_image", "ssm_band_image", "sst_band_image", "band_image_strip", "median_filter_3x3",
            "median_filter_5x5", "apply_kernel_7x7", "rgbx_compute_band")
        before = np.zeros_like(expected) if name in ("apply_kernel_7x7", "rgbx_compute_band") else expected + 1
        out = PAGES[0].place(before, rng, rng.choice(["plain", "padded", "reversed"]) if row_wise else "plain")
        assert function(**arguments, out=out) is out
        assert_same(out, expected, f"{name}, case {seed}")
        assert PAGES[0].unchanged_round(out), f"{name}, case {seed}: memory outside out was written to"


@pytest.mark.parametrize("name, inputs", [
    ("correct_bias", ("frame", "bias")), ("reflectance", ("frame",)), ("subtract", "ab"), ("add", "ab"),
    ("mix", "ab"), ("ycbcr_to_rgb", ("image",)), ("rgbx_compute_band", ("frame",)),
])
def test_in_place_gives_the_same(name, inputs):
    for seed in range(30):
        for key in inputs:
            function, arguments, expected = make(name, seed)
            if name == "rgbx_compute_band":  # Pixels that the band does not reach keep what lay there.
                expected = function(**arguments, out=arguments["frame"].copy())
            assert_same(function(**arguments, out=arguments[key]), expected, f"{name} into {key}, case {seed}")


RAMP = np.arange(64, dtype=np.float32).reshape(8, 8)
STEPS = np.arange(96, dtype=np.uint16).reshape(8, 12)
# X is 1, R 2, G 3 and B 4 wherever a pixel of theirs lies.
KINDS = np.tile(np.array([[1, 3, 1, 3], [3, 4, 3, 2], [1, 3, 1, 3], [3, 2, 3, 4]], np.float32), (2, 2))
SLOPE = np.add.outer(np.arange(9) * 10, np.arange(12)).astype(np.float32)
# One R pixel, and how it spreads by halves and quarters.
SPOT = np.pad(np.full((1, 1), 8, np.float32), ((7, 8), (5, 10)))
SPREAD = [[int(n) for n in row] for row in "0001000 0012100 0145410 1258521 0145410 0012100 0001000".split()]
CENTRE, CORNER = (np.eye(49)[k].reshape(7, 7) for k in (24, 0))
HALVES, QUARTERS = np.array([[0.5, 0.5], [-1.0, 0.0]]), np.full(4, 0.25)
PIXELS = np.array([[2], [3], [40000], [1]], np.uint16)
WRAPPED = [[65535, 1, 4, 0], [65534, 2, 6, 0], [25537, 20000, 14464, 55537], [0, 1, 2, 0]]
TO_12, TO_4 = (4.0 * np.arange(9).reshape(3, 3), np.array([[1, 2], [3, 4]], np.uint16))
ONE_TO_16 = np.arange(1, 17).reshape(4, 4)
COUNTS, UNIT = np.array([1024, 5000, 0, 65535, 7], np.uint16), np.array([1 / 4096] * 4 + [korva.INVALID_COEFFICIENT])


# Values worked out by hand, which all else is compared with in the end, beside those in the docstrings: sample types,
# signs, roundings, what wraps around and what is limited.
@pytest.mark.parametrize("call, expected", [
    (lambda: korva.crop_image(RAMP, left=2, top=1, width=1, height=2), [[10], [18]]),
    (lambda: korva.ssm_band_image(STEPS, mosaic_width=4, mosaic_height=2, band=6)[:2], [[14, 18, 22], [38, 42, 46]]),
    (lambda: korva.sst_band_image(STEPS, tile_width=4, tile_height=2, band=4)[1], [40, 41, 42, 43]),
    (lambda: korva.correct_bias(RAMP[1], RAMP[0]), [8] * 8),
    (lambda: korva.correction_coefficients(RAMP[0, 1:4], factor1=3.0, factor2=2.0, flag_value=2),
     [6, korva.INVALID_COEFFICIENT, 2]),
    (lambda: korva.reflectance(COUNTS, UNIT, 1.0, 65535, 65535, full_scale=10000), [2500, 10000, 0, 65535, 65535]),
    (lambda: korva.reflectance(COUNTS, UNIT, 2.0, 65534, 4000, full_scale=10000), [1250, 4000, 0, 4000, 65534]),
    (lambda: korva.reflectance(np.float32([1024, 8192, 70000]), UNIT[:3], 1.0, 65535, 65535), [0.25, 2, 65535]),
    (lambda: korva.apply_spectral_correction(RAMP[0, 2:4], HALVES), [2.5, -2]),
    (lambda: [korva.apply_spectral_correction(pixel, [[-1.0], [0.5], [2.0], [-0.25]]) for pixel in PIXELS], WRAPPED),
    (lambda: korva.apply_spectral_correction(PIXELS, [[-1.0], [0.5], [2.0], [-0.25]]), WRAPPED),
    (lambda: korva.apply_spectral_correction_bsq(STEPS[:2, np.newaxis, 2:4], HALVES)[:, 0], [[8, 9], [0, 0]]),
    (lambda: korva.bilinear_coefficients(mosaic_height=4, mosaic_width=4, row_offset=-1.5, column_offset=1.5),
     [0.234375, 0.140625, 0.390625, 0.234375]),
    (lambda: [korva.bilinear_coefficients(mosaic_height=h, mosaic_width=12 - h, row_offset=0, column_offset=0)[0]
              for h in (5, 7)], [0.9999999999999999, 1]),
    (lambda: korva.apply_demosaicing_bilinear(TO_12, QUARTERS, 0.5, 0.5), [[8, 12, 14], [20, 24, 26], [26, 30, 32]]),
    (lambda: korva.apply_demosaicing_bilinear(TO_12, QUARTERS, 0.5, -0.5), [[6, 8, 12], [18, 20, 24], [24, 26, 30]]),
    (lambda: korva.apply_demosaicing_bilinear(TO_4, QUARTERS, 0.5, 0.5), [[3, 3], [4, 4]]),
    (lambda: korva.snapshot_bands(STEPS, mosaic=(4, 6), target=(1, 1))[7], [[13, 19], [61, 67]]),
    (lambda: korva.median_1d_9(RAMP.ravel()[:9]), 4), (lambda: korva.median_1d_25(STEPS.ravel()[:25]), 12),
    (lambda: [korva.median_1d(np.uint16(pair)) for pair in ((3, 4), (3, 5), (0, 1), (65535, 65535))], [4, 4, 1, 65535]),
    (lambda: [korva.median_1d(np.float32(pair)) for pair in ((1, 2), (3e38, 3e38))], [1.5, np.inf]),
    (lambda: korva.median_filter_3x3(np.float32(ONE_TO_16.ravel()[:9].reshape(3, 3))),
     [[3, 3.5, 4], [4.5, 5, 5.5], [6, 6.5, 7]]),
    (lambda: korva.median_filter_5x5(np.uint16(ONE_TO_16)), [[6, 7, 7, 7], *[[8, 9, 9, 9]] * 2, [10, 11, 11, 11]]),
    (lambda: korva.median_filter_5x5(np.float32(ONE_TO_16))[1:], [*[[8, 8.5, 8.5, 9]] * 2, [10, 10.5, 10.5, 11]]),
    (lambda: korva.mix(RAMP[:1], RAMP[4:5], weight=0.25), [np.arange(24, 32)]),
    (lambda: korva.apply_kernel_7x7(RAMP, CORNER)[3:5, 3:5], [[0, 1], [8, 9]]),
    (lambda: korva.rgb_to_ycbcr(RAMP[:3, np.newaxis, :1], kb=0.25, kr=0.5), [[[6]], [[20 / 3]], [[-6]]]),
    (lambda: korva.ycbcr_to_rgb(RAMP[:3, np.newaxis, :1], kb=0.25, kr=0.5), [[[16]], [[-44]], [[12]]]),
    (lambda: korva.ycbcr_to_rgb(np.float32([0.25, -1 / 6, 0.5])[:, np.newaxis, np.newaxis], kb=0.25, kr=0.25),
     [[[1]], [[2**-28]], [[-(2**-27)]]]),
    (lambda: [korva.rgbx_compute_band(KINDS, band)[3, 3] for band in "RGBX"], [2, 3, 4, 1]),
    (lambda: korva.rgbx_compute_band(SPOT, "R")[4:11, 2:9], SPREAD),
    (lambda: [korva.rgbx_compute_band(SPOT, band).any() for band in "GBX"], [False] * 3),
    (lambda: korva.rgbx_demosaic_frame(SLOPE), [SLOPE[3:6, 3:9]] * 4),
])
def test_worked_value(call, expected):
    assert np.array_equal(call(), np.float32(expected) if np.shape(expected) == (3, 1, 1) else expected)


def test_slices_rise_from_the_bottom_slot_and_wrap():
    """Three bands of two rows, four slots: each slice gathers one strip of the scene from three frames."""
    frames = np.uint16(1000 * np.arange(1, 8)[:, None, None] + 10 * np.arange(10)[:, None] + np.arange(4))
    slices = np.zeros((3, 8, 4), np.uint16)
    with korva.StitchingBuffer(4, 2, 2, 4) as ring:
        for t, frame in enumerate(frames):
            ring.stitch_band_image(frame, t)
            if t >= 2:
                ring.get_stitched_slice(t, out=slices)
                row = 2 * (3, 2, 1, 0, 3)[t - 2]
                for band in range(3):
                    strip = frames[t - 2 + band, 4 + 2 * band : 6 + 2 * band]
                    assert np.array_equal(slices[band, row : row + 2], strip), (t, band)


@pytest.mark.parametrize("function, count", [
    (korva.median_1d_9, 9), (korva.median_1d_25, 25), (korva.median_1d, 11),
])
def test_medians_reorder_the_array_only_when_asked(function, count):
    values = np.random.default_rng(1).permutation(count).astype(np.float32)
    kept = values.copy()
    assert function(values) == count // 2 and np.array_equal(values, kept)
    assert function(values, in_place=True) == values[count // 2] == count // 2 and not np.array_equal(values, kept)


def test_untouched_samples_and_scratch_are_kept_as_stated():
    out = np.full_like(RAMP, 7)
    korva.apply_kernel_7x7(RAMP, CENTRE, out=out)
    assert np.array_equal(out[3:5, 3:5], RAMP[3:5, 3:5]) and (out == 7).sum() == 60
    scratch = np.full((1, 2), np.nan)
    korva.apply_spectral_correction_bsq(RAMP[:2, np.newaxis, 2:4], HALVES, scratch=scratch)
    assert scratch.tolist() == [[-2, -3]]


def test_interpreter_runs_on_during_a_call():
    frame = np.random.default_rng(6).random((3000, 3000), np.float32)
    thread = threading.Thread(target=korva.median_filter_5x5, args=(frame,))
    turns = [time.perf_counter()]
    thread.start()
    while thread.is_alive():
        turns.append(time.perf_counter())
    # With the lock held, the loop would stand still for the whole call.
    assert np.diff(turns).max() < 0.5 * (turns[-1] - turns[0])
