"""RGBX frames: band interpolation, whole-frame demosaicing and the new WLI.

An RGBX frame repeats this tile of 4 x 4 filters from its first pixel on:

    X G X G
    G B G R
    X G X G
    G R G B
"""

from __future__ import annotations

from typing import Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from ._arrays import (
    FLOAT32, array, count, fail, is_planes, is_rows, new, output, planes, real, require_memory, rows, run,
)
from ._buffers import WorkingMemory
from ._library import NewWLIBuffersRecord, call
from .image_operations import kernel_weights

Image = NDArray[np.float32]


def _require_size(argument: str, view: Image, least_rows: int, least_columns: int, multiple: int = 1) -> None:
    height, width = view.shape[-2:]
    if height < least_rows or width < least_columns or width % multiple:
        what = {1: "", 2: " (an even number)", 4: " (a multiple of 4)"}[multiple]
        fail(argument, f"at least {least_rows} rows and {least_columns} columns{what}", f"shape {view.shape}")


def rgbx_compute_band(frame: Image, band: Literal["R", "G", "B", "X"], *, out: Image | None = None) -> Image:
    """Computes band "R", "G", "B" or "X" of an RGBX frame of float32, (row, column), at the frame's full size.

    Some samples near the edges, never more than 3 from one, keep what out held; they are 0 in a new result. out may be
    frame itself. R and B need at least 2 rows and 8 columns, a multiple of 4; G 1 row and 2 columns, an even number; X
    2 rows and 2 columns. Calls KORVA_Ref_RGBX_ComputeBand_R_float, KORVA_Ref_RGBX_ComputeBand_G_float,
    KORVA_Ref_RGBX_ComputeBand_B_float or KORVA_Ref_RGBX_ComputeBand_X_float.

    >>> frame = np.add.outer(np.arange(8) * 10, np.arange(8)).astype(np.float32)
    >>> rgbx_compute_band(frame, "R")[3:5, 3:5].tolist()
    [[33.0, 34.0], [43.0, 44.0]]
    """
    limits = {"R": (2, 8, 4), "G": (1, 2, 2), "B": (2, 8, 4), "X": (2, 2, 1)}
    if not isinstance(band, str):
        fail("band", '"R", "G", "B" or "X"', type(band).__name__, TypeError)
    if band not in limits:
        fail("band", '"R", "G", "B" or "X"', repr(band))
    view = array("frame", frame, (FLOAT32,), 2)
    _require_size("frame", view, *limits[band])
    target = output(out, view.shape, FLOAT32, is_rows, onto=(view,), clear=True)
    height, width = view.shape
    call(f"KORVA_Ref_RGBX_ComputeBand_{band}_float", rows(target), rows(view), width, height)
    return target if out is None else out


def rgbx_demosaic_frame(frame: Image, *, out: Image | None = None, scratch: Image | None = None) -> Image:
    """Demosaics an RGBX frame of float32, (row, column), into its bands R, G, B, X, (band, row, column).

    3 pixels are cut from every side: the result has shape (4, rows - 6, columns - 6). The frame has at least 6 rows and
    8 columns, a multiple of 4. scratch is working memory of the frame's shape that may be reused from call to call.
    Calls KORVA_Ref_RGBX_DemosaicFrame_float.

    >>> frame = np.add.outer(np.arange(8) * 10, np.arange(8)).astype(np.float32)
    >>> rgbx_demosaic_frame(frame)[3].tolist()
    [[33.0, 34.0], [43.0, 44.0]]
    """
    view = array("frame", frame, (FLOAT32,), 2)
    _require_size("frame", view, 6, 8, 4)
    height, width = view.shape
    target = output(out, (4, height - 6, width - 6), FLOAT32, is_planes, apart=(view,))
    working = output(scratch, view.shape, FLOAT32, is_rows, apart=(view, target), name="scratch")
    call("KORVA_Ref_RGBX_DemosaicFrame_float", planes(target), rows(working), rows(view), width, height)
    return target if out is None else out


class NewWLIBuffers(WorkingMemory):
    """Working buffers for the new WLI of band images of width * height samples, at least 6 each.

    release() or a with block gives the memory back, and any use after that is a ValueError. Calls in several threads
    at a time each have buffers of their own, which are kept for later calls.

    >>> kernel, bands = np.full((7, 7), 1 / 49), np.full((4, 8, 9), 0.5, np.float32)
    >>> with NewWLIBuffers(width=9, height=8) as buffers:
    ...     buffers.compute(bands, kernel, kb=0.25, kr=0.25, weight=0.5)[0].tolist()
    [[0.5, 0.5, 0.5], [0.5, 0.5, 0.5]]
    """

    def __init__(self, width: int, height: int) -> None:
        self._size = count("height", height, 6), count("width", width, 6)
        self._memory = [self._new()]

    def _new(self) -> tuple[NewWLIBuffersRecord, object]:
        height, width = self._size
        require_memory("new-WLI buffers", 6 * height * (width * 4 + 8))
        images = new((6, height, width), FLOAT32)
        pointers = [*map(rows, images[:3]), planes(images[3:])]
        return NewWLIBuffersRecord(*(pointer._as_parameter_ for pointer in pointers)), pointers

    def compute(
        self, bands: Image, kernel: ArrayLike, kb: float, kr: float, weight: float, *, out: Image | None = None
    ) -> Image:
        """Computes the new WLI of bands R, G, B, X of float32, (band, row, column), of the buffers' size.

        kernel is a 7 x 7 smoothing kernel, kb and kr are the luma weights of blue and red, and weight is the share of
        the RGB luma's detail; the X band's detail gets 1 - weight. The result has planes R, G, B without a 3-sample
        margin, shape (3, height - 6, width - 6). Calls KORVA_Ref_RGBX_ComputeNewWLI_float.
        """
        height, width = self._size
        kb, kr, weight = real("kb", kb), real("kr", kr), real("weight", weight)
        weights = kernel_weights(kernel)
        view = array("bands", bands, (FLOAT32,), 3)
        if view.shape != (4, height, width):
            fail("bands", f"shape {(4, height, width)}", view.shape)
        target = output(out, (3, height - 6, width - 6), FLOAT32, is_planes, apart=(view, weights))
        idle = self._use()
        try:
            buffers = idle.pop()  # One step: no other thread gets the same.
        except IndexError:
            buffers = self._new()
        call("KORVA_Ref_RGBX_ComputeNewWLI_float", planes(target), planes(view), width, height, run(weights),
             buffers[0], kb, kr, weight)
        idle.append(buffers)
        return target if out is None else out


def rgbx_compute_new_wli(
    bands: Image, kernel: ArrayLike, kb: float, kr: float, weight: float, *, out: Image | None = None
) -> Image:
    """Computes the new WLI of bands R, G, B, X once, with buffers of its own; arguments as NewWLIBuffers.compute.

    >>> bands, kernel = np.full((4, 7, 7), 0.5, np.float32), np.full((7, 7), 1 / 49)
    >>> rgbx_compute_new_wli(bands, kernel, kb=0.25, kr=0.25, weight=1.0).ravel().tolist()
    [0.5, 0.5, 0.5]
    """
    _, height, width = array("bands", bands, (FLOAT32,), 3).shape
    with NewWLIBuffers(width, height) as buffers:
        return buffers.compute(bands, kernel, kb, kr, weight, out=out)
