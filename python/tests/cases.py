"""Numbered calls of every public function, what each gives on plain arrays, and guarded memory for their arrays."""

import copy
import ctypes
import mmap

import numpy as np

import korva_reference as korva
from korva_reference import conformance


def scan_call(frames, width, strip_height, first_band, last_band, bands, slices, by_strip):
    """A whole scan through a ring; the slices' memory is the result."""
    with korva.StitchingBuffer(width, strip_height, first_band, last_band, bands) as ring:
        for t, frame in enumerate(frames):
            if by_strip:
                for band in range(first_band, last_band + 1):
                    ring.stitch_band_image_strip(korva.band_image_strip(frame, strip_height, band), band, t)
            else:
                ring.stitch_band_image(frame, t)
            if t >= last_band - first_band:
                ring.get_stitched_slice(t, out=slices)
    return slices


def scan(draw):
    width, strip_height, first_band, positions = draw.size(1, 6), draw.size(1, 4), draw.size(0, 3), draw.size(1, 5)
    rows = (first_band + positions) * strip_height + draw.size(0, 2)
    frames = draw.samples(np.dtype("u2"), (positions + draw.size(0, 9), rows, width))
    slices = np.zeros((draw.size(1, positions + 1), strip_height * draw.size(1, 4) + draw.size(0, 2), width), np.uint16)
    return dict(
        frames=frames, width=width, strip_height=strip_height, first_band=first_band,
        last_band=first_band + positions - 1, bands=None, slices=slices, by_strip=bool(draw.rng.integers(2)),
    )


def strip_call(strip, width, strip_height, first_band, last_band, bands, band, frame_index, buffer_band, slices, last):
    """One strip into a ring, and a slice out of it; what ring and slices hold then."""
    with korva.StitchingBuffer(width, strip_height, first_band, last_band, bands) as ring:
        ring.stitch_band_image_strip(strip, band, frame_index, buffer_band)
        ring.get_stitched_slice(last, out=slices)
        return np.concatenate([ring.to_array().ravel(), slices.ravel()])


def strip(draw):
    width, strip_height, first_band, positions = draw.size(0, 6), draw.size(1, 4), draw.size(0, 3), draw.size(1, 5)
    bands = draw.size(1, 5)
    slices = draw.samples(np.dtype("u2"), (draw.size(0, bands + 1), strip_height * draw.size(1, 4) + draw.size(0, 2),
                                           width))
    return dict(
        strip=draw.samples(np.dtype("u2"), (strip_height, width)), width=width, strip_height=strip_height,
        first_band=first_band, last_band=first_band + positions - 1, bands=bands,
        band=first_band + draw.size(0, positions), frame_index=[0, 1, 7, 2**64 - 1][draw.rng.integers(4)],
        buffer_band=draw.size(0, bands), slices=slices, last=positions - 1 + draw.size(0, 9),
    )


def new_wli_call(width, height, bands, out=None, **rest):
    with korva.NewWLIBuffers(width, height) as buffers:
        return buffers.compute(bands, out=out, **rest)


def new_wli(draw):
    arguments, _ = conformance.case("rgbx_compute_new_wli", draw.size(0, 15))
    return dict(width=arguments["bands"].shape[2], height=arguments["bands"].shape[1], **arguments)


# Classes are called through functions, which make and use one.
CLASSES = {"scan": (scan, scan_call), "strip": (strip, strip_call), "new_wli": (new_wli, new_wli_call)}
CASES = (*conformance.ROUTINES, *CLASSES)
WITHOUT_OUT = ("scan", "strip", "filter_position", "target_position_relative_to_filter_position",
               "bilinear_coefficients", "median_1d_9", "median_1d_25", "median_1d")


def make(name, seed):
    """The function, the arguments of case number seed, and what it gives for them: arrays of one block each.

    Whether that is right is for the library's own tests, and for a few worked values.
    """
    seed = seed * 16 // 15  # Wide rows would not fit the guarded pages.
    if name not in CLASSES:
        return getattr(korva, name), *conformance.case(name, seed)
    arguments, function = CLASSES[name][0](conformance.Draw([seed, 1], False)), CLASSES[name][1]
    return function, arguments, function(**copy.deepcopy(arguments))


def assert_same(result, expected, what):
    difference = conformance.difference(result, expected)
    assert not difference, f"{what}: {difference}"


class GuardedPages:
    """Memory between two forbidden pages, filled with a pattern round the array that lies in it."""

    def __init__(self, pages=8):
        self.map = mmap.mmap(-1, (pages + 2) * mmap.PAGESIZE)
        start = ctypes.addressof(ctypes.c_char.from_buffer(self.map))
        libc = ctypes.CDLL(None, use_errno=True)
        for page in (0, pages + 1):
            address = ctypes.c_void_p(start + page * mmap.PAGESIZE)
            assert libc.mprotect(address, ctypes.c_size_t(mmap.PAGESIZE), 0) == 0
        self.memory = np.frombuffer(self.map, np.uint8)[mmap.PAGESIZE : -mmap.PAGESIZE]

    def place(self, values, rng, layout="plain"):
        """An array of these values whose memory ends, or begins, at a forbidden page."""
        self.memory[:] = 0xA5
        dtype, shape, pick = values.dtype, list(values.shape), [slice(None)] * values.ndim
        if layout == "padded" and values.ndim:
            shape[-1], pick[-1] = shape[-1] + 3, slice(1, -2)
        elif layout == "spread" and values.ndim:
            shape[-1], pick[-1] = 2 * shape[-1], slice(None, None, 2)
        elif layout == "reversed" and values.ndim:
            pick[0] = slice(None, None, -1)
        elif layout == "transposed":
            shape = shape[::-1]
        elif layout == "swapped":
            dtype = dtype.newbyteorder()
        length = int(np.prod(shape)) * dtype.itemsize
        odd = layout == "odd"
        start = len(self.memory) - length - odd if rng.random() < 0.7 else int(odd)
        block = np.ndarray(shape, dtype, self.memory.data, start)
        view = block.T if layout == "transposed" else block[tuple(pick)]
        view[...] = values
        self.before = self.memory.copy()
        return view

    def unchanged_round(self, view=None):
        """Nothing but view has changed since it was placed. view may be written over to find out."""
        if view is not None and view.size:
            now = view.copy()
            view[...] = np.ndarray(view.shape, view.dtype, self.before.data, self._offset(view), view.strides)
            same = np.array_equal(self.memory, self.before)
            view[...] = now
            return same
        return np.array_equal(self.memory, self.before)

    def _offset(self, view):
        return view.__array_interface__["data"][0] - self.memory.__array_interface__["data"][0]


LAYOUTS = ("plain", "padded", "spread", "reversed", "transposed", "swapped", "odd")
