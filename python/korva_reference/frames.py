"""Many raw frames to cubes, by threads here or by a cluster, left alone over a weekend: docs/frames.md tells all of it.

    python -m korva_reference.frames --frames FRAMES --white white.raw --output CUBES

Every result is kept with what it depends on. A second run computes what is missing, failed or out of date.
"""

from __future__ import annotations

import argparse
import concurrent.futures
import contextlib
import csv
import fcntl
import functools
import glob
import hashlib
import importlib
import json
import os
import pickle
import re
import socket
import sys
import tempfile
import threading
import time
import uuid
from contextlib import ExitStack, contextmanager
from dataclasses import dataclass, field, replace
from pathlib import Path
from typing import Any, Callable, Iterator, NamedTuple

import numpy as np
from numpy.typing import NDArray

import korva_reference as korva

from ._library import repeatable, step
from .raw_files import RawFrames, replacing
from .roads import flag_pixels

MEDIAN = {3: korva.median_filter_3x3, 5: korva.median_filter_5x5}
CALIBRATION = ("exposure", "white_exposure", "white_reflectance", "full_scale", "saturation")
# The options of each sensor's road beside its files, by the names that the roads have for them.
ROADS: dict[str, tuple[Any, tuple[str, ...]]] = {
    "snapshot": (korva.SnapshotRoad, ("mosaic", "tile", *CALIBRATION)),
    "line-scan": (korva.LineScanRoad, ("strip_height", "first_band", "last_band", *CALIBRATION)),
    "rgbx": (korva.RGBXRoad, ("black", "white_level", "defect_threshold", "blur", "kb", "kr")),
}
FILES = {"snapshot": ("white", "bias", "matrix"), "line-scan": ("white", "bias", "matrix"), "rgbx": ("dark", "flat")}
# A full or vanished disk fails every frame: after so many failures to write, one after the other, the run ends.
WRITE_FAILURES = 10
# Of samples, in a task of many small frames.
TASK_BYTES = 64 << 20


class Refused(Exception):
    """Wrong use, or a state of things that only a person can mend."""


class Stopped(Exception):
    """The work cannot go on; what is done stays done."""


class NotWritten(Exception):
    """A result that found no place."""


class Frame(NamedTuple):
    """A frame, or a scene of many; its name is that of its result, without the ending."""

    name: str
    files: tuple[str, ...]
    position: int
    number: int  # of frames in each file, 0 for a whole scene
    state: str
    problem: str = ""


def times_of(status: os.stat_result) -> str:
    """What changes when a file of samples does: nobody can set the time of the last change, as that of its content."""
    return f"{status.st_size} {status.st_mtime_ns} {status.st_ctime_ns}"


def state_of(files: tuple[str, ...]) -> str:
    states = [times_of(os.stat(path)) for path in files]
    return states[0] if len(states) == 1 else hashlib.sha256("\n".join(states).encode()).hexdigest()


def digest_of(path: str) -> str:
    return hashlib.sha256(Path(path).read_bytes()).hexdigest()


@dataclass(frozen=True)
class Job:
    """What every worker has to know; roads are prepared from it once in a process."""

    sensor: str
    shape: tuple[int, int]
    dtype: str
    offset: int
    stride: int
    options: dict[str, Any]
    files: dict[str, tuple[str, str]]  # path and digest
    median: int
    weight: float
    wavelengths: list[float]
    form: str
    output: str
    release: str = korva.__version__
    library: str = ""
    token: str = field(default_factory=lambda: uuid.uuid4().hex)
    lock: str = ""
    root: str = ""
    header: str = ""

    def settings(self) -> dict[str, Any]:
        """Everything but the frame that a result depends on."""
        kept = ("sensor", "shape", "dtype", "offset", "stride", "options", "median", "weight", "wavelengths", "form",
                "release")
        found = {name: getattr(self, name) for name in kept} | {name: value[1] for name, value in self.files.items()}
        settings: dict[str, Any] = json.loads(json.dumps(found))
        return settings

    @property
    def frame_size(self) -> int:
        return self.shape[0] * self.shape[1] * np.dtype(self.dtype).itemsize

    @property
    def full_scale(self) -> int:
        return int(self.options.get("full_scale", 10000))

    def counts(self, path: str, place: int = 0, out: NDArray[Any] | None = None) -> NDArray[Any]:
        """The samples of a frame as uint16; those of float32 are rounded to whole counts."""
        result = np.empty(self.shape, np.uint16) if out is None else out
        frames = RawFrames(path, self.shape, np.dtype(self.dtype), self.offset, self.stride, place + 1)
        if self.dtype == "uint16":
            return frames.read(place, result)
        rounded: NDArray[Any] = np.rint(frames[place])
        if not ((rounded >= 0) & (rounded < 65536)).all():
            raise ValueError("expected counts from 0 to 65535, found others")
        np.copyto(result, rounded, casting="unsafe")
        return result

    def reference(self, path: str) -> NDArray[Any]:
        size = os.path.getsize(path)
        if size != self.offset + self.frame_size and size != self.offset + self.stride:
            raise ValueError(f"{path}: expected one frame of {self.frame_size:,} bytes, found {size:,} bytes")
        return self.counts(path)

    def unfit(self) -> str:
        """What keeps this process from doing the work."""
        library, release = korva.loaded_library()
        if release != self.release:
            return f"expected release {self.release}, found {release}"
        if digest_of(library) != self.library:
            return f"another library file: {library}"
        for path in (self.root, f"{self.output}/.frames", *(path for path, _ in self.files.values())):
            if not os.access(path, os.R_OK):
                return f"no access to {path}"
        return "" if os.access(self.output, os.W_OK) else f"cannot write to {self.output}"

    def prepare(self) -> Callable[..., NDArray[Any]]:
        """The road from samples to a cube."""
        given: dict[str, Any] = dict(self.options)
        for name, (path, digest) in self.files.items():
            if digest_of(path) != digest:
                raise Stopped(f"{path}: changed while the run goes on")
            given[name] = np.loadtxt(path, ndmin=2) if name == "matrix" else self.reference(path)
        road = ROADS[self.sensor][0](**given)
        if self.sensor == "rgbx":
            return functools.partial(self.pictures, road)
        return functools.partial(self.filtered, road.spectra)

    def pictures(self, road: korva.RGBXRoad, samples: NDArray[Any]) -> NDArray[Any]:
        """R, G, B, X and the three of the new WLI, of the pixels that all of them have."""
        pictures = road.pictures(samples, weight=self.weight)
        others = np.concatenate([pictures.rgb, pictures.x[np.newaxis]])
        return np.concatenate([others[:, 3:-3, 3:-3], pictures.new_wli])

    def filtered(self, spectra: Callable[..., NDArray[Any]], samples: Any, **options: Any) -> NDArray[Any]:
        cube = spectra(samples, **options)
        if not self.median:
            return cube
        result = MEDIAN[self.median](cube)
        # A filter would hide what has no valid sample. Pixels are flagged in all bands.
        step(flag_pixels, result, cube[:1])
        return result


class Roads:
    """The road of this process's job, prepared once, and each thread's memory for it."""

    def __init__(self) -> None:
        self.token, self.lock, self.own = "", threading.Lock(), threading.local()
        self.road: Callable[..., NDArray[Any]] = np.asarray

    def of(self, job: Job) -> tuple[NDArray[Any], Callable[..., NDArray[Any]]]:
        """An array for the samples of a frame, and what makes a cube of them, until this thread's next."""
        with self.lock:
            if self.token != job.token:
                if wrong := job.unfit():
                    raise Stopped(f"{socket.gethostname()}: {wrong}")
                self.token, self.road = job.token, job.prepare()
        if getattr(self.own, "token", "") != job.token:
            self.own.token, self.own.samples, self.own.compute = job.token, np.zeros(job.shape, np.uint16), self.road
            if job.sensor == "snapshot":
                cube, again = repeatable(self.road, self.own.samples)
                self.own.compute = lambda samples: again() or cube
        return self.own.samples, self.own.compute


roads = Roads()


class Scene:
    """The frames of a scene as the road wants them, each read when it is asked for."""

    def __init__(self, job: Job, frame: Frame) -> None:
        self.job, self.files, self.number = job, frame.files, frame.position

    def __len__(self) -> int:
        return self.number

    def __getitem__(self, index: int) -> NDArray[Any]:
        path, place = (self.files[0], index) if len(self.files) == 1 else (self.files[index], 0)
        return self.job.counts(path, place)


def written(files: list[str]) -> str:
    """What changes when a result does, and not when its folder is copied with its times."""
    return " ".join(f"{status.st_size} {status.st_mtime_ns}" for status in map(os.stat, files))


def data_of(job: Job, frame: Frame, index: int) -> list[str]:
    """The files of a result."""
    if job.form == "zarr":
        return [f"{job.output}/cubes.zarr/cube/{index}.0.0.0"]
    return [f"{job.output}/{frame.name}.raw", f"{job.output}/{frame.name}.hdr"]


@functools.lru_cache(1)
def zarr_array(path: str, token: str) -> Any:
    return importlib.import_module("zarr").open_array(path, mode="r+")


def store(job: Job, frame: Frame, index: int, cube: NDArray[Any]) -> str:
    """Writes a result and tells the state of its files. Each file is whole or absent."""
    files = data_of(job, frame, index)
    try:
        if job.form == "zarr":
            zarr_array(f"{job.output}/cubes.zarr/cube", job.token)[index] = cube
        else:
            text = job.header.replace("\nlines = 1\n", f"\nlines = {cube.shape[1]}\n")
            for mark, name in (("FRAME", told(job.root, frame)), ("RESULT", frame.name)):
                # Braces and line ends, which file names may have, would end the field.
                text = text.replace(mark, re.sub(r"[{}\r\n]", "_", name), 1)
            put(job, files[0], cube.reshape(-1).view(np.uint8).data)
            put(job, files[1], memoryview(text.encode("utf-8", "surrogateescape")))
        return written(files)
    except OSError as error:
        raise NotWritten(f"not written: {error}") from None


def put(job: Job, path: str, content: memoryview) -> None:
    """A file that is whole or absent, by few calls of the system: after each one, threads wait for the interpreter."""
    folder, name = os.path.split(path)
    beside = f"{folder}/.{name}.{uuid.uuid4().hex}"
    flags = os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC
    try:
        handle = os.open(beside, flags, 0o666)
    except FileNotFoundError:
        owned(job)
        os.makedirs(folder, exist_ok=True)
        handle = os.open(beside, flags, 0o666)
    try:
        try:
            while content:
                content = content[os.write(handle, content) :]
        finally:
            os.close(handle)
        os.replace(beside, path)
    except OSError:
        with contextlib.suppress(OSError):
            os.unlink(beside)
        raise


def owned(job: Job) -> None:
    """Ends the work when the folder of results has vanished, or belongs to another run by now."""
    with contextlib.suppress(OSError):
        if Path(job.lock).read_text() == job.token:
            return
    raise Stopped(f"{job.output}: has vanished or belongs to another run")


def process(job: Job, some: list[tuple[Frame, int]], *progress: Any) -> list[tuple[str, str]]:
    """One task: what became of each frame, in words. Exceptions would not all travel, and a client waits for them."""
    found: list[tuple[str, str]] = []
    for frame, index in some:
        try:
            if not found:
                owned(job)
            found.append(("done", processed(job, frame, index, *progress)))
        except Exception as error:
            kind = {Stopped: "stopped", NotWritten: "unwritten"}.get(type(error), "failed")
            memory = "not enough memory: " * isinstance(error, MemoryError)
            found.append((kind, memory + (f"{error}" or type(error).__name__)))
            if kind == "stopped":
                break
    return found


def processed(job: Job, frame: Frame, index: int, progress: Callable[[int, int], object] | None = None) -> str:
    """Reads, computes and writes a frame. The state of its result's files."""
    samples, road = roads.of(job)
    if frame.number:
        cube = road(job.counts(frame.files[0], frame.position, samples))
    else:
        cube = road(Scene(job, frame), progress=progress)
        owned(job)
    if state_of(frame.files) != frame.state:
        raise ValueError("changed while the run goes on")
    return store(job, frame, index, cube)


# Frames


def listed(pattern: str) -> tuple[str, list[str]]:
    """The folder that names are relative to, and the files of a folder with its subfolders, a pattern or one file."""
    if os.path.isdir(pattern):
        root, found = pattern, []
        for folder, _, names in os.walk(pattern, followlinks=True):
            found += [os.path.join(folder, name) for name in names if name.lower().endswith(".raw")]
    elif os.path.lexists(pattern):
        root, found = os.path.dirname(pattern), [pattern]
    else:
        fixed = re.split(r"[*?\[]", pattern, maxsplit=1)[0]
        root, found = os.path.dirname(fixed), [f for f in glob.iglob(pattern, recursive=True) if not os.path.isdir(f)]
    if not found:
        raise Refused(f"--frames {pattern}: expected raw files, found none")
    return os.path.abspath(root), sorted(os.path.abspath(path) for path in found)


def frames_of(job: Job, root: str, files: list[str]) -> list[Frame]:
    """All frames, or scenes, each with what is wrong with it as far as its file's size tells."""
    frames: list[Frame] = []
    scenes: dict[str, list[str]] = {}
    for path in files:
        base, ending = os.path.splitext(path[len(root) :].lstrip("/"))
        name = base if ending.lower() == ".raw" else base + ending
        try:
            status = os.stat(path)
        except OSError as error:
            frames.append(Frame(name, (path,), 0, 1, "", error.strerror))
            continue
        state = times_of(status)
        number, rest = divmod(status.st_size - job.offset, job.stride)
        if rest >= job.frame_size:  # What follows each frame may lack behind the last.
            number, rest = number + 1, 0
        wrong = f"expected whole frames of {job.frame_size:,} bytes, found {status.st_size:,} bytes"
        if number < 1 or (number == 1 and rest):
            frames.append(Frame(name, (path,), 0, 1, state, wrong))
        elif job.sensor == "line-scan" and number > 1:
            frames.append(Frame(name, (path,), number, 0, state, wrong if rest else ""))
        elif job.sensor == "line-scan":
            scenes.setdefault(os.path.dirname(name) or os.path.basename(root) or "scene", []).append(path)
        elif number == 1:
            frames.append(Frame(name, (path,), 0, 1, state))
        else:
            of_file = (path,)
            frames += [Frame(f"{name}/{place:06}", of_file, place, number, state) for place in range(number)]
            if rest:
                frames.append(Frame(f"{name}/{number:06}", of_file, number, number + 1, state, wrong))
    frames += [Frame(name, tuple(parts), len(parts), 0, state_of(tuple(parts))) for name, parts in scenes.items()]
    seen: set[str] = set()
    for frame in frames:
        if frame.name in seen:
            raise Refused(f"{frame.files[0]}: expected frames with a result each, found two for {frame.name}.raw")
        seen.add(frame.name)
    return frames


def told(root: str, frame: Frame) -> str:
    """The name of a frame for a person."""
    name = frame.files[0][len(root) :].lstrip("/") if frame.number or len(frame.files) == 1 else frame.name
    return f"{name}[{frame.position}]" if frame.number > 1 else name


# The folder of results


@contextmanager
def locked(path: str, kind: int = fcntl.LOCK_EX) -> Iterator[int]:
    """Holds a lock that ends with the process, however that ends."""
    handle = os.open(path, os.O_RDWR | os.O_CREAT, 0o666)
    try:
        fcntl.flock(handle, kind)
        yield handle
    finally:
        os.close(handle)


class Results:
    """The folder of results, owned: by one run of all frames, or by runs of different shards of the same number."""

    def __init__(self, output: str, shard: tuple[int, int] | None, token: str, stack: ExitStack) -> None:
        self.output, self.own = output, f"{output}/.frames"
        os.makedirs(self.own, exist_ok=True)
        self.part = f"{shard[0]}-of-{shard[1]}" if shard else "all"
        self.lock = f"{self.own}/lock-{self.part}"
        kind = (fcntl.LOCK_SH if shard else fcntl.LOCK_EX) | fcntl.LOCK_NB
        try:
            stack.enter_context(locked(f"{self.own}/lock", kind))
            stack.enter_context(locked(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB))
            for other in glob.glob(f"{self.own}/lock-*-of-*") if shard else ():
                if shard and not other.endswith(f"-of-{shard[1]}"):
                    with locked(other, fcntl.LOCK_EX | fcntl.LOCK_NB):
                        pass
        except BlockingIOError:
            raise Refused(f"{output}: another run works in this folder; wait for its end or name another --output")
        Path(self.lock).write_text(token)
        if not shard:  # What killed runs left; other shards may be writing.
            for folder, _, names in os.walk(output):
                for name in names:
                    if re.search(r"^\..*\.[0-9a-f]{32}$|\.[0-9a-f]{32}\.partial$", name):
                        os.unlink(os.path.join(folder, name))
        self.records: dict[str, list[str]] = {}
        self.journal: Any = None

    def settle(self, job: Job, frames: list[Frame], cube: NDArray[Any]) -> list[int]:
        """Refuses results of other settings; gives every frame its place."""
        with locked(f"{self.own}/setup"):
            path, wanted = f"{self.own}/settings.json", job.settings()
            if os.path.exists(path):
                found = json.loads(Path(path).read_text())
                names = [name for name in {**found, **wanted} if found.get(name) != wanted.get(name)]
                if names:
                    raise Refused(f"{self.output}: holds results of another {', '.join(names)}; name another --output, "
                                  "or remove that folder")
            else:
                self.replace(path, json.dumps(wanted, indent=1))
            if job.form == "envi":
                return [0] * len(frames)
            return self.settle_zarr(job, frames, cube.shape, cube.dtype)

    def settle_zarr(self, job: Job, frames: list[Frame], shape: tuple[int, ...], dtype: Any) -> list[int]:
        zarr = importlib.import_module("zarr")
        path = f"{self.own}/frames.json"  # The order of the array: whole at any time, unlike the coordinate.
        names = json.loads(Path(path).read_text()) if os.path.exists(path) else []
        places = {name: place for place, name in enumerate(names)}
        for frame in frames:
            if frame.name not in places:
                places[frame.name] = len(names)
                names.append(frame.name)
        self.replace(path, json.dumps(names))
        group = zarr.open_group(f"{self.output}/cubes.zarr", mode="a")
        if "cube" not in group:
            fill = korva.FLAGGED if dtype == np.uint16 else np.nan
            group.create("cube", shape=(len(names), *shape), chunks=(1, *shape), dtype=dtype, fill_value=fill,
                         compressor=None)
        if group["cube"].shape[1:] != shape:
            raise Refused(f"{self.output}: expected cubes of shape {group['cube'].shape[1:]}, found {shape}")
        group["cube"].resize(len(names), *shape)
        group["cube"].attrs["_ARRAY_DIMENSIONS"] = ["frame", "band", "row", "column"]
        if dtype == np.uint16:
            group["cube"].attrs["scale_factor"] = 1 / job.full_scale
        if "frame" not in group or len(group["frame"]) != len(names):
            group.array("frame", np.array(names), overwrite=True).attrs["_ARRAY_DIMENSIONS"] = ["frame"]
        if job.wavelengths and "wavelength" not in group:
            group.array("wavelength", np.array(job.wavelengths)).attrs.update(_ARRAY_DIMENSIONS=["band"], units="nm")
        group.attrs["coordinates"] = "frame wavelength" if job.wavelengths else "frame"
        zarr.consolidate_metadata(group.store)
        return [places[frame.name] for frame in frames]

    def read(self) -> None:
        """Journals of whatever runs and shards there were; a record counts only for the files that it describes."""
        for path in glob.glob(f"{self.own}/journal-*"):
            with open(path, newline="", encoding="utf-8", errors="surrogateescape") as file:
                for line in file:
                    fields = line.rstrip("\n").split("\t")
                    if len(fields) == 5 and line.endswith("\n"):
                        self.records.setdefault(fields[0], []).append("\t".join(fields[1:]))
        self.journal = open(f"{self.own}/journal-{self.part}", "a", encoding="utf-8", errors="surrogateescape")
        if self.journal.tell():
            self.journal.write("\n")  # A killed run may have left a part of a line.

    @staticmethod
    def record(frame: Frame, state: str) -> str:
        return "\t".join((json.dumps(frame.files[0]), str(frame.position), frame.state, state))

    def done(self, job: Job, frame: Frame, index: int) -> bool:
        records = self.records.get(json.dumps(frame.name))
        if not records or frame.problem:
            return False
        try:
            return self.record(frame, written(data_of(job, frame, index))) in records
        except OSError:
            return False

    def keep(self, done: list[tuple[Frame, str]]) -> None:
        try:
            self.journal.writelines(f"{json.dumps(frame.name)}\t{self.record(frame, state)}\n" for frame, state in done)
            self.journal.flush()
        except OSError as error:
            raise Stopped(f"{self.own}: {error}")

    @staticmethod
    def replace(path: str, text: str) -> None:
        with replacing(path) as file:
            Path(file).write_text(text, encoding="utf-8", errors="surrogateescape")

    def failures(self, mine: set[str], failed: dict[str, str]) -> None:
        """Lists failures in place of those of the same frames; shards keep the others'."""
        path = f"{self.output}/failures.csv"
        with locked(f"{self.own}/setup"):
            rows = []
            if os.path.exists(path) and self.part != "all":
                with open(path, newline="", encoding="utf-8", errors="surrogateescape") as file:
                    rows = [row for row in list(csv.reader(file))[1:] if row and row[0] not in mine]
            with replacing(path) as new, open(new, "w", newline="", encoding="utf-8", errors="surrogateescape") as file:
                csv.writer(file).writerows([("frame", "reason"), *rows, *failed.items()])


# Engines


class Threads:
    """This machine's threads."""

    def __init__(self, number: int) -> None:
        self.number = number
        self.pool = concurrent.futures.ThreadPoolExecutor(number)

    def width(self) -> int:
        return 2 * self.number

    def alive(self) -> str:
        return ""

    def abandon(self) -> None:
        self.pool.shutdown(wait=False, cancel_futures=True)

    def close(self) -> None:
        self.pool.shutdown()


class Cluster:
    """The workers of a distributed scheduler."""

    def __init__(self, address: str, patience: float) -> None:
        distributed: Any = importlib.import_module("distributed")
        try:
            self.client = distributed.Client(address, timeout=min(patience, 30))
        except (OSError, ValueError) as error:
            raise Stopped(f"--scheduler {address}: no scheduler answers ({error})")
        self.address = address
        self.pool = self.client.get_executor(pure=False)

    def workers(self) -> list[dict[str, Any]]:
        return list(self.client.scheduler_info()["workers"].values())

    def width(self) -> int:
        return max(2, 2 * sum(int(worker["nthreads"]) for worker in self.workers()))

    def alive(self) -> str:
        """What is missing, if anything is."""
        if self.client.status != "running":
            return f"the scheduler {self.address} does not answer"
        now = time.time()
        if not any(now - worker["last_seen"] < 30 for worker in self.workers()):
            return f"no worker of {self.address} answers; start workers, or see why theirs ended"
        return ""

    def check(self, job: Job, patience: float) -> None:
        """Asks every worker, by a function that needs nothing of this package, for what the work needs."""
        start, hinted = time.monotonic(), False
        while self.alive():
            if time.monotonic() - start > patience:
                raise Stopped(f"{self.alive()} (waited {patience:.0f} s)")
            if not hinted and time.monotonic() - start > min(5, patience / 2):
                hinted = True
                tell(f"waiting: {self.alive()}")
            time.sleep(0.2)

        def look(job: bytes) -> str:
            import pickle

            try:
                return str(pickle.loads(job).unfit())
            except Exception as error:
                return f"cannot use korva_reference ({error})"

        asked = concurrent.futures.ThreadPoolExecutor(1).submit(
            self.client.run, look, pickle.dumps(job), on_error="return")
        try:
            found = asked.result(patience)
        except concurrent.futures.TimeoutError:
            raise Stopped(f"some worker of {self.address} does not answer (waited {patience:.0f} s)")
        wrong = [f"{worker}: {what}" for worker, what in found.items() if what]
        if wrong:
            raise Stopped("workers that cannot do the work:\n  " + "\n  ".join(wrong))

    def abandon(self) -> None:
        if self.client.status == "running":
            self.pool.shutdown(wait=False)
            self.client.close(timeout=5)

    close = abandon


def tell(text: str) -> None:
    print(text, file=sys.stderr, flush=True)


# A run


class Progress:
    """Now and then, a line for a person or a log."""

    def __init__(self, total: int) -> None:
        self.total, self.start, self.last = total, time.monotonic(), 0.0
        self.every = 1.0 if sys.stderr.isatty() else 10.0

    def __call__(self, done: int, failed: int, within: str = "") -> None:
        now = time.monotonic()
        if now - max(self.last, self.start) < self.every:
            return
        self.last = now
        left = (now - self.start) / done * (self.total - done) if done else float("nan")
        end = "\r" if sys.stderr.isatty() else "\n"
        print(f"{done} of {self.total} frames, {failed} failed, {left:.0f} s left{within}", end=end, file=sys.stderr,
              flush=True)


def run(job: Job, todo: list[tuple[Frame, int]], engine: Threads | Cluster, results: Results, root: str,
        failed: dict[str, str], options: argparse.Namespace) -> None:
    """Submits frames as others end, so that no more of them than the engine needs are under way at any moment."""
    progress, waiting = Progress(len(todo)), list(reversed(todo))
    suspects: list[tuple[Frame, int]] = []
    pending: dict[concurrent.futures.Future[list[tuple[str, str]]], list[tuple[Frame, int]]] = {}
    done, unwritten = 0, 0
    moved = answered = hinted = time.monotonic()
    # A task costs the engine about as much however many frames it has.
    most = 1 if options.strict or job.sensor == "line-scan" else max(1, min(64, TASK_BYTES // job.frame_size))

    def within(frame: Frame) -> tuple[Any, ...]:
        def step(now: int, of: int) -> None:
            nonlocal moved
            moved = time.monotonic()
            progress(done, len(failed), f", {frame.name}: frame {now} of {of}")
        return (step,) if isinstance(engine, Threads) and not frame.number else ()

    alone = False
    while True:
        width = 1 if alone else engine.width()
        while len(pending) < width and waiting:
            size = 1 if alone else max(1, min(most, len(waiting) // width))
            some = [waiting.pop() for _ in range(size)]
            pending[engine.pool.submit(process, job, some, *within(some[0][0]))] = some
        if not pending:
            if not suspects or alone:
                return
            # Whoever was with a frame that kills workers is tried again by itself.
            alone, waiting, suspects = True, suspects, []
            continue
        ended, _ = concurrent.futures.wait(pending, timeout=1, return_when=concurrent.futures.FIRST_COMPLETED)
        now = time.monotonic()
        missing = engine.alive()
        if not missing:
            answered = now
        elif now - max(hinted, answered) > min(30, options.patience / 2):
            hinted = now
            tell(f"waiting: {missing}")
        if ended:
            moved = now
        if now - answered > options.patience or now - moved > options.time_limit:
            raise Stopped(missing or f"no frame ended within {options.time_limit:.0f} s; under way were "
                          + ", ".join(told(root, frame) for some in pending.values() for frame, _ in some[:2]))
        for future in ended:
            some = pending.pop(future)
            try:
                found = future.result()
            except concurrent.futures.CancelledError:
                raise Stopped(engine.alive() or "the scheduler gave up its work")
            except Exception as error:
                if type(error).__name__ != "KilledWorker":
                    raise Stopped(f"a worker cannot do the work: {error}")
                if not alone:
                    suspects += some
                    continue
                found = [("failed", "killed its worker again and again")]
            results.keep([(frame, text) for (frame, _), (kind, text) in zip(some, found) if kind == "done"])
            for (frame, _), (kind, text) in zip(some, found):
                if kind == "stopped":
                    raise Stopped(text)
                unwritten = unwritten + 1 if kind == "unwritten" else 0
                if kind == "done":
                    done += 1
                    continue
                failed[told(root, frame)] = text
                if options.strict:
                    raise Stopped(f"{told(root, frame)}: {text}")
                if unwritten == WRITE_FAILURES:
                    raise Stopped(text)
        progress(done, len(failed))


def above(least: float, kind: Callable[[str], Any] = int) -> Callable[[str], Any]:
    def number(text: str) -> Any:
        try:
            value = kind(text)
        except ValueError:
            value = None
        if value is None or not least <= value < float("inf"):
            raise argparse.ArgumentTypeError(f"expected a number of at least {least}, found {text!r}")
        return value
    return number


def pair(text: str) -> tuple[int, int]:
    """Across x down, as people say it; (rows, columns), as the package does."""
    if not (found := re.fullmatch(r"([1-9]\d{0,4})x([1-9]\d{0,4})", text)):
        raise argparse.ArgumentTypeError(f"expected across x down, such as 4x4, found {text!r}")
    return int(found[2]), int(found[1])


def shard(text: str) -> tuple[int, int]:
    found = re.fullmatch(r"(\d{1,9})/(\d{1,9})", text)
    if not found or not 1 <= int(found[1]) <= int(found[2]):
        raise argparse.ArgumentTypeError(f"expected I/N with I from 1 to N, such as 3/16, found {text!r}")
    return int(found[1]), int(found[2])


def parser() -> argparse.ArgumentParser:
    result = argparse.ArgumentParser(prog="python -m korva_reference.frames", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    add = result.add_argument
    add("--frames", required=True, help="folder with its subfolders, pattern, or one file; *.raw files of folders")
    add("--output", required=True, help="folder of the results")
    add("--sensor", choices=tuple(ROADS), default="snapshot")
    add("--width", type=above(1), default=2048)
    add("--height", type=above(1), default=1088)
    add("--sample-type", choices=("uint16", "float32"), default="uint16", help="float32 is rounded to whole counts")
    add("--offset", type=above(0), default=0, help="bytes before the first frame's samples in each file")
    add("--frame-stride", type=above(1), help="bytes from one frame's samples to the next's; a frame's own without it")
    add("--white", help="raw frame of a white reference")
    add("--bias", help="raw frame taken without light")
    add("--matrix", help="text file: a line per output band, a weight per input band")
    add("--wavelengths", help="text file: the wavelength of each output band in nanometres")
    add("--mosaic", type=pair, help="filters across and down of a mosaic; 4x4 unless --tile is given")
    add("--tile", type=pair, help="pixels across and down of each tile of a tiled sensor")
    for name in ("strip-height", "first-band", "last-band"):
        add(f"--{name}", type=above(name == "strip-height"), help="line-scan")
    for name in ("exposure", "white-exposure", "white-reflectance"):
        add(f"--{name}", type=above(0, float), help="1 unless given")
    add("--full-scale", type=above(1), help="what stands for reflectance 1; 10000 unless given")
    add("--saturation", type=above(1), help="counts from which on a sample is saturated, such as 4095")
    add("--dark", help="rgbx: raw frame taken in the dark, for defects")
    add("--flat", help="rgbx: raw frame of an even surface, for defects")
    for name in ("black", "white-level"):
        add(f"--{name}", type=above(0), help="rgbx: counts")
    for name in ("defect-threshold", "blur", "kb", "kr"):
        add(f"--{name}", type=above(0, float), help="rgbx")
    add("--weight", type=above(0, float), default=0.5, help="rgbx: share of the detail in the new WLI")
    add("--median", type=int, choices=(0, 3, 5), help="size of the filter, 0 for none; 3 for a snapshot sensor")
    add("--format", choices=("envi", "zarr"), default="envi")
    add("--threads", type=above(1), default=os.cpu_count(), help="threads on this machine")
    add("--scheduler", help="address of a Dask scheduler, whose workers see the same folders")
    add("--shard", type=shard, help="I/N: every Nth frame from the Ith on")
    add("--strict", action="store_true", help="stop at the first frame that fails")
    add("--patience", type=above(1, float), default=300, help="seconds to wait for a worker of a cluster")
    add("--time-limit", type=above(1, float), default=3600, help="seconds within which some frame has to end")
    return result


def job_of(options: argparse.Namespace) -> Job:
    sensor = options.sensor
    if sensor == "snapshot" and not options.tile:
        options.mosaic = options.mosaic or (4, 4)
    own = {name: getattr(options, name) for name in ROADS[sensor][1] if getattr(options, name) is not None}
    for other in ROADS:
        for name in (*ROADS[other][1], *FILES[other]):
            if name not in (*ROADS[sensor][1], *FILES[sensor]) and getattr(options, name) is not None:
                raise Refused(f"--{name.replace('_', '-')}: expected only with --sensor {other}, found {sensor}")
    needed = {"snapshot": ("white",), "line-scan": ("white", "strip_height", "first_band", "last_band"), "rgbx": ()}
    for name in needed[sensor]:
        if getattr(options, name) is None:
            raise Refused(f"--{name.replace('_', '-')}: expected with --sensor {sensor}, found none")
    if options.median and sensor == "rgbx":
        raise Refused("--median: expected for spectra, found --sensor rgbx")
    files = {name: os.path.abspath(path) for name in FILES[sensor] if (path := getattr(options, name))}
    size = options.width * options.height * np.dtype(options.sample_type).itemsize
    if options.frame_stride is not None and options.frame_stride < size:
        raise Refused(f"--frame-stride: expected at least a frame's {size:,} bytes, found {options.frame_stride}")
    return Job(
        sensor, (options.height, options.width), options.sample_type, options.offset, options.frame_stride or size, own,
        {name: (path, digest_of(path)) for name, path in files.items()},
        (3 if sensor == "snapshot" else 0) if options.median is None else options.median, options.weight,
        np.loadtxt(options.wavelengths, ndmin=1).ravel().tolist() if options.wavelengths else [], options.format,
        os.path.abspath(options.output))


def cube_of(job: Job, frames: list[Frame]) -> NDArray[Any]:
    """The result of nothing but zeros tells its shape, and refuses settings that do not fit."""
    road, zeros = job.prepare(), np.zeros(job.shape, np.uint16)
    if job.sensor != "line-scan":
        cube = road(zeros)
    else:
        strip, bands = job.options["strip_height"], job.options["last_band"] - job.options["first_band"] + 1
        cube = road([zeros] * bands)
        if job.form == "zarr":
            lengths = {frame.position for frame in frames if not frame.problem and not frame.number}
            if len(lengths) > 1:
                raise Refused(f"--format zarr: expected scenes of the same length, found {sorted(lengths)[:8]} frames")
            rows = (max(lengths, default=bands) - bands + 1) * strip
            cube = np.broadcast_to(cube[:, :1], (len(cube), rows, cube.shape[2]))
    if job.wavelengths and len(job.wavelengths) != len(cube):
        raise Refused(f"--wavelengths: expected one for each of {len(cube)} bands, found {len(job.wavelengths)}")
    return cube


def header_of(job: Job, cube: NDArray[Any]) -> str:
    """The header of all results, with one line and marks for the names."""
    others: dict[str, Any] = {"frame": "FRAME"}
    if job.sensor != "rgbx":
        others |= {"reflectance scale factor": str(job.full_scale), "data ignore value": str(korva.FLAGGED)}
    with tempfile.TemporaryDirectory() as folder:
        korva.envi.write(f"{folder}/cube.raw", cube[:, :1], others=others, wavelength=job.wavelengths or None,
                         description=f"RESULT, korva_reference {job.release}")
        return Path(f"{folder}/cube.hdr").read_text()


def work(options: argparse.Namespace) -> int:
    started = time.monotonic()
    with contextlib.closing(ExitStack()) as stack:
        try:
            job = job_of(options)
            root, files = listed(options.frames)
            if os.path.commonpath([root, job.output]) == root and os.path.isdir(options.frames):
                raise Refused(f"--output {job.output}: expected a folder outside {root}, found one inside")
            frames = frames_of(job, root, files)
            cube = cube_of(job, frames)
            results = Results(job.output, options.shard, job.token, stack)
            job = replace(job, lock=results.lock, root=root, header=header_of(job, cube),
                          library=digest_of(korva.loaded_library().path))
            places = results.settle(job, frames, cube)
        except (OSError, TypeError, ValueError, ImportError) as error:
            raise Refused(str(error)) from error
        results.read()
        mine = list(zip(frames, places))
        if options.shard:
            mine = mine[options.shard[0] - 1 :: options.shard[1]]
        names, total = {told(root, frame) for frame, _ in mine}, len(mine)
        todo = [(frame, place) for frame, place in mine if not results.done(job, frame, place)]
        results.records.clear()
        failed = {told(root, frame): frame.problem for frame, _ in todo if frame.problem}
        tell(f"{total} frames, {total - len(todo)} already done; started in {time.monotonic() - started:.1f} s")
        wrong = ""
        engine: Threads | Cluster | None = None
        try:
            if failed and options.strict:
                raise Stopped(": ".join(next(iter(failed.items()))))
            todo = [item for item in todo if not item[0].problem]
            if todo and options.scheduler:
                engine = Cluster(options.scheduler, options.patience)
                engine.check(job, options.patience)
            elif todo:
                engine = Threads(options.threads)
            if engine:
                run(job, todo, engine, results, root, failed, options)
        except Stopped as error:
            wrong = f"stopped: {error}"
        except KeyboardInterrupt:
            wrong = "stopped by hand"
        for name, reason in list(failed.items())[:10]:
            tell(f"failed: {name}: {reason}")
        try:
            results.failures(names, failed)
        except OSError as error:
            wrong = wrong or f"stopped: {error}"
        if wrong:
            tell(wrong)
            if engine:
                engine.abandon()
            return 1
        if engine:
            engine.close()
        seconds = time.monotonic() - started
        tell(f"{job.output}: {len(todo)} tried in {seconds:.1f} s, {len(failed)} failed"
             + (f", see {job.output}/failures.csv" if failed else ""))
        return 1 if failed else 0


def main(arguments: list[str] | None = None) -> int:
    options = parser().parse_args(arguments)
    try:
        return work(options)
    except Refused as error:
        tell(f"python -m korva_reference.frames: {error}")
        return 2


if __name__ == "__main__":
    # By its own name, which workers know, and not as __main__.
    from korva_reference import frames

    status = frames.main()
    sys.stderr.flush()
    os._exit(status)  # A thread or a connection that hangs is not waited for.
