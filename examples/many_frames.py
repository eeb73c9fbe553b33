#!/usr/bin/env python3
"""Many snapshot-mosaic frames to reflectance cubes with Dask: threads here, or a cluster of processes and machines.

    many_frames.py                                    24 synthetic frames, in threads
    many_frames.py --frames FOLDER --white w.raw --bias b.raw [--matrix m.txt] [--width 2048 --height 1088]
    many_frames.py --frames recording.raw ...         one file with frame after frame, memory-mapped
    many_frames.py ... --scheduler tcp://host:8786    the same on a cluster whose workers see the same folders

Each frame's cube is written as soon as it is done, beside its place, and renamed. A run that was stopped goes on where
it was; frames of a worker that died are computed again by the others, to the same bytes.
"""

from __future__ import annotations

import argparse
import os
import sys
import time
from dataclasses import dataclass
from pathlib import Path

import dask
import dask.array as da
import numpy as np
from dask.diagnostics import ProgressBar

import korva_reference as korva

FULL_SCALE, UNUSABLE = 10000, 65535
MEDIAN = {3: korva.median_filter_3x3, 5: korva.median_filter_5x5}


@dataclass(frozen=True)
class Recording:
    """Where frame after frame lies: in files of one frame each, or in one file of many."""

    files: tuple[str, ...]
    height: int
    width: int

    @classmethod
    def at(cls, path: Path, height: int, width: int) -> Recording:
        files = sorted(path.glob("*.raw")) if path.is_dir() else [path]
        recording = cls(tuple(str(file.resolve()) for file in files), height, width)
        for file in files:
            size = file.stat().st_size
            if not size or size % recording.frame_size or (path.is_dir() and size != recording.frame_size):
                raise SystemExit(f"{file}: expected frames of {recording.frame_size} bytes ({height} x {width} x 2), "
                                 f"found {size} bytes")
        if not files:
            raise SystemExit(f"{path}: expected raw files, found none")
        return recording

    @property
    def frame_size(self) -> int:
        return self.height * self.width * 2

    def __len__(self) -> int:
        return len(self.files) if len(self.files) > 1 else os.path.getsize(self.files[0]) // self.frame_size

    def frame(self, index: int) -> np.ndarray:
        path, place = (self.files[index], 0) if len(self.files) > 1 else (self.files[0], index)
        return np.memmap(path, np.uint16, "r", place * self.frame_size, (self.height, self.width))


@dataclass(frozen=True)
class Road:
    """What every frame goes through, and what it needs for it."""

    mosaic_width: int
    mosaic_height: int
    bias: np.ndarray
    coefficients: np.ndarray
    matrix: np.ndarray

    @classmethod
    def prepare(
        cls, mosaic: tuple[int, int], shape: tuple[int, int], white: str, bias: str, matrix: np.ndarray
    ) -> Road:
        dark, bright = (korva.read_raw_data(path, shape, np.uint16) for path in (bias, white))
        road = cls(*mosaic, dark, np.empty(0), matrix)
        return cls(*mosaic, dark, korva.correction_coefficients(road.band_images(bright), 0.95, 1.0, UNUSABLE), matrix)

    def band_images(self, frame: np.ndarray) -> np.ndarray:
        cell = (self.mosaic_width, self.mosaic_height)
        cut = korva.ssm_cube(korva.correct_bias(frame, self.bias), mosaic_width=cell[0], mosaic_height=cell[1])
        return korva.demosaic_cube(cut, mosaic_width=cell[0], mosaic_height=cell[1], target_row=(cell[1] - 1) / 2,
                                   target_column=(cell[0] - 1) / 2)

    def reflectance(self, frame: np.ndarray) -> np.ndarray:
        counts = self.band_images(frame)
        korva.reflectance(counts, self.coefficients, 1.0, UNUSABLE, UNUSABLE, FULL_SCALE, out=counts)
        return korva.apply_spectral_correction_bsq(counts, self.matrix)


# One block is one frame, or some rows of one frame's cube: the functions below see arrays with a leading axis of 1.


def read_frame(block: np.ndarray, recording: Recording) -> np.ndarray:
    return recording.frame(int(block[0]))[np.newaxis]


def reflectance_cube(block: np.ndarray, road: Road) -> np.ndarray:
    return road.reflectance(block[0])[np.newaxis]


def median_filtered(block: np.ndarray, size: int) -> np.ndarray:
    return MEDIAN[size](np.ascontiguousarray(block[0]))[np.newaxis]


def write_cube(block: np.ndarray, number: np.ndarray, output: str) -> np.ndarray:
    index = int(number.item())
    korva.envi.write(result_path(output, index), block[0], description=f"frame {index}, reflectance x {FULL_SCALE}")
    return np.full((1, 1, 1, 1), index)


def result_path(output: str, index: int) -> str:
    return os.path.join(output, f"cube_{index:06}.raw")


def is_done(output: str, index: int) -> bool:
    data = result_path(output, index)
    return os.path.exists(data) and os.path.exists(os.path.splitext(data)[0] + ".hdr")  # The header comes last.


def work(recording: Recording, mosaic: tuple[int, int], white: str, bias: str, matrix: np.ndarray, todo: list[int],
         output: str, median: int, rows: int) -> da.Array:
    """The whole work as one Dask array: computing an element writes its frame's cube."""
    height, width = recording.height // mosaic[1], recording.width // mosaic[0]
    once = (1,) * len(todo)
    # A task of its own, so that only paths travel to the workers, and a lost one is made again.
    road = dask.delayed(Road.prepare)(mosaic, (recording.height, recording.width), white, bias, matrix)
    numbers = da.from_array(np.array(todo), chunks=1)
    empty = np.empty((0, 0, 0, 0), np.uint16)
    raw = numbers.map_blocks(read_frame, recording, new_axis=(1, 2), meta=np.empty((0, 0, 0), np.uint16),
                             chunks=(once, (recording.height,), (recording.width,)))
    cubes = raw.map_blocks(reflectance_cube, road, new_axis=1, meta=empty,
                           chunks=(once, (len(matrix),), (height,), (width,)))
    if median and rows >= height:  # Dask makes one task of a whole frame then, and nothing travels between workers.
        cubes = cubes.map_blocks(median_filtered, size=median, meta=empty)
    elif median:
        # Blocks of rows share median // 2 rows with their neighbours. boundary="none" leaves the image's own edges
        # as they are, so that the filter clips its windows there and nowhere else, as it does on the whole image.
        cubes = cubes.rechunk({2: rows}).map_overlap(median_filtered, depth={2: median // 2}, boundary="none",
                                                     size=median, meta=empty).rechunk({2: -1})
    return da.map_blocks(write_cube, cubes, numbers[:, None, None, None], output, chunks=(once, (1,), (1,), (1,)),
                         meta=np.empty((0, 0, 0, 0), int))


def synthetic_recording(folder: Path, frames: int, height: int, width: int) -> None:
    from demo.scene import SnapshotCamera

    folder.mkdir(parents=True, exist_ok=True)
    camera = SnapshotCamera(height, width)
    camera.exposure = camera.white_exposure
    korva.write_raw_data(folder / "../white.raw", camera.white())
    korva.write_raw_data(folder / "../bias.raw", camera.bias())
    np.savetxt(folder / "../matrix.txt", camera.matrix)
    for index in range(frames):
        path = folder / f"frame_{index:06}.raw"
        if not path.exists():
            korva.write_raw_data(path, camera.frame(seed=index + 1))


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--frames", type=Path, help="folder of raw frames, or one file of many")
    parser.add_argument("--white", type=Path, help="raw frame of a white reference")
    parser.add_argument("--bias", type=Path, help="raw frame taken without light")
    parser.add_argument("--matrix", type=Path, help="text file: a line per output band, a weight per input band")
    parser.add_argument("--width", type=int, default=2048)
    parser.add_argument("--height", type=int, default=1088)
    parser.add_argument("--mosaic", default="4x4", help="filters across and down")
    parser.add_argument("--median", type=int, choices=(0, 3, 5), default=3, help="size of the filter, 0 for none")
    parser.add_argument("--rows", type=int, default=sys.maxsize,
                        help="rows of a block for the median filter, at least 4, for frames too large for one task")
    parser.add_argument("--output", type=Path, default=Path("results/many_frames"))
    parser.add_argument("--threads", type=int, default=os.cpu_count(), help="threads on this machine")
    parser.add_argument("--scheduler", help="address of a Dask scheduler; without it this machine's threads are used")
    parser.add_argument("--synthetic", type=int, default=24, help="number of frames made when none are given")
    options = parser.parse_args()
    if options.rows < 4:
        parser.error(f"argument --rows: expected at least 4, found {options.rows}")
    if options.scheduler:
        from distributed import Client, progress
    mosaic_width, mosaic_height = (int(number) for number in options.mosaic.split("x"))
    mosaic = mosaic_width, mosaic_height

    if options.frames is None:
        options.frames, options.matrix = options.output / "input/frames", options.output / "input/matrix.txt"
        options.white, options.bias = options.output / "input/white.raw", options.output / "input/bias.raw"
        synthetic_recording(options.frames, options.synthetic, options.height, options.width)
    if not (options.white and options.bias):
        parser.error("expected --white and --bias with --frames")

    shape = (options.height, options.width)
    recording = Recording.at(options.frames, *shape)
    matrix = np.loadtxt(options.matrix, ndmin=2) if options.matrix else np.eye(mosaic[0] * mosaic[1])
    white, bias = str(options.white.resolve()), str(options.bias.resolve())
    Road.prepare(mosaic, shape, white, bias, matrix)  # What is wrong with these files is told here, not by a worker.

    output = str(options.output.resolve())
    settings = options.output / "settings.txt"
    options.output.mkdir(parents=True, exist_ok=True)
    wanted = "\n".join(f"{name}: {getattr(options, name)}" for name in ("frames", "white", "bias", "matrix", "width",
                                                                        "height", "mosaic", "median")) + "\n"
    if settings.exists() and settings.read_text() != wanted:
        raise SystemExit(f"{output}: expected results of the same settings, found those of {settings}; "
                         "name another folder with --output or remove this one")
    settings.write_text(wanted)

    todo = [index for index in range(len(recording)) if not is_done(output, index)]
    print(f"{len(recording)} frames, {len(recording) - len(todo)} already done", flush=True)
    start = time.perf_counter()
    if todo:
        result = work(recording, mosaic, white, bias, matrix, todo, output, options.median, options.rows)
        if options.scheduler:
            with Client(options.scheduler) as client:
                result = client.persist(result)
                progress(result, notebook=False)
                result.compute()
        else:
            with ProgressBar(out=sys.stderr):
                result.compute(scheduler="threads", num_workers=options.threads)
    for unfinished in options.output.glob(".cube_*"):  # Of workers that died; their frames are done now.
        unfinished.unlink()
    seconds = time.perf_counter() - start
    print(f"\n{output}: {len(todo)} cubes in {seconds:.2f} s, {1000 * seconds / max(len(todo), 1):.1f} ms a frame")


if __name__ == "__main__":
    main()
