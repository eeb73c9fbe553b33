"""Headerless raw files: samples exactly as they lie in memory, in this machine's byte order."""

from __future__ import annotations

import errno
import math
import os
import stat
import uuid
from contextlib import contextmanager
from typing import Any, Iterator, Sequence

import numpy as np
from numpy.typing import DTypeLike, NDArray

from ._arrays import count, fail, is_run, new, output, readable, run
from ._library import call


def path_of(argument: str, path: str | os.PathLike[str]) -> str:
    try:
        name = os.fspath(path)
    except TypeError:
        fail(argument, "a path", type(path).__name__, TypeError)
    if not isinstance(name, str):
        fail(argument, "a path as text", type(name).__name__, TypeError)
    if not name or "\0" in name:
        fail(argument, "a path", repr(name))
    return name


def require_file(path: str, size: int, what: str) -> None:
    status = os.stat(path)
    if not stat.S_ISREG(status.st_mode):
        fail(path, "a regular file", "something else")
    if status.st_size != size:
        fail(path, f"{size:,} bytes ({what})", f"{status.st_size:,} bytes")


@contextmanager
def replacing(path: str) -> Iterator[str]:
    """Names the file to write instead of path, which takes its place, and its mode, when the block ends well.

    A link is followed. What is no regular file, such as a device or a pipe, is itself the file to write.
    """
    target = os.path.realpath(path)
    beside = os.path.join(os.path.dirname(target), f".{os.path.basename(target)}.{uuid.uuid4().hex}")
    try:
        mode = os.stat(target).st_mode if os.path.lexists(target) else None
        if mode is not None and not stat.S_ISREG(mode):
            yield target
            return
        if mode is not None and not os.access(target, os.W_OK):
            raise PermissionError(errno.EACCES, os.strerror(errno.EACCES), target)
        open(beside, "xb").close()
        try:
            if mode is not None:
                os.chmod(beside, stat.S_IMODE(mode))
            yield beside
            os.replace(beside, target)
        except BaseException:
            os.unlink(beside)
            raise
    except OSError as error:
        if error.filename in (beside, target):
            error.filename, error.filename2 = path, None
        raise


def _sample_type(dtype: DTypeLike) -> np.dtype[Any]:
    try:
        sample_type = np.dtype(dtype)
    except (TypeError, ValueError):
        fail("dtype", "a number type", repr(dtype), TypeError)
    if sample_type.kind not in "iufc" or not sample_type.isnative:
        fail("dtype", "a number type in this machine's byte order", sample_type, TypeError)
    return sample_type


def read_raw_data(
    path: str | os.PathLike[str], shape: int | tuple[int, ...], dtype: DTypeLike, *, offset: int = 0,
    out: NDArray[Any] | None = None,
) -> NDArray[Any]:
    """Reads a raw file into an array of the given shape and sample type; the file must hold exactly that.

    offset is the number of bytes before the samples, of a camera's own header. Calls KORVA_Ref_ReadRawDataFromDisk.

    >>> write_raw_data("counts.raw", np.arange(6, dtype=np.uint16))
    >>> read_raw_data("counts.raw", (2, 3), np.uint16).tolist()
    [[0, 1, 2], [3, 4, 5]]
    """
    name, sample_type = path_of("path", path), _sample_type(dtype)
    sizes = tuple(count("shape", size) for size in (shape if isinstance(shape, (tuple, list)) else (shape,)))
    samples, offset = math.prod(sizes), count("offset", offset)
    what = f"{offset} and " * bool(offset) + f"shape {sizes} of {sample_type}"
    require_file(name, offset + samples * sample_type.itemsize, what)
    target = output(out, sizes, sample_type) if out is not None else new(sizes, sample_type, clear=True)
    if offset:
        _read_at(name, offset, target)
    else:
        with open(name, "rb"):  # The library would keep a refusal to itself.
            call("KORVA_Ref_ReadRawDataFromDisk", run(target), b"", os.fsencode(name), samples, sample_type.itemsize)
    return target if out is None else out


def _read_at(path: str, start: int, target: NDArray[Any]) -> None:
    """By three calls of the system, or more from 2 GiB on: after each one, threads wait for the interpreter."""
    content, found = target.reshape(-1).view(np.uint8).data, 0
    handle = os.open(path, os.O_RDONLY | os.O_CLOEXEC)
    try:
        while found < target.nbytes and (more := os.preadv(handle, [content[found:]], start + found)):
            found += more
    finally:
        os.close(handle)
    if found != target.nbytes:
        fail(path, f"{target.nbytes:,} bytes from byte {start} on", f"{found:,} bytes")


class RawFrames(Sequence[NDArray[Any]]):
    """The frames of a raw file, each read when it is asked for: frames[7]. Made by open_frames."""

    def __init__(self, path: str, shape: tuple[int, ...], dtype: np.dtype[Any], offset: int, stride: int, number: int):
        self.path, self.shape, self.dtype = path, shape, dtype
        self._offset, self._stride, self._number = offset, stride, number

    def __len__(self) -> int:
        return self._number

    def __getitem__(self, index: Any) -> Any:
        if isinstance(index, slice):
            return [self[k] for k in range(*index.indices(self._number))]
        place = index + self._number if index < 0 else index
        if not 0 <= place < self._number:
            raise IndexError(f"frame: expected one of {self._number} frames, found {index}")
        return self.read(place, new(self.shape, self.dtype))

    def read(self, place: int, out: NDArray[Any]) -> NDArray[Any]:
        _read_at(self.path, self._offset + place * self._stride, out)
        return out


def open_frames(
    path: str | os.PathLike[str], shape: tuple[int, ...], dtype: DTypeLike = np.uint16, *, offset: int = 0,
    stride: int | None = None,
) -> RawFrames:
    """The frames of one raw file as a sequence, of which each is read when it is asked for.

    offset is the number of bytes before the first frame's samples, stride that from one frame's samples to the next's:
    more than a frame's own where each has a header. The file must end with a whole frame, or what follows each.

    >>> write_raw_data("scan.raw", np.arange(12, dtype=np.uint16))
    >>> frames = open_frames("scan.raw", (2, 3))
    >>> len(frames), frames[1].tolist()
    (2, [[6, 7, 8], [9, 10, 11]])
    """
    name, sample_type, offset = path_of("path", path), _sample_type(dtype), count("offset", offset)
    sizes = tuple(count("shape", size, 1) for size in shape)
    size = math.prod(sizes) * sample_type.itemsize
    stride = size if stride is None else count("stride", stride, size)
    status = os.stat(name)
    if not stat.S_ISREG(status.st_mode):
        fail(name, "a regular file", "something else")
    number, rest = divmod(status.st_size - offset, stride)
    if number < 0 or 0 < rest < size or not number + bool(rest):
        fail(name, f"whole frames of {size:,} bytes, {stride:,} apart, from byte {offset} on",
             f"{status.st_size:,} bytes")
    return RawFrames(name, sizes, sample_type, offset, stride, number + bool(rest))


def write_raw_data(path: str | os.PathLike[str], data: NDArray[Any]) -> None:
    """Writes an array's samples, row after row, to a raw file, which takes its name once it is complete.

    A file of that name keeps its mode, a link is followed, and a device or pipe is written to as it stands.
    Calls KORVA_Ref_WriteRawDataToDisk.

    >>> write_raw_data("counts.raw", np.array([[1, 2, 3], [4, 5, 6]], np.uint16))
    >>> open("counts.raw", "rb").read()
    b'\\x01\\x00\\x02\\x00\\x03\\x00\\x04\\x00\\x05\\x00\\x06\\x00'
    """
    name = path_of("path", path)
    if not isinstance(data, np.ndarray) or isinstance(data, np.ma.MaskedArray):
        fail("data", "a NumPy array", type(data).__name__, TypeError)
    _sample_type(data.dtype.newbyteorder("="))
    with replacing(name) as file:
        write_samples(file, data, name)


def write_samples(file: str, data: NDArray[Any], name: str) -> None:
    """Fills a file that takes the place of the named one, or a device."""
    view = readable(np.ndarray.view(data, np.ndarray), is_run)
    if not os.path.isfile(file):
        with open(file, "wb") as device:  # Not through the library, which would keep a failure to itself.
            device.write(view.reshape(-1).view(np.uint8).data)
        return
    call("KORVA_Ref_WriteRawDataToDisk", run(view), b"", os.fsencode(file), view.size, view.itemsize)
    found = os.path.getsize(file)
    if found != view.nbytes:
        raise OSError(f"{name}: expected to write {view.nbytes:,} bytes, {found:,} were written; is the disk full?")
