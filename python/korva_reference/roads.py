"""Whole roads in one call: from raw frames to band cubes, reflectance and corrected spectra, and to RGBX pictures.

Pairs are (rows, columns), like shapes. All results are those of the example hosts to the last bit, and counts and
reflectance are uint16. FLAGGED stands for a sample without a usable white reference, and for every band of a pixel
that has one.
"""

from __future__ import annotations

import math
from typing import Any, Callable, NamedTuple, Sequence

import numpy as np
from numpy.typing import ArrayLike, NDArray

from ._arrays import UINT16, array, count, fail, real, same_shape, table
from ._library import step
from .cube_generation import StitchingBuffer, band_image_strip, crop_image, ssm_band_image, ssm_cube, sst_band_image
from .demosaicing import demosaic_cube
from .median_filtering import median_filter_3x3, median_filter_5x5
from .reflectance_calculation import correct_bias, correction_coefficients, reflectance
from .rgbx import NewWLIBuffers, rgbx_demosaic_frame
from .spectral_correction import apply_spectral_correction_bsq

FLAGGED = 65535

Counts = NDArray[np.uint16]
Pair = tuple[int, int]


def _pair(argument: str, value: Any, least: int = 1) -> Pair:
    if not isinstance(value, (tuple, list, np.ndarray)) or len(value) != 2:
        fail(argument, "a pair (rows, columns)", repr(value), TypeError)
    return count(argument, value[0], least), count(argument, value[1], least)


def snapshot_bands(
    frame: Counts, *, mosaic: Pair | None = None, tile: Pair | None = None,
    crop: tuple[int, int, int, int] | None = None, target: tuple[float, float] | None = None,
) -> Counts:
    """Cuts a snapshot frame of uint16, (row, column), into its bands, (band, row, column).

    mosaic is the cell of a mosaic sensor; every band is resampled to the point target (row, column) of the cell, its
    middle unless given. tile is the size of a tiled sensor's tiles instead. crop, (top, left, rows, columns), is the
    part of the frame to use, from a corner of a cell or tile on.

    >>> frame = np.arange(16, dtype=np.uint16).reshape(4, 4)
    >>> snapshot_bands(frame, tile=(2, 2))[3].tolist()
    [[10, 11], [14, 15]]
    >>> snapshot_bands(frame, mosaic=(2, 2)).shape
    (4, 2, 2)
    """
    if (mosaic is None) == (tile is None):
        fail("mosaic, tile", "one of the two", "both" if mosaic else "none", TypeError)
    rows, columns = _pair("mosaic", mosaic) if tile is None else _pair("tile", tile)
    frame = array("frame", frame, (UINT16,), 2)
    if crop is not None:
        if len(crop) != 4 or crop[0] % rows or crop[1] % columns:
            fail("crop", f"(top, left, rows, columns) from a corner of {rows} x {columns} on", crop)
        frame = crop_image(frame, left=crop[1], top=crop[0], width=crop[3], height=crop[2])
    if frame.shape[0] < rows or frame.shape[1] < columns:
        fail("frame", f"at least {rows} rows and {columns} columns", f"shape {frame.shape}")
    if tile is None:
        row, column = ((rows - 1) / 2.0, (columns - 1) / 2.0) if target is None else target
        cube = ssm_cube(frame, mosaic_width=columns, mosaic_height=rows)
        return demosaic_cube(cube, mosaic_width=columns, mosaic_height=rows, target_row=row, target_column=column)
    if target is not None:
        fail("target", "none with tiles, which show the same points", target, TypeError)
    bands = (frame.shape[0] // rows) * (frame.shape[1] // columns)
    result = np.empty((bands, rows, columns), np.uint16)
    for band in range(bands):
        sst_band_image(frame, tile_width=columns, tile_height=rows, band=band, out=result[band])
    return result


def flag_pixels(out: Counts, cube: Counts) -> None:
    """Flags all bands of the pixels that are flagged in any band of the cube."""
    flagged = cube.max(axis=0, initial=0) == FLAGGED
    if flagged.any():
        out[:, flagged] = FLAGGED


class _Calibration:
    """What turns counts into reflectance and spectra, worked out once from a white reference of (band, row, column)."""

    def __init__(
        self, white: Counts, bias: Counts | None, matrix: ArrayLike | None, exposure: float, white_exposure: float,
        white_reflectance: float, full_scale: int,
    ) -> None:
        for name, value in (("exposure", exposure), ("white_exposure", white_exposure),
                            ("white_reflectance", white_reflectance)):
            if not 0 < real(name, value) < math.inf:
                fail(name, "a number above 0", value)
        self.exposure, self.full_scale, self.bias = exposure, count("full_scale", full_scale, 1, FLAGGED - 1), bias
        if bias is not None:
            white = correct_bias(white, bias)
        self.coefficients = correction_coefficients(white, white_reflectance, white_exposure, flag_value=FLAGGED)
        self.matrix = np.eye(len(white)) if matrix is None else table("matrix", matrix, 2)
        if self.matrix.shape[1] != len(white):
            fail("matrix", f"{len(white)} weights for each output band", f"shape {self.matrix.shape}")
        highest = np.maximum(self.matrix, 0).sum(axis=1).max(initial=0) * full_scale
        if not highest < FLAGGED:
            fail("matrix", f"output bands below {FLAGGED}", f"weights that reach {highest:.6g}; lower full_scale")

    def to_reflectance(self, cube: Counts, bias: Counts | None, coefficients: NDArray[np.float64]) -> None:
        """In place, for samples that lie where those of the reference do."""
        if bias is not None:
            correct_bias(cube, bias, out=cube)
        reflectance(cube, coefficients, self.exposure, FLAGGED, FLAGGED, self.full_scale, out=cube)

    def to_spectra(self, cube: Counts, out: Counts) -> None:
        apply_spectral_correction_bsq(cube, self.matrix, out=out)
        step(flag_pixels, out, cube)


class SnapshotRoad:
    """The road of a snapshot sensor, prepared once for many frames; threads may share it.

    white is a raw frame of a white reference of reflectance white_reflectance, exposed for white_exposure, and bias one
    taken in the dark. Frames of scenes are exposed for exposure. matrix has a row for each output band and a weight for
    each band of the sensor; without it spectra are the reflectance. full_scale stands for reflectance 1. Whatever a
    sample of at least saturation counts takes part in is FLAGGED. The geometry is that of snapshot_bands.

    >>> white, frame = np.full((4, 4), 800, np.uint16), np.full((4, 4), 200, np.uint16)
    >>> SnapshotRoad(white, mosaic=(2, 2), white_reflectance=0.5).reflectance(frame)[:, 0, 0].tolist()
    [1250, 1250, 1250, 1250]
    """

    def __init__(
        self, white: Counts, *, mosaic: Pair | None = None, tile: Pair | None = None,
        crop: tuple[int, int, int, int] | None = None, target: tuple[float, float] | None = None,
        bias: Counts | None = None, matrix: ArrayLike | None = None, exposure: float = 1.0, white_exposure: float = 1.0,
        white_reflectance: float = 1.0, full_scale: int = 10000, saturation: int | None = None,
    ) -> None:
        self._geometry: dict[str, Any] = dict(mosaic=mosaic, tile=tile, crop=crop, target=target)
        self._shape = np.shape(white)
        self._saturation = None if saturation is None else count("saturation", saturation, 1, FLAGGED)
        self._calibration = _Calibration(
            self.bands(white), None if bias is None else self.bands(bias), matrix, exposure, white_exposure,
            white_reflectance, full_scale)

    def bands(self, frame: Counts) -> Counts:
        """The band cube of a frame of the white reference's size, in counts."""
        same_shape("frame", array("frame", frame, (UINT16,), 2), self._shape)
        return snapshot_bands(frame, **self._geometry)

    def reflectance(self, frame: Counts) -> Counts:
        """The reflectance of every band, (band, row, column); full_scale is 1."""
        cube = self.bands(frame)
        self._calibration.to_reflectance(cube, self._calibration.bias, self._calibration.coefficients)
        if self._saturation is not None:
            step(self._flag_saturated, cube, frame, self._saturation)
        return cube

    def _flag_saturated(self, cube: Counts, frame: Counts, saturation: int) -> None:
        saturated = np.greater_equal(frame, saturation)
        if saturated.any():
            # The same road shows what a saturated sample takes part in.
            cube[self.bands(np.where(saturated, np.uint16(FLAGGED), np.uint16(0))) > 0] = FLAGGED

    def spectra(self, frame: Counts) -> Counts:
        """The corrected spectra, (output band, row, column)."""
        cube = self.reflectance(frame)
        corrected = np.empty((len(self._calibration.matrix), *cube.shape[1:]), np.uint16)
        self._calibration.to_spectra(cube, corrected)
        return corrected


def snapshot_reflectance(frame: Counts, white: Counts, **options: Any) -> Counts:
    """The reflectance of one snapshot frame; options are those of SnapshotRoad."""
    return SnapshotRoad(white, **options).reflectance(frame)


def snapshot_spectra(frame: Counts, white: Counts, **options: Any) -> Counts:
    """The corrected spectra of one snapshot frame; options are those of SnapshotRoad."""
    return SnapshotRoad(white, **options).spectra(frame)


Progress = Callable[[int, int], object]


def line_scan_scene(
    frames: Sequence[Counts] | Counts, *, strip_height: int, first_band: int, last_band: int,
    progress: Progress | None = None,
) -> Counts:
    """Stitches line-scan frames of uint16 to the scene in counts, (band, row, column), the last frame's rows on top.

    frames may be a list, an array (frame, row, column) or what open_frames gives: each frame is used once, in order.
    The bands first_band to last_band are strips of strip_height rows, and there are at least as many frames as bands.
    progress is called with the number of frames done, and of all, after each.

    >>> frames = np.arange(9, dtype=np.uint16).reshape(3, 3, 1)
    >>> line_scan_scene(frames, strip_height=1, first_band=0, last_band=1).tolist()
    [[[3], [0]], [[7], [4]]]
    """
    total, bands = len(frames), count("last_band", last_band, first_band) - first_band + 1
    if total < bands:
        fail("frames", f"at least {bands} frames, one for each band", total)
    width, slices = np.shape(frames[0])[-1], total - bands + 1
    scene = np.empty((bands, slices * strip_height, width), np.uint16)
    with StitchingBuffer(width, strip_height, first_band, last_band) as ring:
        for t in range(total):
            ring.stitch_band_image(frames[t], t)
            if (done := t - bands + 2) > 0:
                row = (slices - done) * strip_height
                ring.get_stitched_slice(t, out=scene[:, row : row + strip_height])
            if progress:
                progress(t + 1, total)
    return scene


class LineScanRoad:
    """The road of a line-scan sensor, prepared once for many scenes; the other arguments are those of SnapshotRoad."""

    def __init__(
        self, white: Counts, *, strip_height: int, first_band: int, last_band: int, bias: Counts | None = None,
        matrix: ArrayLike | None = None, exposure: float = 1.0, white_exposure: float = 1.0,
        white_reflectance: float = 1.0, full_scale: int = 10000, saturation: int | None = None,
    ) -> None:
        self._bands: dict[str, int] = dict(strip_height=strip_height, first_band=first_band, last_band=last_band)
        self._saturation = FLAGGED if saturation is None else count("saturation", saturation, 1, FLAGGED)
        self._calibration = _Calibration(
            self._slice(white), None if bias is None else self._slice(bias), matrix, exposure, white_exposure,
            white_reflectance, full_scale)

    def _slice(self, frame: Counts) -> Counts:
        # Whatever the scene shows there, a slice's sample always comes from the same pixel.
        strip_height, first, last = self._bands.values()
        return np.stack([band_image_strip(frame, strip_height, band) for band in range(first, last + 1)])

    def reflectance(self, frames: Sequence[Counts] | Counts, *, progress: Progress | None = None) -> Counts:
        """The reflectance of the scene, (band, row, column); arguments are those of line_scan_scene."""
        scene = line_scan_scene(frames, **self._bands, progress=progress)
        saturated = scene >= self._saturation if self._saturation < FLAGGED else None
        # One slice's references serve them all, some slices in a call.
        together = min(16, scene.shape[1] // self._bands["strip_height"])
        for band, plane in enumerate(scene):
            bias = self._calibration.bias
            biases = None if bias is None else np.tile(bias[band], (together, 1))
            coefficients = np.tile(self._calibration.coefficients[band], (together, 1))
            for row in range(0, len(plane), len(coefficients)):
                part = plane[row : row + len(coefficients)]
                self._calibration.to_reflectance(
                    part, None if biases is None else biases[: len(part)], coefficients[: len(part)])
        if saturated is not None:
            scene[saturated] = FLAGGED
        return scene

    def spectra(self, frames: Sequence[Counts] | Counts, *, progress: Progress | None = None) -> Counts:
        """The corrected spectra of the scene, (output band, row, column)."""
        scene = self.reflectance(frames, progress=progress)
        corrected = np.empty((len(self._calibration.matrix), *scene.shape[1:]), np.uint16)
        step = self._bands["strip_height"]
        for row in range(0, scene.shape[1], step):
            self._calibration.to_spectra(scene[:, row : row + step], corrected[:, row : row + step])
        return corrected


def line_scan_reflectance(
    frames: Sequence[Counts] | Counts, white: Counts, *, progress: Progress | None = None, **options: Any
) -> Counts:
    """The reflectance of one scene; options are those of LineScanRoad."""
    return LineScanRoad(white, **options).reflectance(frames, progress=progress)


def line_scan_spectra(
    frames: Sequence[Counts] | Counts, white: Counts, *, progress: Progress | None = None, **options: Any
) -> Counts:
    """The corrected spectra of one scene; options are those of LineScanRoad."""
    return LineScanRoad(white, **options).spectra(frames, progress=progress)


class RGBXPictures(NamedTuple):
    """Pictures of float32: shares of white. The new WLI lacks 3 more pixels on every side than the others."""

    rgb: NDArray[np.float32]
    x: NDArray[np.float32]
    new_wli: NDArray[np.float32]


# Spacing and number of each grid of filters of one kind: X and the two halves of G repeat every 2 pixels, R and B 4.
_GRIDS = ((2, 0), (2, 1), (2, 2), (4, 5), (4, 7), (4, 13), (4, 15))


def smoothing_kernel(deviation: float) -> NDArray[np.float64]:
    """A Gaussian of 7 x 7 weights whose sum is 1; deviation is in pixels."""
    if not 0 < real("deviation", deviation) < math.inf:
        fail("deviation", "a number above 0", deviation)
    places = [(y, x) for y in range(-3, 4) for x in range(-3, 4)]
    weights = [math.exp(-(x * x + y * y) / (2 * deviation * deviation)) for y, x in places]
    total = 0.0
    for weight in weights:  # Not sum(), which newer Pythons round otherwise.
        total += weight
    return np.array(weights).reshape(7, 7) / total


class RGBXRoad:
    """The road of an RGBX sensor, prepared once for many frames; threads may share it.

    dark and flat, raw frames taken in the dark and of an even surface, show defects: samples that stand out from the
    median of their kind by more than defect_threshold of the range from black to white_level counts. Defects get the
    median of their neighbours of the same kind. blur is the deviation, in pixels, of the kernel that takes out the
    coarse structure, and weight the share of the RGB luma's detail in the new WLI.

    >>> road = RGBXRoad(black=0, white_level=100)
    >>> [picture.shape for picture in road.pictures(np.full((16, 20), 50, np.uint16))]
    [(3, 10, 14), (10, 14), (3, 4, 8)]
    """

    def __init__(
        self, *, dark: Counts | None = None, flat: Counts | None = None, black: int = 64, white_level: int = 4095,
        defect_threshold: float = 0.1, blur: float = 1.6, kb: float = 0.0722, kr: float = 0.2126,
    ) -> None:
        self._black = count("black", black, 0, FLAGGED - 1)
        self._range = count("white_level", white_level, self._black + 1, FLAGGED) - self._black
        self._kernel, self._luma = smoothing_kernel(blur), (real("kb", kb), real("kr", kr))
        threshold = real("defect_threshold", defect_threshold) * self._range
        self._defects: NDArray[np.bool_] | None = None
        for name, frame in (("dark", dark), ("flat", flat)):
            if frame is not None:
                view = array(name, frame, (UINT16,), 2)
                medians = _by_grid(view, median_filter_5x5)
                found = np.abs(view.astype(np.int32) - medians) > threshold
                if self._defects is not None:
                    same_shape(name, found, self._defects.shape)
                    found |= self._defects
                self._defects = found

    def cleaned(self, frame: Counts) -> Counts:
        """The frame with the median of their kind in place of defects."""
        view = array("frame", frame, (UINT16,), 2)
        if self._defects is None:
            return view
        same_shape("frame", view, self._defects.shape)
        return np.where(self._defects, _by_grid(view, median_filter_3x3), view)

    def bands(self, frame: Counts) -> NDArray[np.float32]:
        """Bands R, G, B, X, (band, row, column), as shares of white; 3 pixels are lost on every side."""
        black, width = np.float32(self._black), np.float32(self._range)
        return rgbx_demosaic_frame((self.cleaned(frame).astype(np.float32) - black) / width)

    def pictures(self, frame: Counts, *, weight: float = 0.5) -> RGBXPictures:
        """RGB, X and the new WLI of a frame of uint16, (row, column)."""
        bands = self.bands(frame)
        with NewWLIBuffers(bands.shape[2], bands.shape[1]) as buffers:
            return RGBXPictures(bands[:3], bands[3], buffers.compute(bands, self._kernel, *self._luma, weight))


def _by_grid(frame: Counts, median: Callable[[Counts], Counts]) -> Counts:
    """Medians among the samples of one kind: a pixel's neighbours on the sensor lie under other filters."""
    result = frame.copy()
    for cell, band in _GRIDS:
        image = ssm_band_image(frame, mosaic_width=cell, mosaic_height=cell, band=band)
        rows, columns = (n // cell * cell for n in frame.shape)
        result[band // cell : rows : cell, band % cell : columns : cell] = median(image)
    return result


def rgbx_pictures(frame: Counts, *, weight: float = 0.5, **options: Any) -> RGBXPictures:
    """RGB, X and the new WLI of one frame; options are those of RGBXRoad."""
    return RGBXRoad(**options).pictures(frame, weight=weight)
