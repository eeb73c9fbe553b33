"""Checks arguments, and makes the pointers that the library takes.

The library trusts its caller completely, so whatever these functions let through must be right.
"""

from __future__ import annotations

import ctypes
import math
import numbers
import operator
import os
from typing import Any, NoReturn, TypeVar

import numpy as np
from numpy.typing import NDArray

# The sample type of an array and of what is made of it.
Sample = TypeVar("Sample", np.uint16, np.float32)
Resampled = TypeVar("Resampled", np.uint16, np.float64)

UINT16, FLOAT32, FLOAT64 = np.dtype(np.uint16), np.dtype(np.float32), np.dtype(np.float64)
SUFFIX = {UINT16: "uint16", FLOAT32: "float", FLOAT64: "dbl"}
SAMPLES = (UINT16, FLOAT32)
UNSIGNED_INT, UNSIGNED_LONG = (2 ** (8 * ctypes.sizeof(kind)) - 1 for kind in (ctypes.c_uint, ctypes.c_ulong))

_MEMORY = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE")


def fail(argument: str, expected: str, found: object, error: type[Exception] = ValueError) -> NoReturn:
    raise error(f"{argument}: expected {expected}, found {found}")


def count(argument: str, value: Any, least: int = 0, most: int = UNSIGNED_LONG) -> int:
    """A whole number from least to most."""
    if isinstance(value, (bool, np.bool_)) or not hasattr(value, "__index__") or isinstance(value, np.ndarray):
        fail(argument, "a whole number", type(value).__name__, TypeError)
    number = operator.index(value)
    if not least <= number <= most:
        fail(argument, f"a whole number from {least} to {most}", number)
    return number


def real(argument: str, value: Any) -> float:
    """A number as double."""
    if not isinstance(value, numbers.Real) or isinstance(value, (bool, np.bool_)):
        fail(argument, "a number", type(value).__name__, TypeError)
    try:
        return float(value)
    except OverflowError:
        fail(argument, "a number in the range of double", "a larger one")


def sample(argument: str, value: Any, dtype: np.dtype[Any]) -> float:
    """A sample value of the given type; for float32 it is rounded to float by the call."""
    return count(argument, value, 0, 65535) if dtype == UINT16 else real(argument, value)


def require_memory(what: str, size: int) -> None:
    """Refuses what this machine can never hold, before the attempt makes the system kill the process."""
    if size > _MEMORY:
        raise MemoryError(f"{what}: needs {size:,} bytes, this machine has {_MEMORY:,}")


def new(shape: tuple[int, ...], dtype: np.dtype[Any], clear: bool = False) -> NDArray[Any]:
    # Sizes of 0 count as 1 here: NumPy refuses such shapes, too, when the other sizes are beyond all memory.
    require_memory("result", math.prod(max(size, 1) for size in shape) * dtype.itemsize)
    return np.zeros(shape, dtype) if clear else np.empty(shape, dtype)


def _name(dtypes: tuple[np.dtype[Any], ...]) -> str:
    return " or ".join(dtype.name for dtype in dtypes)


def array(argument: str, value: Any, dtypes: tuple[np.dtype[Any], ...], *dimensions: int) -> NDArray[Any]:
    """The array itself, of one of the types (in either byte order) and numbers of dimensions; nothing is copied yet."""
    if not isinstance(value, np.ndarray) or isinstance(value, np.ma.MaskedArray):
        fail(argument, "a NumPy array", type(value).__name__, TypeError)
    # A view of our own: its shape cannot change between the checks and the call.
    view = np.ndarray.view(value, np.ndarray)
    if view.dtype not in dtypes and view.dtype.newbyteorder() not in dtypes:
        # Of the types that are taken, the wanted one is probably of the same kind.
        alike = [dtype for dtype in dtypes if dtype.kind == view.dtype.kind] or list(dtypes)
        hint = f" ({argument}.astype(np.{alike[0]}) converts)" if view.dtype.kind in "iufb" else ""
        fail(argument, f"samples of {_name(dtypes)}", f"{view.dtype}{hint}", TypeError)
    if dimensions and view.ndim not in dimensions:
        fail(argument, f"{' or '.join(map(str, dimensions))} dimensions", view.ndim)
    return view


def table(argument: str, value: Any, *dimensions: int) -> NDArray[np.float64]:
    """Weights of any real type, as double."""
    try:
        view = np.asarray(value)
    except (TypeError, ValueError):
        fail(argument, "a table of real numbers", type(value).__name__, TypeError)
    if view.dtype.kind not in "iuf" or view.dtype.itemsize > 8 or isinstance(value, np.ma.MaskedArray):
        fail(argument, "real numbers", f"{type(value).__name__} of {view.dtype}", TypeError)
    if view.ndim not in dimensions:
        fail(argument, f"{' or '.join(map(str, dimensions))} dimensions", view.ndim)
    require_memory(argument, view.size * 8)
    return np.ascontiguousarray(view, np.float64).reshape(view.shape).view(np.ndarray)


def same_shape(argument: str, view: NDArray[Any], shape: tuple[int, ...]) -> None:
    if view.shape != shape:
        fail(argument, f"shape {shape}", view.shape)


# Layouts. A run is one contiguous block. Rows are contiguous each and may lie anywhere. Planes are runs each, and may
# lie anywhere. An array in another layout, byte order or alignment is copied when it is read and refused as output.


def is_run(view: NDArray[Any]) -> bool:
    return view.flags.c_contiguous


def is_rows(view: NDArray[Any]) -> bool:
    return view.shape[1] <= 1 or view.strides[1] == view.itemsize


def is_planes(view: NDArray[Any]) -> bool:
    return view.shape[0] == 0 or view[0].flags.c_contiguous


_LAYOUT = {is_run: "one contiguous block", is_rows: "contiguous rows", is_planes: "contiguous planes"}


def output(
    out: Any, shape: tuple[int, ...], dtype: np.dtype[Any], layout: Any = is_run, *,
    apart: tuple[NDArray[Any], ...] = (), onto: tuple[NDArray[Any], ...] = (), clear: bool = False, name: str = "out",
) -> NDArray[Any]:
    """The caller's output after all checks, or a new one.

    It may share no memory with the arrays of apart. It may be one of the arrays of onto, but not overlap them in part.
    """
    if out is None:
        return new(shape, dtype, clear)
    view = array(name, out, (dtype,), len(shape))
    same_shape(name, view, shape)
    if not view.dtype.isnative or not view.flags.aligned:
        fail(name, "samples in this machine's byte order and alignment", "others")
    if not view.flags.writeable:
        fail(name, "a writeable array", "a read-only one")
    # The second test finds rows or planes that lie on top of each other, as broadcasting makes them.
    pieces_apart = layout is is_run or shape[0] < 2 or abs(view.strides[0]) >= math.prod(shape[1:]) * view.itemsize
    if not layout(view) or not pieces_apart:
        fail(name, _LAYOUT[layout], f"strides {view.strides} for shape {shape}")
    for other in onto:
        if shares(view, other) and not (
            view.strides == other.strides and view.shape == other.shape and address(view) == address(other)
        ):
            fail(name, "an input array itself or memory apart from it", "an overlap in part")
    for other in apart:
        if shares(view, other):
            fail(name, "memory apart from the other arrays", "an overlap")
    return view


def shares(a: NDArray[Any], b: NDArray[Any]) -> bool:
    if not np.may_share_memory(a, b):
        return False
    try:
        return np.shares_memory(a, b, max_work=100_000)
    except np.TooHardError:
        return True


def address(view: NDArray[Any]) -> int:
    return int(view.__array_interface__["data"][0])


def _steps(start: int, step: int, number: int) -> NDArray[np.intp]:
    # Built by arange alone: each further operation of NumPy with a Python number costs as much as the whole range.
    return np.arange(start, start + number * step, step, np.intp) if step else np.full(number, start, np.intp)


class Pointer:
    """An address for ctypes, with everything that must live as long as it is used."""

    __slots__ = ("_as_parameter_", "owners")

    def __init__(self, view: NDArray[Any], *owners: Any) -> None:
        self._as_parameter_ = address(view)
        self.owners = (view, *owners)


def readable(view: NDArray[Any], layout: Any) -> NDArray[Any]:
    """The array itself if the library can read it as it lies, otherwise a copy that it can read."""
    if layout(view) and view.dtype.isnative and view.flags.aligned:
        return view
    require_memory("copy of an input", view.nbytes)
    return np.array(view, dtype=view.dtype.newbyteorder("="), order="C", copy=True)


def run(view: NDArray[Any]) -> Pointer:
    """To the first sample of a contiguous block."""
    return Pointer(readable(view, is_run))


def first_row(view: NDArray[Any]) -> Pointer:
    """To a table with just the first row pointer, for functions that walk an image as one block."""
    view = readable(view, is_run)
    return Pointer(np.array([address(view)], np.intp), view)


def rows(view: NDArray[Any]) -> Pointer:
    """To the row pointers of an image."""
    view = readable(view, is_rows)
    return Pointer(_steps(address(view), view.strides[0], view.shape[0]), view)


def planes(view: NDArray[Any], all_rows: bool = True) -> Pointer:
    """To the band table of a cube. Functions that walk a plane as one block need only its first row pointer."""
    view = readable(view, is_planes)
    bands, height = view.shape[:2]
    table_of_rows = _steps(address(view), view.strides[0], bands)
    if all_rows:
        table_of_rows = np.add.outer(table_of_rows, _steps(0, view.strides[1], height))
    table_of_bands = _steps(address(table_of_rows), table_of_rows.strides[0], bands)
    return Pointer(table_of_bands, table_of_rows, view)
