"""Medians of 9, 25 or any number of samples, and 3 x 3 and 5 x 5 median filters."""

from __future__ import annotations

import ctypes
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ._arrays import SAMPLES, SUFFIX, Sample, array, count, fail, is_planes, is_rows, output, require_memory, rows, run
from ._library import call


def _median(name: str, values: NDArray[Sample], size: int | None, in_place: bool) -> Sample:
    view = array("values", values, SAMPLES, 1)
    count("number of values", view.size, size or 1, size or view.size or 1)
    dtype = view.dtype.newbyteorder("=")
    if in_place:
        working = output(values, view.shape, dtype, name="values")
    else:
        require_memory("copy of the values", view.nbytes)
        working = np.array(view, dtype)
    result = call(f"KORVA_Ref_MF_{name}_{SUFFIX[dtype]}", run(working), *(() if size else (working.size,)))
    median: Sample = dtype.type(result)
    return median


def median_1d_9(values: NDArray[Sample], *, in_place: bool = False) -> Sample:
    """The median of 9 samples of uint16 or float32, by the 19-exchange network.

    With in_place the array is left as the exchanges leave it, with the median in values[4]; otherwise a copy is.
    Calls KORVA_Ref_MF_Median1D_9_uint16 or KORVA_Ref_MF_Median1D_9_float.

    >>> int(median_1d_9(np.array([9, 8, 7, 6, 5, 4, 3, 2, 1], np.uint16)))
    5
    """
    return _median("Median1D_9", values, 9, in_place)


def median_1d_25(values: NDArray[Sample], *, in_place: bool = False) -> Sample:
    """The median of 25 samples of uint16 or float32, by the 99-exchange network.

    With in_place the array is left as the exchanges leave it, with the median in values[12]; otherwise a copy is.
    Calls KORVA_Ref_MF_Median1D_25_uint16 or KORVA_Ref_MF_Median1D_25_float.

    >>> float(median_1d_25(np.arange(25, dtype=np.float32)))
    12.0
    """
    return _median("Median1D_25", values, 25, in_place)


def median_1d(values: NDArray[Sample], *, in_place: bool = False) -> Sample:
    """The median of one or more samples of uint16 or float32; the mean of the middle two for an even number.

    Halves round up for uint16. With in_place the array is left partly ordered, with its middle sample in place.
    Calls KORVA_Ref_MF_Median1D_uint16 or KORVA_Ref_MF_Median1D_float.

    >>> int(median_1d(np.array([10, 40, 20, 30], np.uint16)))
    25
    """
    return _median("Median1D", values, None, in_place)


def _filter(name: str, image: NDArray[Any], least: int, out: NDArray[Any] | None) -> NDArray[Any]:
    view = array("image", image, SAMPLES, 2, 3)
    if min(view.shape[-2:]) < least:
        fail("image", f"at least {least} rows and {least} columns", f"shape {view.shape}")
    dtype = view.dtype.newbyteorder("=")
    target = output(out, view.shape, dtype, is_rows if view.ndim == 2 else is_planes, apart=(view,))
    height, width = (ctypes.c_ulong(size) for size in view.shape[-2:])
    for plane, filtered in ((view, target),) if view.ndim == 2 else zip(view, target):
        call(f"KORVA_Ref_MF_{name}_{SUFFIX[dtype]}", rows(filtered), rows(plane), ctypes.byref(height),
             ctypes.byref(width))
    return target if out is None else out


def median_filter_3x3(image: NDArray[Sample], *, out: NDArray[Sample] | None = None) -> NDArray[Sample]:
    """Replaces every sample by the median of its 3 x 3 neighbourhood, clipped to the image.

    image is uint16 or float32, (row, column), at least 2 x 2, or a cube of such images, (band, row, column).
    Calls KORVA_Ref_MF_Median2D_3x3_uint16 or KORVA_Ref_MF_Median2D_3x3_float, for a cube once per band.

    >>> median_filter_3x3(np.array([[1, 2], [3, 4]], np.uint16)).tolist()
    [[3, 3], [3, 3]]
    """
    return _filter("Median2D_3x3", image, 2, out)


def median_filter_5x5(image: NDArray[Sample], *, out: NDArray[Sample] | None = None) -> NDArray[Sample]:
    """Replaces every sample by the median of its 5 x 5 neighbourhood, clipped to the image.

    image is uint16 or float32, (row, column), at least 4 x 4, or a cube of such images, (band, row, column).
    Calls KORVA_Ref_MF_Median2D_5x5_uint16 or KORVA_Ref_MF_Median2D_5x5_float, for a cube once per band.

    >>> median_filter_5x5(np.arange(1, 17, dtype=np.float32).reshape(4, 4))[0].tolist()
    [6.0, 6.5, 6.5, 7.0]
    """
    return _filter("Median2D_5x5", image, 4, out)
