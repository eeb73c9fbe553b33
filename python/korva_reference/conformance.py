"""Cases to compare another implementation of the routines with: in another language, on a GPU or an FPGA.

    report = conformance.check("median_filter_3x3", my_filter)
    assert report, report

Cases are numbered, and the same wherever NumPy draws the same numbers. They have borders, odd sizes, every 16th wide
rows, ties, extremes, and NaN and zeros of both signs where a result is defined for them. What they expect is what this
package's routine gives.

    python -m korva_reference.conformance --export FOLDER [ROUTINE]...

writes them as raw files with an index, for those who do not call from Python.
"""

from __future__ import annotations

import argparse
import copy
import inspect
import json
import math
import os
import sys
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Callable, Iterable

import numpy as np
from numpy.typing import NDArray

import korva_reference as korva
from korva_reference import INVALID_COEFFICIENT

Arguments = dict[str, Any]

# Values where comparisons, rounding and conversion change their minds.
_UINT16_EDGES = np.array([0, 1, 2, 32767, 32768, 65534, 65535], np.uint16)
_FLOAT_EDGES = np.array([0.0, -0.0, 1e-45, -1.5, 0.5, 65535.5, 3.4e38, np.inf, -np.inf, np.nan])


class Draw:
    """The random choices of one case."""

    def __init__(self, seed: list[int], wide: bool) -> None:
        self.rng, self.wide = np.random.default_rng(seed), wide

    def size(self, least: int = 1, most: int = 14) -> int:
        return int(self.rng.integers(least, most))

    def columns(self, least: int = 1, most: int = 14) -> int:
        return self.size(2000, 9000) if self.wide else self.size(least, most)

    def sample_type(self, *types: str) -> np.dtype[Any]:
        return np.dtype(self.rng.choice(types or ("u2", "f4")))

    def samples(self, dtype: np.dtype[Any], shape: tuple[int, ...], edges: bool = True) -> NDArray[Any]:
        few = self.rng.random() < 0.3
        if dtype == np.uint16:
            values, special = self.rng.integers(0, 9 if few else 65536, shape).astype(dtype), _UINT16_EDGES
        else:
            values = (self.rng.random(shape) * (9 if few else 70000) - 2000 * (not few)).astype(dtype)
            values, special = np.trunc(values) if few else values, _FLOAT_EDGES.astype(dtype)
        if edges and self.rng.random() < 0.5:
            values = np.where(self.rng.random(shape) < 0.1, self.rng.choice(special, shape), values)
        return values


Maker = Callable[[Draw], Arguments]


def _crop_image(draw: Draw) -> Arguments:
    image = draw.samples(draw.sample_type(), (draw.size(), draw.columns()))
    top, left = (int(draw.rng.integers(0, n)) for n in image.shape)
    height, width = (int(draw.rng.integers(0, n - start + 1)) for n, start in zip(image.shape, (top, left)))
    return dict(image=image, left=left, top=top, width=width, height=height)


def _mosaic(draw: Draw) -> tuple[Any, Arguments]:
    cell = dict(mosaic_width=draw.size(1, 6), mosaic_height=draw.size(1, 6))
    return draw.samples(np.dtype("u2"), (draw.size(6, 30), draw.columns(6, 30))), cell


def _ssm_band_image(draw: Draw) -> Arguments:
    frame, cell = _mosaic(draw)
    cell["band"] = int(draw.rng.integers(0, cell["mosaic_width"] * cell["mosaic_height"]))
    return dict(frame=frame, **cell)


def _ssm_cube(draw: Draw) -> Arguments:
    frame, cell = _mosaic(draw)
    return dict(frame=frame, **cell)


def _sst_band_image(draw: Draw) -> Arguments:
    frame = draw.samples(np.dtype("u2"), (draw.size(6, 30), draw.columns(6, 30)))
    tile = dict(tile_width=draw.size(1, 6), tile_height=draw.size(1, 6))
    tiles = (frame.shape[1] // tile["tile_width"]) * (frame.shape[0] // tile["tile_height"])
    tile["band"] = int(draw.rng.integers(0, tiles))
    return dict(frame=frame, **tile)


def _band_image_strip(draw: Draw) -> Arguments:
    frame, strip_height = draw.samples(np.dtype("u2"), (draw.size(6, 20), draw.columns())), draw.size(0, 5)
    band = int(draw.rng.integers(0, frame.shape[0] // strip_height)) if strip_height else 3
    return dict(frame=frame, strip_height=strip_height, band=band)


def _correct_bias(draw: Draw) -> Arguments:
    dtype, shape = draw.sample_type(), (*(draw.size(1, 6) for _ in range(draw.size(0, 3))), draw.columns(1, 6))
    return dict(frame=draw.samples(dtype, shape), bias=draw.samples(dtype, shape))


def _correction_coefficients(draw: Draw) -> Arguments:
    white = draw.samples(draw.sample_type(), (draw.size(), draw.columns()))
    factors = dict(factor1=float(draw.rng.random()), factor2=float(draw.rng.random() * 3))
    return dict(white=white, **factors, flag_value=int(draw.rng.integers(0, 9)))


def _reflectance(draw: Draw) -> Arguments:
    dtype, shape = draw.sample_type(), (draw.size(), draw.columns())
    frame = draw.samples(dtype, shape)
    coefficients = draw.rng.random(shape) / 30000
    coefficients[draw.rng.random(shape) < 0.1] = INVALID_COEFFICIENT
    rest = dict(divisor=float(draw.rng.random() + 0.1), flag_value=int(draw.rng.integers(0, 9)), limit_value=60000)
    if dtype == np.uint16:
        rest["full_scale"] = int(draw.rng.integers(0, 65536))
    return dict(frame=frame, coefficients=coefficients, **rest)


def _matrix(draw: Draw, in_bands: int) -> Any:
    scale = draw.rng.choice([1.0, 1.0, 1e6])
    return (draw.rng.random((draw.size(0, 9), in_bands)) * 2 - 0.8) * scale / max(in_bands, 1)


def _apply_spectral_correction(draw: Draw) -> Arguments:
    shape = (*(draw.size(1, 6) for _ in range(draw.size(0, 2))), draw.columns(1, 6))[: draw.size(0, 3)]
    spectra = draw.samples(draw.sample_type(), (*shape, draw.size(0, 20)))
    return dict(spectra=spectra, matrix=_matrix(draw, spectra.shape[-1]))


def _apply_spectral_correction_bsq(draw: Draw) -> Arguments:
    cube = draw.samples(draw.sample_type(), (draw.size(0, 20), draw.size(1, 8), draw.columns(1, 8)))
    return dict(cube=cube, matrix=_matrix(draw, len(cube)))


def _bilinear_coefficients(draw: Draw) -> Arguments:
    p, q = draw.size(), draw.size()
    offsets = dict(row_offset=float(draw.rng.uniform(-p, p)), column_offset=float(draw.rng.uniform(-q, q)))
    return dict(mosaic_height=p, mosaic_width=q, **offsets)


def _filter_position(draw: Draw) -> Arguments:
    return dict(mosaic_width=draw.size(), band=draw.size(0, 200))


def _target_position_relative_to_filter_position(draw: Draw) -> Arguments:
    position, target = (draw.size(0), draw.size(0)), draw.rng.random(2) * 9
    names = ("filter_row", "filter_column", "target_row", "target_column")
    return dict(zip(names, (*position, *target.tolist())))


def _apply_demosaicing_bilinear(draw: Draw) -> Arguments:
    image = draw.samples(draw.sample_type("u2", "f8"), (draw.size(), draw.columns()))
    row_offset, column_offset = (float(draw.rng.choice([0.0, -0.0, 1.5, -0.5, np.inf])) for _ in range(2))
    weights = draw.rng.random(4) * draw.rng.choice([0.5, 0.5, 40]) * (draw.rng.random(4) < 0.9)
    return dict(band_image=image, weights=weights, row_offset=row_offset, column_offset=column_offset)


def _demosaic_cube(draw: Draw) -> Arguments:
    width, height = draw.size(1, 4), draw.size(1, 4)
    cube = draw.samples(draw.sample_type("u2", "f8"), (width * height, draw.size(1, 6), draw.columns(1, 6)))
    target = float(draw.rng.random() * height), float(draw.rng.random() * width)
    return dict(cube=cube, mosaic_width=width, mosaic_height=height, target_row=target[0], target_column=target[1])


def _median_1d(count: int | None) -> Maker:
    def make(draw: Draw) -> Arguments:
        # NaN has a defined fate in the networks only, and the place of equal zeros in a selection is open.
        return dict(values=draw.samples(draw.sample_type(), (count or draw.size(1, 40),), edges=count is not None))

    return make


def _median_filter(radius: int) -> Maker:
    def make(draw: Draw) -> Arguments:
        shape = (draw.size(2 * radius, 14), draw.columns(2 * radius, 20))
        dtype, planes = draw.sample_type(), draw.rng.integers(0, 3)
        return dict(image=draw.samples(dtype, (planes, *shape) if planes else shape, edges=dtype == np.uint16))

    return make


def _pixelwise(*parameters: str) -> Maker:
    def make(draw: Draw) -> Arguments:
        shape = (draw.size(), draw.columns())
        a, b = draw.samples(np.dtype("f4"), shape), draw.samples(np.dtype("f4"), shape)
        return dict(a=a, b=b, **{name: float(draw.rng.random() * 3 - 1) for name in parameters})

    return make


def _apply_kernel_7x7(draw: Draw) -> Arguments:
    image = draw.samples(np.dtype("f4"), (draw.size(1, 20), draw.columns(1, 20)))
    return dict(image=image, kernel=draw.rng.random((7, 7)))


def _conversion(draw: Draw) -> Arguments:
    image = draw.samples(np.dtype("f4"), (3, draw.size(), draw.columns()))
    return dict(image=image, kb=float(draw.rng.random() / 2), kr=float(draw.rng.random() / 2))


def _rgbx_frame(draw: Draw) -> Any:
    return draw.samples(np.dtype("f4"), (draw.size(6, 18), 4 * (draw.columns(8, 24) // 4)))


def _rgbx_compute_band(draw: Draw) -> Arguments:
    return dict(frame=_rgbx_frame(draw), band=str(draw.rng.choice(list("RGBX"))))


def _rgbx_demosaic_frame(draw: Draw) -> Arguments:
    return dict(frame=_rgbx_frame(draw))


def _rgbx_compute_new_wli(draw: Draw) -> Arguments:
    bands = draw.samples(np.dtype("f4"), (4, draw.size(6, 18), draw.columns(6, 18)), edges=False)
    kernel, weight = draw.rng.random((7, 7)) / 30, float(draw.rng.random() * 1.5)
    return dict(bands=bands, kernel=kernel, kb=0.114, kr=0.299, weight=weight)


_ROUTINES: dict[str, Maker] = {
    "crop_image": _crop_image, "ssm_band_image": _ssm_band_image, "ssm_cube": _ssm_cube,
    "sst_band_image": _sst_band_image, "band_image_strip": _band_image_strip, "correct_bias": _correct_bias,
    "correction_coefficients": _correction_coefficients, "reflectance": _reflectance,
    "apply_spectral_correction": _apply_spectral_correction,
    "apply_spectral_correction_bsq": _apply_spectral_correction_bsq, "bilinear_coefficients": _bilinear_coefficients,
    "filter_position": _filter_position,
    "target_position_relative_to_filter_position": _target_position_relative_to_filter_position,
    "apply_demosaicing_bilinear": _apply_demosaicing_bilinear, "demosaic_cube": _demosaic_cube,
    "median_1d_9": _median_1d(9), "median_1d_25": _median_1d(25), "median_1d": _median_1d(None),
    "median_filter_3x3": _median_filter(1), "median_filter_5x5": _median_filter(2), "subtract": _pixelwise(),
    "add": _pixelwise(), "mix": _pixelwise("weight"), "apply_kernel_7x7": _apply_kernel_7x7,
    "rgb_to_ycbcr": _conversion, "ycbcr_to_rgb": _conversion, "rgbx_compute_band": _rgbx_compute_band,
    "rgbx_demosaic_frame": _rgbx_demosaic_frame, "rgbx_compute_new_wli": _rgbx_compute_new_wli,
}
ROUTINES = tuple(_ROUTINES)


def case(routine: str, number: int) -> tuple[Arguments, Any]:
    """The arguments of a numbered case, by name, and what the package's routine of that name gives for them."""
    if routine not in _ROUTINES:
        raise ValueError(f"routine: expected one of {', '.join(ROUTINES)}, found {routine!r}")
    arguments = _ROUTINES[routine](Draw([number, ROUTINES.index(routine)], number % 16 == 15))
    return arguments, getattr(korva, routine)(**copy.deepcopy(arguments))


def difference(result: Any, expected: Any, tolerance: float = 0.0) -> str:
    """Where and by how much a result differs, or nothing.

    Without a tolerance all bits are equal, or both are NaN: the sign and payload of one that arithmetic makes are the
    processor's.
    """
    result, expected = np.asarray(result), np.asarray(expected)
    if (result.dtype, result.shape) != (expected.dtype, expected.shape):
        return f"got {result.dtype} of shape {result.shape}, expected {expected.dtype} of shape {expected.shape}"
    bits = f"u{expected.dtype.itemsize}"
    got, wanted = (np.ascontiguousarray(values).view(bits).reshape(values.shape) for values in (result, expected))
    same = got == wanted
    with np.errstate(all="ignore"):
        if expected.dtype.kind == "f":
            same |= np.isnan(result) & np.isnan(expected)
        if tolerance:
            same |= np.abs(result.astype(np.float64) - expected.astype(np.float64)) <= tolerance
    if same.all():
        return ""
    first = tuple(int(k) for k in np.argwhere(~same)[0])
    hexadecimal = [f"0x{int(values[first]):0{2 * expected.dtype.itemsize}x}" for values in (got, wanted)]
    position = ", ".join(f"{name} {k}" for name, k in zip(("band", "row", "column")[-len(first):], first) if first)
    return (f"{position or 'value'}: got {hexadecimal[0]} ({result[first]}), expected {hexadecimal[1]} "
            f"({expected[first]}); {np.count_nonzero(~same)} of {same.size} samples differ")


@dataclass
class Report:
    """What check found: true if all cases agree, and as text the cases that do not."""

    routine: str
    cases: int
    differences: dict[int, str] = field(default_factory=dict)

    def __bool__(self) -> bool:
        return not self.differences

    def __str__(self) -> str:
        if self:
            return f"{self.routine}: all {self.cases} cases agree"
        number, first = next(iter(self.differences.items()))
        shapes = "; ".join(
            f"{name} {value.dtype} of shape {value.shape}" if isinstance(value, np.ndarray) else f"{name} {value!r}"
            for name, value in case(self.routine, number)[0].items())
        return (f"{self.routine}: {len(self.differences)} of {self.cases} cases differ; the first is case {number}\n"
                f"  {first}\n  {shapes}\n"
                f'  rerun: korva_reference.conformance.check("{self.routine}", function, cases=[{number}])')


def check(
    routine: str, function: Callable[..., Any], *, cases: int | Iterable[int] = 200, tolerance: float = 0.0
) -> Report:
    """Compares a function with the package's routine of this name, which has the same arguments.

    cases is how many are tried, from case 0 on, or their numbers. tolerance is the largest difference that counts as
    none; without it every bit counts. A function that raises an exception differs.

    >>> import korva_reference
    >>> bool(check("add", lambda a, b: a + b))
    True
    >>> print(str(check("add", lambda a, b: b - a, cases=[3])).splitlines()[0])
    add: 1 of 1 cases differ; the first is case 3
    """
    numbers = range(cases) if isinstance(cases, int) else list(cases)
    report = Report(routine, len(numbers))
    for number in numbers:
        arguments, expected = case(routine, number)
        parameters = inspect.signature(getattr(korva, routine)).parameters
        named = {name: arguments.pop(name) for name in list(arguments)
                 if parameters[name].kind is inspect.Parameter.KEYWORD_ONLY}
        try:
            with np.errstate(all="ignore"):
                found = difference(function(*arguments.values(), **named), expected, tolerance)
        except Exception as error:
            found = f"{type(error).__name__}: {error}"
        if found:
            report.differences[number] = found
    return report


def export(folder: str | os.PathLike[str], routines: Iterable[str] = ROUTINES, *, cases: int = 200) -> None:
    """Writes cases as raw files, and index.json with their arguments, shapes and sample types.

    Numbers are as Python writes them; those that JSON has not are the texts "inf", "-inf" and "nan".
    """
    index: dict[str, Any] = {"release": korva.__version__, "byte order": sys.byteorder, "cases": []}

    def described(value: Any, name: str) -> Any:
        if isinstance(value, (np.ndarray, np.generic, tuple)):
            view = np.asarray(value)
            path = Path(folder, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            korva.write_raw_data(path, view)
            return {"file": name, "shape": list(view.shape), "dtype": view.dtype.name}
        return str(value) if isinstance(value, float) and not math.isfinite(value) else value

    for routine in routines:
        for number in range(cases):
            arguments, expected = case(routine, number)
            stem = f"{routine}/{number:06d}"
            index["cases"].append({
                "routine": routine, "case": number, "expected": described(expected, f"{stem}/expected.raw"),
                "arguments": {name: described(value, f"{stem}/{name}.raw") for name, value in arguments.items()},
            })
    Path(folder, "index.json").write_text(json.dumps(index, indent=1, allow_nan=False) + "\n")


def main() -> None:
    parser = argparse.ArgumentParser(prog="python -m korva_reference.conformance", description="Writes cases as files.")
    parser.add_argument("--export", metavar="FOLDER", required=True, help="where raw files and index.json go")
    parser.add_argument("--cases", type=int, default=200, help="how many of each routine (%(default)s)")
    parser.add_argument("routines", nargs="*", metavar="ROUTINE", help="all unless some are named")
    options = parser.parse_args()
    if unknown := set(options.routines) - set(ROUTINES):
        parser.error(f"expected routines among {', '.join(ROUTINES)}, found {', '.join(sorted(unknown))}")
    export(options.export, options.routines or ROUTINES, cases=options.cases)


if __name__ == "__main__":
    main()
