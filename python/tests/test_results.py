"""Every function gives the bits of its definition, wherever and however its arrays lie."""

import threading
import time

import definitions as d
import numpy as np
import pytest
from cases import CASES, GuardedPages, LAYOUTS, WITHOUT_OUT, assert_same, make

import korva_reference as korva

PAGES = [GuardedPages() for _ in range(4)]


@pytest.mark.parametrize("name", CASES)
def test_result_is_the_definitions_in_every_layout_of_the_inputs(name):
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
            if name == "rgbx_compute_band":
                expected = d.rgbx_compute_band(arguments["frame"], arguments["band"], arguments["frame"].copy())
            assert_same(function(**arguments, out=arguments[key]), expected, f"{name} into {key}, case {seed}")


@pytest.mark.parametrize("network, count, function", [
    (d.NETWORK_9, 9, korva.median_1d_9), (d.NETWORK_25, 25, korva.median_1d_25),
])
def test_networks_leave_the_array_as_their_exchanges_do(network, count, function):
    rng = np.random.default_rng(1)
    for _ in range(50):
        values = rng.choice(np.array([0.0, -0.0, np.nan, 1, 2, 3], np.float32), count)
        expected = d.arranged(values, network)
        function(values, in_place=True)
        assert values.tobytes() == expected.tobytes()


def test_untouched_samples_and_scratch_are_kept_as_stated():
    _, arguments, _ = make("apply_kernel_7x7", 3)
    out = np.full_like(arguments["image"], 7)
    expected = d.apply_kernel_7x7(**arguments, out=np.full_like(out, 7))
    assert_same(korva.apply_kernel_7x7(**arguments, out=out), expected, "margin")
    cube, matrix = np.arange(24, dtype=np.float32).reshape(2, 3, 4), np.array([[1.0, 1], [-1, 0]])
    scratch = np.full((3, 4), np.nan)
    korva.apply_spectral_correction_bsq(cube, matrix, scratch=scratch)
    assert_same(scratch, d.weighted_sums(cube, matrix)[1], "sums of the last band")


def test_more_than_one_thread_at_a_time_gives_the_same_results():
    rng = np.random.default_rng(5)
    frame = rng.integers(0, 65536, (600, 800), np.uint16)
    expected = korva.median_filter_5x5(frame)
    results = [np.empty_like(frame) for _ in range(4)]
    threads = [threading.Thread(target=korva.median_filter_5x5, args=(frame,), kwargs={"out": out}) for out in results]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for result in results:
        assert_same(result, expected, "thread")


def test_interpreter_runs_on_during_a_call():
    frame = np.random.default_rng(6).random((3000, 3000), np.float32)
    thread = threading.Thread(target=korva.median_filter_5x5, args=(frame,))
    turns = [time.perf_counter()]
    thread.start()
    while thread.is_alive():
        turns.append(time.perf_counter())
    # With the lock held, the loop would stand still for the whole call.
    assert np.diff(turns).max() < 0.5 * (turns[-1] - turns[0])
