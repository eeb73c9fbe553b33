"""Operations on float32 images: difference, sum, mix, 7 x 7 kernel and colour conversion."""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from ._arrays import (
    FLOAT32, array, fail, first_row, is_planes, is_rows, output, planes, real, rows, run, same_shape, table,
)
from ._library import call

Image = NDArray[np.float32]


def _pixelwise(name: str, a: Image, b: Image, out: Image | None, *parameters: float) -> Image:
    first, second = array("a", a, (FLOAT32,), 2), array("b", b, (FLOAT32,), 2)
    same_shape("b", second, first.shape)
    target = output(out, first.shape, FLOAT32, onto=(first, second))
    if target.size:
        height, width = target.shape
        call(name, first_row(target), first_row(first), first_row(second), width, height, *parameters)
    return target if out is None else out


def subtract(a: Image, b: Image, *, out: Image | None = None) -> Image:
    """Subtracts two images of float32, (row, column): a - b. out may be a or b. Calls KORVA_Ref_Subtract_float.

    >>> subtract(np.array([[3, 1]], np.float32), np.array([[1, 2]], np.float32)).tolist()
    [[2.0, -1.0]]
    """
    return _pixelwise("KORVA_Ref_Subtract_float", a, b, out)


def add(a: Image, b: Image, *, out: Image | None = None) -> Image:
    """Adds two images of float32, (row, column): a + b. out may be a or b. Calls KORVA_Ref_Add_float.

    >>> add(np.array([[3, 1]], np.float32), np.array([[1, 2]], np.float32)).tolist()
    [[4.0, 3.0]]
    """
    return _pixelwise("KORVA_Ref_Add_float", a, b, out)


def mix(a: Image, b: Image, weight: float, *, out: Image | None = None) -> Image:
    """Mixes two images of float32, (row, column): a * weight + b * (1 - weight). out may be a or b.

    weight is the share of a; values outside 0 to 1 extrapolate. Calls KORVA_Ref_Mix_float.

    >>> mix(np.array([[1]], np.float32), np.array([[3]], np.float32), weight=0.25).tolist()
    [[2.5]]
    """
    return _pixelwise("KORVA_Ref_Mix_float", a, b, out, real("weight", weight))


def kernel_weights(kernel: ArrayLike) -> NDArray[np.float64]:
    weights = table("kernel", kernel, 1, 2)
    if weights.shape not in ((7, 7), (49,)):
        fail("kernel", "7 x 7 weights", f"shape {weights.shape}")
    return weights


def apply_kernel_7x7(image: Image, kernel: ArrayLike, *, out: Image | None = None) -> Image:
    """Filters an image of float32, (row, column), with a 7 x 7 kernel: a correlation, neither flipped nor normalised.

    The 3-sample margin on every side, where the kernel would leave the image, keeps what out held; it is 0 in a new
    result. Images of fewer than 7 rows or columns are all margin. Calls KORVA_Ref_ApplyKernel7x7_float.

    >>> image = np.arange(49, dtype=np.float32).reshape(7, 7)
    >>> float(apply_kernel_7x7(image, np.full((7, 7), 1 / 49))[3, 3])
    24.0
    """
    weights = kernel_weights(kernel)
    view = array("image", image, (FLOAT32,), 2)
    target = output(out, view.shape, FLOAT32, is_rows, apart=(view, weights), clear=True)
    height, width = view.shape
    if target.size:
        call("KORVA_Ref_ApplyKernel7x7_float", rows(target), rows(view), width, height, run(weights))
    return target if out is None else out


def _convert(name: str, image: Image, kb: float, kr: float, out: Image | None, in_place: bool) -> Image:
    kb, kr = real("kb", kb), real("kr", kr)
    view = array("image", image, (FLOAT32,), 3)
    if len(view) != 3:
        fail("image", "3 planes, (plane, row, column)", f"shape {view.shape}")
    inputs: Any = {"onto": (view,)} if in_place else {"apart": (view,)}
    target = output(out, view.shape, FLOAT32, is_planes, **inputs)
    if target.size:
        _, height, width = view.shape
        call(name, planes(target, all_rows=False), planes(view, all_rows=False), width, height, kb, kr)
    return target if out is None else out


def rgb_to_ycbcr(image: Image, kb: float, kr: float, *, out: Image | None = None) -> Image:
    """Converts planes R, G, B of float32, (plane, row, column), to luma Y and colour differences Cb, Cr.

    kb and kr are the luma weights of blue and red: 0.114 and 0.299 for BT.601, 0.0722 and 0.2126 for BT.709. Planes
    after the third are not used. out must be memory apart from image. Calls KORVA_Ref_RGBToYCbCr_float.

    >>> red = np.array([[[1]], [[0]], [[0]]], np.float32)
    >>> rgb_to_ycbcr(red, kb=0.25, kr=0.25).ravel().tolist()
    [0.25, -0.1666666716337204, 0.5]
    """
    return _convert("KORVA_Ref_RGBToYCbCr_float", image, kb, kr, out, in_place=False)


def ycbcr_to_rgb(image: Image, kb: float, kr: float, *, out: Image | None = None) -> Image:
    """Converts planes Y, Cb, Cr of float32, (plane, row, column), to R, G, B. out may be image itself.

    kb and kr are the luma weights of blue and red. Planes after the third are not used.
    Calls KORVA_Ref_YCbCrToRGB_float.

    >>> grey = np.array([[[0.5]], [[0]], [[0]]], np.float32)
    >>> ycbcr_to_rgb(grey, kb=0.25, kr=0.25).ravel().tolist()
    [0.5, 0.5, 0.5]
    """
    return _convert("KORVA_Ref_YCbCrToRGB_float", image, kb, kr, out, in_place=True)
