"""Bias correction, correction coefficients from a white reference, and reflectance."""

from __future__ import annotations

import math
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ._arrays import (
    FLOAT64, SAMPLES, SUFFIX, UINT16, Sample, array, count, fail, output, real, run, same_shape, sample,
)
from ._library import call

INVALID_COEFFICIENT = float(np.finfo(np.float64).max)
"""Marks a pixel whose white reference gives no coefficient."""


def correct_bias(
    frame: NDArray[Sample], bias: NDArray[Sample], *, out: NDArray[Sample] | None = None
) -> NDArray[Sample]:
    """Subtracts a bias frame: frame - bias, for uint16 not below 0.

    Both have one sample type, uint16 or float32, and one shape of any number of dimensions; out may be either of them.
    Calls KORVA_Ref_RC_CorrectBias_uint16 or KORVA_Ref_RC_CorrectBias_float.

    >>> correct_bias(np.array([120, 100], np.uint16), np.array([100, 120], np.uint16)).tolist()
    [20, 0]
    """
    view = array("frame", frame, SAMPLES)
    dtype = view.dtype.newbyteorder("=")
    other = array("bias", bias, (dtype,))
    same_shape("bias", other, view.shape)
    target = output(out, view.shape, dtype, onto=(view, other))
    if target.size:
        call(f"KORVA_Ref_RC_CorrectBias_{SUFFIX[dtype]}", run(target), run(view), run(other), target.size)
    return target if out is None else out


def correction_coefficients(
    white: NDArray[Sample], factor1: float, factor2: float, flag_value: float, *, out: NDArray[np.float64] | None = None
) -> NDArray[np.float64]:
    """Computes factor1 * factor2 / white for each pixel of a bias-corrected white reference, as float64.

    Pixels where white is flag_value or not above 0 get INVALID_COEFFICIENT. white is uint16 or float32, of any shape.
    Calls KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16 or KORVA_Ref_RC_ComputeCorrectionCoefficients_float.

    >>> white = np.array([4096, 0], np.uint16)
    >>> correction_coefficients(white, 0.5, 2.0, flag_value=65535).tolist()
    [0.000244140625, 1.7976931348623157e+308]
    """
    view = array("white", white, SAMPLES)
    dtype = view.dtype.newbyteorder("=")
    factor1, factor2, flag = real("factor1", factor1), real("factor2", factor2), sample("flag_value", flag_value, dtype)
    target = output(out, view.shape, FLOAT64, apart=(view,))
    if target.size:
        call(f"KORVA_Ref_RC_ComputeCorrectionCoefficients_{SUFFIX[dtype]}", run(target), run(view), target.size,
             factor1, factor2, flag)
    return target if out is None else out


def reflectance(
    frame: NDArray[Sample], coefficients: NDArray[np.float64], divisor: float, flag_value: float, limit_value: float,
    full_scale: int | None = None, *, out: NDArray[Sample] | None = None,
) -> NDArray[Sample]:
    """Computes reflectance from a bias-corrected frame: frame * coefficients / divisor.

    frame is uint16 or float32 and of any shape, coefficients float64 of the same shape; the result has the frame's type
    and may be the frame itself. For uint16, full_scale is the result that stands for reflectance 1.0, and the largest;
    for float32 there is no such argument, and results are reflectances without a limit. divisor is positive and finite,
    for example the ratio of the exposures of frame and white. Samples equal to flag_value stay so, samples at or above
    limit_value give limit_value; where the coefficient is INVALID_COEFFICIENT, 0 gives 0 and any other flag_value.
    Calls KORVA_Ref_RC_ComputeReflectance_uint16 or KORVA_Ref_RC_ComputeReflectance_float.

    >>> frame, coefficients = np.array([1024, 5000], np.uint16), np.array([1 / 4096, 1 / 4096])
    >>> reflectance(frame, coefficients, 1.0, flag_value=65535, limit_value=65535, full_scale=10000).tolist()
    [2500, 10000]
    """
    view = array("frame", frame, SAMPLES)
    dtype = view.dtype.newbyteorder("=")
    divisor = real("divisor", divisor)
    if not 0 < divisor < math.inf:
        fail("divisor", "a positive, finite number", divisor)
    values: tuple[float, ...] = (sample("flag_value", flag_value, dtype), sample("limit_value", limit_value, dtype))
    if dtype == UINT16:
        if full_scale is None:
            fail("full_scale", "the result that stands for reflectance 1.0, as the frame is uint16", None, TypeError)
        values = (count("full_scale", full_scale, 0, 65535), *values)
    elif full_scale is not None:
        fail("full_scale", "no such argument, as the frame is float32", full_scale, TypeError)
    weights = array("coefficients", coefficients, (FLOAT64,))
    same_shape("coefficients", weights, view.shape)
    target = output(out, view.shape, dtype, onto=(view,), apart=(weights,))
    if target.size:
        call(f"KORVA_Ref_RC_ComputeReflectance_{SUFFIX[dtype]}", run(target), run(view), run(weights), target.size,
             divisor, *values)
    return target if out is None else out
