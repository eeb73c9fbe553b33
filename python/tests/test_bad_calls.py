"""Thousands of random bad calls: each is refused in one sentence and changes nothing, or was right after all.

Arrays end at forbidden pages, so that a read or write outside them ends the interpreter. What is not refused must give
what plain copies of the same arguments give.
"""

import math
from collections import Counter
from fractions import Fraction

import numpy as np
import pytest
from cases import CASES, LAYOUTS, WITHOUT_OUT, GuardedPages, assert_same, make

NUMBERS = [
    None, True, "3", b"3", 1.5, -1, 0, 1, 2, 3, 5, 7, 8, 64, 65535, 65536, -(2**31), 2**31, 2**32 - 1, 2**32, 2**63,
    2**64 - 1, 2**64, 2**64 + 1, 10**400, -0.0, math.nan, math.inf, -math.inf, 1e300, 1e-320, Fraction(1, 3), 1 + 2j,
    np.int8(-3), np.uint64(2**64 - 1), np.float32(2.5), np.array(3), np.array([3]), [3], object(),
]
PAGES = [GuardedPages() for _ in range(6)]


class Subclass(np.ndarray):
    """Tells everybody who asks it that it has four rows and columns more."""

    shape = property(lambda self: tuple(size + 4 for size in np.ndarray.shape.__get__(self)))
    size = property(lambda self: math.prod(self.shape))


def number(value, name, rng):
    """A number near a valid one, or one of another kind."""
    if type(value) is int and rng.random() < 0.6:
        return value + int(rng.choice([-9, -2, -1, 1, 2, 3, 9, 40]))
    if type(value) is str:
        return str(rng.choice(["", "r", "RG", "Y", "\0"]))
    # A ring of gigabytes would be granted, but not be quick.
    fit = [n for n in NUMBERS if name not in ("scan", "strip") or type(n) is not int or not 2**16 < n < 2**40]
    return fit[rng.integers(len(fit))]


def reshaped(values, rng):
    """The same memory in another shape, type or view, or a part of it."""
    if not values.ndim or not values.size:
        return values.reshape(1, -1) if values.size else values[np.newaxis]
    axis = rng.integers(values.ndim)
    part = [slice(None)] * values.ndim
    part[axis] = [slice(1, None), slice(None, -1), slice(None, None, 2), slice(0, 0)][rng.integers(4)]
    return [
        lambda: values[tuple(part)],
        lambda: values[np.newaxis],
        lambda: values[0],
        lambda: values.T,
        lambda: np.concatenate([values, values[:1]]),
        lambda: np.concatenate([values, values[..., :1]], axis=-1),
        lambda: values.reshape(-1),
        lambda: np.ascontiguousarray(values).view(np.uint8),
        lambda: np.zeros(values.shape, rng.choice([np.int16, np.uint16, np.float32, np.float64, np.complex64, object])),
        lambda: np.broadcast_to(values.reshape(-1)[0], (*values.shape[:-1], 2 ** rng.choice([3, 8, 14, 42, 50]))),
        lambda: np.broadcast_to(values.reshape(-1)[0], values.shape),
        lambda: np.lib.stride_tricks.as_strided(values, values.shape, (0,) * values.ndim),
        lambda: np.ma.masked_array(values),
        lambda: values.view(np.recarray),
        lambda: values.view(Subclass),
        lambda: values.reshape(-1)[:1].reshape(()),
        lambda: values.tolist(),
        lambda: np.empty((0,) * values.ndim, values.dtype),
    ][rng.integers(18)]()


def overlapping(pages, victim, shape, dtype, rng):
    """An output in an input's memory, shifted or not."""
    needed = math.prod(shape) * dtype.itemsize
    begin = victim.__array_interface__["data"][0] - pages.memory.__array_interface__["data"][0]
    begin += int(rng.integers(-1, 3)) * dtype.itemsize * int(rng.integers(0, 2))
    begin = max(0, min(begin, len(pages.memory) - needed))
    return np.ndarray(shape, dtype, pages.memory[begin - begin % dtype.itemsize :].data)


def spoil(arguments, expected, name, rng):
    """Replaces up to three arguments by others, or lays them elsewhere in memory."""
    if name not in WITHOUT_OUT and rng.random() < 0.5:
        arguments["out"] = expected + 1
        if name == "apply_spectral_correction_bsq":
            arguments["scratch"] = np.full(expected.shape[1:], 2.0)
        if name == "rgbx_demosaic_frame":
            arguments["scratch"] = np.full_like(arguments["frame"], 2.0)
    placed = {}
    for key, pages in zip([key for key, value in arguments.items() if isinstance(value, np.ndarray)], PAGES):
        layout = "plain" if rng.random() < 0.6 else LAYOUTS[rng.integers(len(LAYOUTS))]
        arguments[key] = pages.place(np.array(arguments[key]), rng, layout)
        placed[key] = pages
    for key in rng.permutation(list(arguments))[: rng.choice([0, 1, 1, 1, 2, 3])]:
        key = str(key)
        if key not in placed:
            arguments[key] = number(arguments[key], name, rng)
        elif key in ("out", "scratch") and rng.random() < 0.4:
            other = str(rng.choice([other for other in placed if other != key]))
            victim, pages = arguments[other], placed[other]
            if type(victim) is type(arguments[key]) is np.ndarray and np.may_share_memory(victim, pages.memory):
                arguments[key] = overlapping(pages, victim, arguments[key].shape, arguments[key].dtype, rng)
        elif isinstance(arguments[key], np.ndarray) and rng.random() < 0.2:
            arguments[key] = arguments[key].view()
            arguments[key].flags.writeable = False
        elif isinstance(arguments[key], np.ndarray):
            arguments[key] = reshaped(arguments[key], rng)
        if rng.random() < 0.03:
            arguments[key] = number(None, name, rng)
    return placed


def attempt(name, seed):
    function, arguments, expected = make(name, seed)
    rng = np.random.default_rng([seed, 1])
    placed = spoil(arguments, expected, name, rng)
    what = f"{name}, case {seed}"
    # What a correct call gives, worked out from copies before anything can be written over.
    copies = {
        key: np.array(value, value.dtype.newbyteorder("=")) if isinstance(value, np.ndarray) and value.nbytes < 2**20
        else value
        for key, value in arguments.items()
        if key not in ("out", "scratch")
    }
    margins = "out" in arguments and name in ("apply_kernel_7x7", "rgbx_compute_band")
    try:
        result = function(**arguments)
    except (TypeError, ValueError, MemoryError) as error:
        sentence = str(error)
        assert "\n" not in sentence, f"{what}: {sentence}"
        if isinstance(error, MemoryError):
            assert "this machine has" in sentence, f"{what}: {sentence}"
        else:
            assert ": expected " in sentence and ", found " in sentence, f"{what}: {sentence}"
        # A scan may have stored slices before it came to a frame that it refuses.
        for key, pages in placed.items():
            assert key == "slices" or pages.unchanged_round(), f"{what}: {key} was changed by a call that was refused"
        return "refused"
    if not margins:
        assert_same(result, function(**copies), what)
    written = {id(pages) for key, pages in placed.items() if key in ("out", "scratch", "slices")}
    writable = [np.ndarray.view(arguments[key], np.ndarray) for key in ("out", "scratch", "slices")
                if isinstance(arguments.get(key), np.ndarray)]
    for key, pages in placed.items():
        inside = [view for view in writable if np.may_share_memory(view, pages.memory)]
        assert len(inside) <= 1 and (inside or id(pages) not in written or pages.unchanged_round()), what
        assert pages.unchanged_round(inside[0] if inside else None), f"{what}: memory round {key} was written to"
    return "accepted"


@pytest.mark.parametrize("name", CASES)
def test_bad_calls_are_refused_without_effect(name):
    outcomes = Counter(attempt(name, seed) for seed in range(1000, 1200))
    assert outcomes["refused"] >= 40 and outcomes["accepted"] >= 20, outcomes
