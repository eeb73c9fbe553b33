"""Bilinear demosaicing: the band images of a snapshot mosaic, resampled at one common point of the mosaic cell."""

from __future__ import annotations

import ctypes
import math
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from ._arrays import (
    FLOAT64, Resampled, SUFFIX, UINT16, UNSIGNED_INT, array, count, fail, is_planes, output, real, run, table,
)
from ._library import ask, call


def filter_position(mosaic_width: int, band: int) -> tuple[int, int]:
    """Row and column of a band's filter in the mosaic cell, in sensor pixels from its top-left pixel.

    Calls KORVA_Ref_DM_ComputeFilterPosition.

    >>> filter_position(mosaic_width=4, band=6)
    (1, 2)
    """
    mosaic_width = count("mosaic_width", mosaic_width, 1, UNSIGNED_INT)
    band = count("band", band, 0, UNSIGNED_INT)
    row, column = ctypes.c_uint(), ctypes.c_uint()
    ask("KORVA_Ref_DM_ComputeFilterPosition", ctypes.addressof(row), ctypes.addressof(column), mosaic_width, band)
    return row.value, column.value


def target_position_relative_to_filter_position(
    filter_row: int, filter_column: int, target_row: float, target_column: float
) -> tuple[float, float]:
    """Row and column offset of the target point from a filter, in sensor pixels.

    Calls KORVA_Ref_DM_ComputeTargetPositionRelativeToFilterPosition.

    >>> target_position_relative_to_filter_position(1, 2, target_row=1.5, target_column=1.5)
    (0.5, -0.5)
    """
    filter_row = count("filter_row", filter_row, 0, UNSIGNED_INT)
    filter_column = count("filter_column", filter_column, 0, UNSIGNED_INT)
    target_row, target_column = real("target_row", target_row), real("target_column", target_column)
    row, column = ctypes.c_double(), ctypes.c_double()
    ask("KORVA_Ref_DM_ComputeTargetPositionRelativeToFilterPosition", ctypes.addressof(row), ctypes.addressof(column),
        filter_row, filter_column, target_row, target_column)
    return row.value, column.value


def bilinear_coefficients(
    *, mosaic_height: int, mosaic_width: int, row_offset: float, column_offset: float
) -> NDArray[np.float64]:
    """The four bilinear weights of an offset: top-left, top-right, bottom-left, bottom-right.

    Offsets are in sensor pixels; those of a cell's height or width and beyond extrapolate.
    Calls KORVA_Ref_DM_ComputeCoefficientsBilinear.

    >>> bilinear_coefficients(mosaic_height=4, mosaic_width=4, row_offset=1.5, column_offset=-0.5).tolist()
    [0.078125, 0.546875, 0.046875, 0.328125]
    """
    mosaic_height = count("mosaic_height", mosaic_height, 1, UNSIGNED_INT)
    mosaic_width = count("mosaic_width", mosaic_width, 1, UNSIGNED_INT)
    count("mosaic_height * mosaic_width", mosaic_height * mosaic_width, 1, UNSIGNED_INT)
    row_offset, column_offset = real("row_offset", row_offset), real("column_offset", column_offset)
    weights = np.empty(4)
    ask("KORVA_Ref_DM_ComputeCoefficientsBilinear", run(weights), mosaic_height, mosaic_width, row_offset,
        column_offset)
    return weights


def apply_demosaicing_bilinear(
    band_image: NDArray[Resampled], weights: ArrayLike, row_offset: float, column_offset: float, *,
    out: NDArray[Resampled] | None = None,
) -> NDArray[Resampled]:
    """Resamples a band image of uint16 or float64, (row, column), with four bilinear weights.

    Of the offsets only the signs count: a negative one moves the interpolation square one band row up or one band
    column left. They must not be NaN. The image has at least 1 row and 1 column.
    Calls KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16 or KORVA_Ref_DM_ApplyDemosaicingBilinear_dbl.

    >>> image = np.array([[1, 2], [3, 4]], np.float64)
    >>> apply_demosaicing_bilinear(image, [0.25, 0.25, 0.25, 0.25], 0.5, 0.5).tolist()
    [[2.5, 3.0], [3.5, 4.0]]
    """
    row_offset, column_offset = real("row_offset", row_offset), real("column_offset", column_offset)
    for name, offset in (("row_offset", row_offset), ("column_offset", column_offset)):
        if math.isnan(offset):
            fail(name, "a number", offset)
    four = table("weights", weights, 1)
    if four.size != 4:
        fail("weights", "4 numbers", four.size)
    view = array("band_image", band_image, (UINT16, FLOAT64), 2)
    height, width = (count(f"band_image {name}", size, 1, UNSIGNED_INT) for name, size in
                     zip(("rows", "columns"), view.shape))
    dtype = view.dtype.newbyteorder("=")
    target = output(out, view.shape, dtype, apart=(view, four))
    call(f"KORVA_Ref_DM_ApplyDemosaicingBilinear_{SUFFIX[dtype]}", run(target), run(view), height, width, run(four),
         row_offset, column_offset)
    return target if out is None else out


def demosaic_cube(
    cube: NDArray[Resampled], *, mosaic_width: int, mosaic_height: int, target_row: float, target_column: float,
    out: NDArray[Resampled] | None = None,
) -> NDArray[Resampled]:
    """Resamples all band images of a snapshot mosaic, (band, row, column), at one target point of the mosaic cell.

    Does for each band what the four functions above do one after another. The target lies inside the cell, in sensor
    pixels from its top-left pixel; the cell's middle is row (mosaic_height - 1) / 2, column (mosaic_width - 1) / 2.

    >>> cube = np.array([[[0, 4]], [[1, 5]]], np.float64)  # a frame of one row: 0 1 4 5
    >>> demosaic_cube(cube, mosaic_width=2, mosaic_height=1, target_row=0, target_column=1)[:, 0, 0].tolist()
    [2.0, 1.0]
    """
    mosaic_width = count("mosaic_width", mosaic_width, 1, UNSIGNED_INT)
    mosaic_height = count("mosaic_height", mosaic_height, 1, UNSIGNED_INT)
    target_row, target_column = real("target_row", target_row), real("target_column", target_column)
    if not 0 <= target_row < mosaic_height or not 0 <= target_column < mosaic_width:
        fail("target", f"a row from 0 to below {mosaic_height} and a column from 0 to below {mosaic_width}",
             (target_row, target_column))
    view = array("cube", cube, (UINT16, FLOAT64), 3)
    if len(view) != mosaic_width * mosaic_height:
        fail("cube", f"{mosaic_width * mosaic_height} bands", len(view))
    target = output(out, view.shape, view.dtype.newbyteorder("="), is_planes, apart=(view,))
    for band, (image, resampled) in enumerate(zip(view, target)):
        position = filter_position(mosaic_width, band)
        row, column = target_position_relative_to_filter_position(*position, target_row, target_column)
        weights = bilinear_coefficients(
            mosaic_height=mosaic_height, mosaic_width=mosaic_width, row_offset=row, column_offset=column)
        apply_demosaicing_bilinear(image, weights, row, column, out=resampled)
    return target if out is None else out
