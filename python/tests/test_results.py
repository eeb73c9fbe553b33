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
CENTRE = np.eye(49)[24].reshape(7, 7)
HALVES = np.array([[0.5, 0.5], [-1.0, 0.0]])


# What the examples of the docstrings do not show: the routines of the other sample types, signs, and other bands.
@pytest.mark.parametrize("call, expected", [
    (lambda: korva.crop_image(STEPS, left=2, top=1, width=3, height=2), [[14, 15, 16], [26, 27, 28]]),
    (lambda: korva.crop_image(RAMP, left=2, top=1, width=1, height=2), [[10], [18]]),
    (lambda: korva.ssm_band_image(STEPS, mosaic_width=4, mosaic_height=2, band=6)[:2], [[14, 18, 22], [38, 42, 46]]),
    (lambda: korva.sst_band_image(STEPS, tile_width=4, tile_height=2, band=4)[1], [40, 41, 42, 43]),
    (lambda: korva.correct_bias(RAMP[1], RAMP[0]), [8] * 8),
    (lambda: korva.correction_coefficients(RAMP[0, 1:4], factor1=3.0, factor2=2.0, flag_value=2),
     [6, korva.INVALID_COEFFICIENT, 2]),
    (lambda: korva.reflectance(STEPS[0, :5], np.full(5, 0.5), 2.0, flag_value=3, limit_value=4, full_scale=100),
     [0, 25, 50, 3, 4]),
    (lambda: korva.reflectance(RAMP[0, :5], np.full(5, 0.5), divisor=2.0, flag_value=3, limit_value=4),
     [0, 0.25, 0.5, 3, 4]),
    (lambda: korva.apply_spectral_correction(RAMP[0, 2:4], HALVES), [2.5, -2]),
    (lambda: korva.apply_spectral_correction(STEPS[:1, 2:4], HALVES), [[3, 65535]]),
    (lambda: korva.apply_spectral_correction_bsq(STEPS[:2, np.newaxis, 2:4], HALVES)[:, 0], [[8, 9], [0, 0]]),
    (lambda: korva.bilinear_coefficients(mosaic_height=2, mosaic_width=4, row_offset=0.5, column_offset=1.0),
     [0.5625, 0.1875, 0.1875, 0.0625]),
    (lambda: korva.apply_demosaicing_bilinear(STEPS, [0, 0, 0, 1.0], 0.5, 0.5)[0, :2], [13, 14]),
    (lambda: korva.apply_demosaicing_bilinear(RAMP.astype(float), [0, 0, 0, 1.0], -0.5, 0.5)[1, :2], [9, 10]),
    (lambda: korva.snapshot_bands(STEPS, mosaic=(4, 6), target=(1, 1))[7], [[13, 19], [61, 67]]),
    (lambda: korva.median_1d_9(RAMP.ravel()[:9]), 4), (lambda: korva.median_1d_25(STEPS.ravel()[:25]), 12),
    (lambda: korva.median_1d(RAMP[0, :4]), 1.5), (lambda: korva.median_filter_3x3(RAMP)[1, :2], [8.5, 9]),
    (lambda: korva.median_filter_5x5(STEPS)[2, 2:4], [26, 27]),
    (lambda: korva.mix(RAMP[:1], RAMP[4:5], weight=0.25), [np.arange(24, 32)]),
    (lambda: korva.rgb_to_ycbcr(RAMP[:3, np.newaxis, :1], kb=0.25, kr=0.5), [[[6]], [[20 / 3]], [[-6]]]),
    (lambda: korva.ycbcr_to_rgb(RAMP[:3, np.newaxis, :1], kb=0.25, kr=0.5), [[[16]], [[-44]], [[12]]]),
    (lambda: [korva.rgbx_compute_band(KINDS, band)[3, 3] for band in "RGBX"], [2, 3, 4, 1]),
    (lambda: korva.rgbx_demosaic_frame(KINDS)[:, 0, 0], [2, 3, 4, 1]),
])
def test_worked_value(call, expected):
    assert np.array_equal(call(), np.float32(expected) if np.shape(expected) == (3, 1, 1) else expected)


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
