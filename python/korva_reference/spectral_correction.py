"""A correction matrix applied to pixel spectra, band-interleaved pixels and band-sequential cubes."""

from __future__ import annotations

import math
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from ._arrays import (
    FLOAT64, SAMPLES, SUFFIX, Sample, UNSIGNED_INT, array, count, fail, is_planes, output, planes, rows, run, table,
)
from ._library import call


def _matrix(value: ArrayLike, in_bands: int) -> NDArray[np.float64]:
    matrix = table("matrix", value, 2)
    if matrix.shape[1] != in_bands:
        fail("matrix", f"one column for each of {in_bands} input bands", f"{matrix.shape[1]} columns")
    count("matrix rows", matrix.shape[0], 0, UNSIGNED_INT)
    count("input bands", in_bands, 0, UNSIGNED_INT)
    return matrix


def apply_spectral_correction(
    spectra: NDArray[Sample], matrix: ArrayLike, *, out: NDArray[Sample] | None = None
) -> NDArray[Sample]:
    """Applies a correction matrix (output band, input band) to one spectrum or to many, band-interleaved by pixel.

    spectra is uint16 or float32 with the bands in its last dimension, at most 2**32 - 1 pixels; the result has the
    output bands there. Negative sums stay negative, for uint16 they wrap. The matrix may be of any real type.
    Calls KORVA_Ref_SC_ApplySpectralCorrection_uint16 or KORVA_Ref_SC_ApplySpectralCorrection_float for one dimension,
    KORVA_Ref_SC_ApplySpectralCorrection_BIP_uint16 or KORVA_Ref_SC_ApplySpectralCorrection_BIP_float for more.

    >>> pixels = np.array([[1, 2, 3], [4, 5, 6]], np.float32)
    >>> apply_spectral_correction(pixels, [[0.5, 0.5, 0], [0, 0, -2]]).tolist()
    [[1.5, -6.0], [4.5, -12.0]]
    """
    view: NDArray[Any] = array("spectra", spectra, SAMPLES)
    if not view.ndim:
        fail("spectra", "at least 1 dimension", 0)
    pixels = count("pixels", math.prod(view.shape[:-1]), 0, UNSIGNED_INT)
    weights = _matrix(matrix, view.shape[-1])
    out_bands, in_bands = weights.shape
    dtype = view.dtype.newbyteorder("=")
    target = output(out, (*view.shape[:-1], out_bands), dtype, apart=(view, weights))
    if target.size:
        layout, size = ("", ()) if view.ndim == 1 else ("BIP_", (pixels,))
        call(f"KORVA_Ref_SC_ApplySpectralCorrection_{layout}{SUFFIX[dtype]}", run(target), run(view), rows(weights),
             out_bands, in_bands, *size)
    return target if out is None else out


def apply_spectral_correction_bsq(
    cube: NDArray[Sample], matrix: ArrayLike, *, out: NDArray[Sample] | None = None,
    scratch: NDArray[np.float64] | None = None,
) -> NDArray[Sample]:
    """Applies a correction matrix (output band, input band) to a band-sequential cube; negative sums become 0.

    cube is uint16 or float32, (band, row, column), with at most 2**32 - 1 pixels; the result has the output bands
    first. scratch is working memory of rows * columns float64 that may be reused from call to call; it receives the
    unclamped sums of the last output band. The matrix may be of any real type.
    Calls KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16 or KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float.

    >>> cube = np.array([[[1, 2]], [[3, 4]]], np.float32)
    >>> apply_spectral_correction_bsq(cube, [[0.5, 0.5], [-1, 0]]).tolist()
    [[[2.0, 3.0]], [[0.0, 0.0]]]
    """
    view = array("cube", cube, SAMPLES, 3)
    in_bands, height, width = view.shape
    samples = count("pixels", height * width, 0, UNSIGNED_INT)
    weights = _matrix(matrix, in_bands)
    dtype = view.dtype.newbyteorder("=")
    target = output(out, (len(weights), height, width), dtype, is_planes, apart=(view, weights))
    sums = (samples,) if getattr(scratch, "ndim", 2) == 1 else (height, width)
    working = output(scratch, sums, FLOAT64, apart=(view, weights, target), name="scratch")
    if target.size:
        call(f"KORVA_Ref_SC_ApplySpectralCorrection_BSQ_{SUFFIX[dtype]}", planes(target, all_rows=False), run(working),
             planes(view, all_rows=False), rows(weights), len(weights), in_bands, samples)
    return target if out is None else out
