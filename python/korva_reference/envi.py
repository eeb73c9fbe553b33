"""ENVI raw files with their text header, as Spectral Python, GDAL, QGIS and ENVI itself open them.

In Python a cube is always (band, row, column), whatever order its file has.
"""

from __future__ import annotations

import math
import os
import re
import sys
import warnings
from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence

import numpy as np
from numpy.typing import NDArray

from ._arrays import count, fail, real, require_memory
from .raw_files import path_of, replacing, require_file, write_samples

_TYPES = {
    number: np.dtype(name) for number, name in
    {1: "u1", 2: "i2", 3: "i4", 4: "f4", 5: "f8", 6: "c8", 9: "c16", 12: "u2", 13: "u4", 14: "i8", 15: "u8"}.items()
}
_NUMBERS = {dtype: number for number, dtype in _TYPES.items()}
# File order of the axes (band, row, column) for each interleave.
_AXES = {"bsq": (0, 1, 2), "bil": (1, 0, 2), "bip": (1, 2, 0)}
_MACHINE = 0 if sys.byteorder == "little" else 1


@dataclass
class Header:
    """What an ENVI header says; it can be changed, and given to write.

    default_bands count from 0 here, and from 1 in the file. others has all further fields, a list for each in braces.
    """

    samples: int
    lines: int
    bands: int
    dtype: np.dtype[Any]
    interleave: str
    header_offset: int = 0
    wavelength: list[float] = field(default_factory=list)
    wavelength_units: str = ""
    default_bands: list[int] = field(default_factory=list)
    description: str = ""
    others: dict[str, str | list[str]] = field(default_factory=dict)
    # Each field as the file spells it, name and value, in the file's order: what was not changed is written so again.
    spelling: dict[str, tuple[str, str]] = field(default_factory=dict, repr=False, compare=False)


_KNOWN = ("description", "default bands", "wavelength units", "wavelength")

# Endings of data files that a header without one may describe.
_ENDINGS = ("", ".raw", ".img", ".dat", ".bin", ".bsq", ".bil", ".bip")


def _header_of(data: str) -> str:
    """The header of a data file: cube.raw.hdr, or cube.hdr unless that describes another file of this name."""
    base, ending = os.path.splitext(data)
    others = (base + other for other in _ENDINGS if other != ending)
    if os.path.exists(f"{data}.hdr") or any(os.path.isfile(o) and not os.path.exists(f"{o}.hdr") for o in others):
        return f"{data}.hdr"
    return f"{base}.hdr"


def _paths(path: str | os.PathLike[str]) -> tuple[str, str]:
    """The data file and the header file of a cube that is named by either."""
    name = path_of("path", path)
    base, ending = os.path.splitext(name)
    if ending.lower() != ".hdr":
        header = _header_of(name)
        # Of two files and one header, only the size of the samples tells which one it describes.
        return name, header if os.path.exists(header) else f"{base}.hdr"
    described = [base + other for other in _ENDINGS if os.path.isfile(base + other)]
    for data in (*(data for data in described if not os.path.exists(f"{data}.hdr")), *described):
        return data, name
    raise FileNotFoundError(f"{name}: expected its data file beside it, such as {base}.raw, found none")


def _fields(path: str) -> dict[str, tuple[str, str]]:
    # Bytes that are not UTF-8 are carried along.
    with open(path, encoding="utf-8-sig", errors="surrogateescape") as file:
        text = file.read(1 << 24)
    if text.split("\n", 1)[0].strip().upper() != "ENVI":
        fail(path, "ENVI in the first line", repr(text[:20]))
    text = re.sub(r"^;.*$", "", text, flags=re.MULTILINE)
    found = re.findall(r"^([^=\n{}]+)=[ \t]*(\{[^}]*\}|[^\n]*)", text, flags=re.MULTILINE)
    return {name.strip().lower(): (name.strip(), value.strip()) for name, value in found}


def _several(argument: str, values: Any) -> list[Any]:
    try:
        return list(values)
    except TypeError:
        fail(argument, "a sequence of numbers", type(values).__name__, TypeError)


def _band(text: str) -> int:
    number = float(text)
    if not number.is_integer():
        raise ValueError(text)
    return int(number) - 1


def _value(key: str, text: str, bands: int) -> Any:
    """What the text of a field stands for. Wavelengths and default bands that cannot be those of the bands are []."""
    inner = text.strip("{} \t\n")
    items = [item.strip() for item in inner.split(",")]
    if key not in ("wavelength", "default bands"):
        return items if text.startswith("{") and key != "description" else inner
    try:
        if key == "wavelength":
            wavelength = [float(item) for item in items if item]
            return wavelength if len(wavelength) == bands else []
        shown = [_band(item) for item in items if item]
        return shown if all(0 <= band < bands for band in shown) else []
    except ValueError:
        return []


def read_header(path: str | os.PathLike[str]) -> Header:
    """Reads the header of a cube that is named by its data file or its header."""
    _, hdr = _paths(path)
    spelling = _fields(hdr)
    values = {key: text for key, (_, text) in spelling.items()}

    def whole(key: str, default: str | None = None, least: int = 0) -> int:
        text = values.pop(key, default)
        if text is None:
            fail(hdr, f"a line '{key} = ...'", "none")
        if not text.isdecimal() or len(text) > 18 or int(text) < least:
            fail(hdr, f"a whole number of at least {least} as '{key}'", repr(text))
        return int(text)

    samples, lines, bands = (whole(key, least=1) for key in ("samples", "lines", "bands"))
    data_type = whole("data type")
    if data_type not in _TYPES:
        fail(hdr, f"a data type among {sorted(_TYPES)}", data_type)
    dtype = _TYPES[data_type]
    byte_order = whole("byte order", "0" if dtype.itemsize == 1 else None)
    if byte_order > 1:
        fail(hdr, "a byte order of 0 or 1", byte_order)
    interleave = values.pop("interleave", "bsq" if bands == 1 else "none").lower()
    if interleave not in _AXES:
        fail(hdr, "an interleave of bsq, bil or bip", interleave)
    header = Header(samples, lines, bands, dtype.newbyteorder("<" if byte_order == 0 else ">"), interleave,
                    whole("header offset", "0"), spelling=spelling)
    for key in ("wavelength", "default bands"):
        text = values.get(key, "")
        if text.strip("{} \t\n") and not _value(key, text, bands):
            warnings.warn(f"{hdr}: '{key}' does not fit {bands} bands and is passed over", stacklevel=2)
    for key in _KNOWN:
        if key in values:
            setattr(header, key.replace(" ", "_"), _value(key, values.pop(key), bands))
    header.others = {key: _value(key, text, bands) for key, text in values.items()}
    return header


def read(path: str | os.PathLike[str], *, memory_map: bool = False) -> tuple[NDArray[Any], Header]:
    """Reads a cube, (band, row, column), and its header; path names the data file or the header.

    With memory_map samples are read when they are used, from an array that cannot be written; its axes may lie in
    another order in memory, its byte order is the file's, and the file must keep its size as long as the array lives.
    Without it the array is band-sequential and this machine's.

    >>> write("cube.raw", np.zeros((3, 4, 5), np.float32), wavelength=[450, 550, 650])
    >>> cube, header = read("cube.raw")
    >>> cube.shape, header.wavelength, header.wavelength_units
    ((3, 4, 5), [450.0, 550.0, 650.0], 'Nanometers')
    """
    data, _ = _paths(path)
    header = read_header(path)
    sizes, axes = (header.bands, header.lines, header.samples), _AXES[header.interleave]
    size = math.prod(sizes) * header.dtype.itemsize
    require_file(data, header.header_offset + size,
                 f"{header.header_offset} + {' x '.join(map(str, sizes))} bands, lines, samples of {header.dtype}")
    in_file = tuple(sizes[axis] for axis in axes)
    if memory_map:
        mapped = np.memmap(data, header.dtype, "r", header.header_offset, in_file)
        return np.asarray(mapped).transpose(np.argsort(axes)), header
    require_memory("cube", size)
    # Not through a mapping: a file that another program cuts meanwhile would end this process.
    loaded = np.fromfile(data, header.dtype, math.prod(sizes), offset=header.header_offset)
    if loaded.nbytes != size:
        fail(data, f"{size:,} bytes of samples", f"{loaded.nbytes:,} bytes")
    cube = loaded.reshape(in_file).transpose(np.argsort(axes))
    return np.ascontiguousarray(cube, header.dtype.newbyteorder("=")), header


def write(
    path: str | os.PathLike[str], cube: NDArray[Any], *, header: Header | None = None, interleave: str | None = None,
    wavelength: Sequence[float] | NDArray[Any] | None = None, wavelength_units: str | None = None,
    default_bands: Sequence[int] | None = None, description: str | None = None,
    others: Mapping[str, str | Sequence[object]] | None = None,
) -> None:
    """Writes a cube, (band, row, column), or an image, (row, column), and its header beside it.

    The header of cube.raw is cube.hdr, or cube.raw.hdr where cube.hdr describes another file, such as cube.img. Both
    files take their names when they are complete. The samples are of an integer, float or complex type that ENVI
    knows. default_bands, one for grey or three for red, green and blue, count from 0. interleave is "bsq" unless it is
    given, and wavelength_units "Nanometers".

    header, as read gives it, has every field that is not given here; what describes the layout follows the array. Lists
    with an element for each band go, with a warning, when the array has another number of bands.

    >>> write("cube.raw", np.zeros((4, 5), np.uint16), description="a dark frame")
    >>> print(open("cube.hdr").read().splitlines()[2:5])
    ['samples = 5', 'lines = 4', 'bands = 1']
    """
    name = path_of("path", path)
    if name.lower().endswith(".hdr"):
        fail("path", "the name of the data file", name)
    if not isinstance(cube, np.ndarray) or cube.dtype.newbyteorder("=") not in _NUMBERS:
        found = getattr(cube, "dtype", type(cube).__name__)
        fail("cube", "an array of a sample type that ENVI knows", found, TypeError)
    if cube.ndim not in (2, 3) or not cube.size:
        fail("cube", "2 or 3 dimensions, none of them 0", f"shape {cube.shape}")
    if not isinstance(header, (Header, type(None))):
        fail("header", "a Header", type(header).__name__, TypeError)
    order = interleave if interleave is not None else header.interleave if header else "bsq"
    if not isinstance(order, str) or order.lower() not in _AXES:
        fail("interleave", "bsq, bil or bip", repr(order))
    for argument, text in (("description", description), ("wavelength_units", wavelength_units)):
        if not isinstance(text, (str, type(None))):
            fail(argument, "text", type(text).__name__, TypeError)
    planes = cube if cube.ndim == 3 else cube[np.newaxis]
    bands, lines, samples = planes.shape

    values: dict[str, Any] = {"description": description or (header and header.description) or os.path.basename(name)}
    values |= {
        "samples": samples, "lines": lines, "bands": bands, "header offset": 0, "file type": "ENVI Standard",
        "data type": _NUMBERS[cube.dtype.newbyteorder("=")], "interleave": order.lower(), "byte order": _MACHINE,
    }
    layout = (*values, "default bands", "wavelength units", "wavelength")
    names = {key: name for key, (name, _) in header.spelling.items()} if header else {}
    if header:
        kept = {"default bands": header.default_bands, "wavelength units": header.wavelength_units,
                "wavelength": header.wavelength, **header.others}
        for key, value in kept.items():
            of_bands = key in ("default bands", "wavelength") or isinstance(value, list) and len(value) == header.bands
            if (key in values and key != "file type") or not (value or _is_spelled(header, key, value)):
                continue
            if of_bands and bands != header.bands:
                warnings.warn(f"{name}: '{key}' is for {header.bands} bands and is left out", stacklevel=2)
            else:
                values[key] = value
    if default_bands is not None:
        shown = [count("default_bands", band, 0, bands - 1) for band in _several("default_bands", default_bands)]
        if len(shown) not in (1, 3):
            fail("default_bands", "1 or 3 bands", len(shown))
        values["default bands"] = shown
    if wavelength is not None:
        numbers = [real("wavelength", value) for value in _several("wavelength", wavelength)]
        if len(numbers) != bands or not all(map(math.isfinite, numbers)):
            fail("wavelength", f"a finite number for each of {bands} bands", numbers)
        values["wavelength units"] = wavelength_units or values.get("wavelength units", "Nanometers")
        values["wavelength"] = numbers
    if not isinstance(others, (Mapping, type(None))):
        fail("others", "a mapping of names to values", type(others).__name__, TypeError)
    for key, value in (others or {}).items():
        if not isinstance(key, str) or re.search(r"[={}\n;]", key) or key.strip().lower() in ("", *layout):
            fail("others", "names of further header fields", repr(key))
        names[key.strip().lower()] = key.strip()
        values[key.strip().lower()] = value
    text_of = {key: _text(key, value, header) for key, value in values.items()}
    keys = sorted(text_of, key=lambda key: list(names).index(key) if key in names else len(names))
    content = "".join(["ENVI\n", *(f"{names.get(key, key)} = {text_of[key]}\n" for key in keys)])
    described = _header_of(name)
    with replacing(described) as beside, replacing(name) as file:
        with open(beside, "w", encoding="utf-8", errors="surrogateescape") as header_file:
            header_file.write(content)
        write_samples(file, planes.transpose(_AXES[order.lower()]), name)
        # Samples take their place first: whatever stops this process, no older header describes them.
        if os.path.isfile(described):
            os.unlink(os.path.realpath(described))


def _is_spelled(header: Header, key: str, value: Any) -> bool:
    """Whether the header that was read says this of a field, in its own spelling."""
    return key in header.spelling and _value(key, header.spelling[key][1], header.bands) == value


def _text(key: str, value: Any, header: Header | None) -> str:
    """A field's value as a header has it."""
    if header and _is_spelled(header, key, value):
        return header.spelling[key][1]
    if key == "description":
        value = [value]
    elif key == "default bands":
        value = [band + 1 for band in value]
    elif key == "wavelength":
        value = [f"{number:.10g}" if isinstance(number, float) else number for number in value]
    text = "{" + ", ".join(map(str, value)) + "}" if isinstance(value, (list, tuple)) else str(value)
    if "\n" in text or re.search(r"[{}]", text[1:-1] if text[:1] == "{" and text[-1:] == "}" else text):
        fail(key, "one line without braces inside", repr(text))
    return text
