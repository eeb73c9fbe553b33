"""Crops of raw frames, band images of snapshot sensors, and the stitching of line-scan frames."""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import NDArray

from ._arrays import (
    SAMPLES, Sample, UINT16, UNSIGNED_LONG, array, count, fail, first_row, is_planes, is_rows, is_run, new, output,
    planes, readable, require_memory, rows,
)
from ._buffers import WorkingMemory
from ._library import call


def crop_image(
    image: NDArray[Sample], *, left: int, top: int, width: int, height: int, out: NDArray[Sample] | None = None
) -> NDArray[Sample]:
    """Copies a rectangle out of a frame or image of uint16 or float32, (row, column).

    left and top are the column and row of its first sample; the result has shape (height, width).
    Calls KORVA_Ref_CG_CropImage_uint16 or KORVA_Ref_Crop_float.

    >>> frame = np.arange(20, dtype=np.uint16).reshape(4, 5)
    >>> crop_image(frame, left=1, top=2, width=3, height=2).tolist()
    [[11, 12, 13], [16, 17, 18]]
    """
    left, top = count("left", left), count("top", top)
    width, height = count("width", width), count("height", height)
    view = array("image", image, SAMPLES, 2)
    if left + width > view.shape[1] or top + height > view.shape[0]:
        fail("crop", f"a rectangle inside {view.shape} (rows, columns)",
             f"rows {top} to {top + height}, columns {left} to {left + width}")
    target = output(out, (height, width), view.dtype.newbyteorder("="), is_rows, apart=(view,))
    if target.size:
        name = "KORVA_Ref_CG_CropImage_uint16" if target.dtype == UINT16 else "KORVA_Ref_Crop_float"
        call(name, rows(target), rows(view), view.shape[1], view.shape[0], left, top, width, height)
    return target if out is None else out


def ssm_band_image(
    frame: NDArray[np.uint16], *, mosaic_width: int, mosaic_height: int, band: int,
    out: NDArray[np.uint16] | None = None,
) -> NDArray[np.uint16]:
    """Takes one band's image out of a snapshot-mosaic frame of uint16, one sample per whole mosaic cell.

    band = cell row * mosaic_width + cell column; the result has shape (rows // mosaic_height, columns // mosaic_width).
    Calls KORVA_Ref_CG_SSM_GetBandImage_uint16.

    >>> frame = np.arange(16, dtype=np.uint16).reshape(4, 4)
    >>> ssm_band_image(frame, mosaic_width=2, mosaic_height=2, band=1).tolist()
    [[1, 3], [9, 11]]
    """
    mosaic_width, mosaic_height = count("mosaic_width", mosaic_width, 1), count("mosaic_height", mosaic_height, 1)
    band = count("band", band, 0, min(mosaic_width * mosaic_height - 1, UNSIGNED_LONG))
    view = array("frame", frame, (UINT16,), 2)
    height, width = view.shape
    target = output(out, (height // mosaic_height, width // mosaic_width), UINT16, is_rows, apart=(view,))
    if target.size:
        call("KORVA_Ref_CG_SSM_GetBandImage_uint16", rows(target), rows(view), width, height, mosaic_width,
             mosaic_height, band)
    return target if out is None else out


def ssm_cube(
    frame: NDArray[np.uint16], *, mosaic_width: int, mosaic_height: int, out: NDArray[np.uint16] | None = None
) -> NDArray[np.uint16]:
    """Takes all band images out of a snapshot-mosaic frame: ssm_band_image for every band, as (band, row, column).

    >>> frame = np.arange(16, dtype=np.uint16).reshape(4, 4)
    >>> ssm_cube(frame, mosaic_width=2, mosaic_height=2)[:, 0, 0].tolist()
    [0, 1, 4, 5]
    """
    mosaic_width, mosaic_height = count("mosaic_width", mosaic_width, 1), count("mosaic_height", mosaic_height, 1)
    view = array("frame", frame, (UINT16,), 2)
    bands, height, width = mosaic_width * mosaic_height, view.shape[0] // mosaic_height, view.shape[1] // mosaic_width
    if not height or not width:
        fail("frame", f"at least one mosaic cell of {mosaic_height} rows and {mosaic_width} columns", view.shape)
    target = output(out, (bands, height, width), UINT16, is_planes, apart=(view,))
    view = readable(view, is_rows)  # If it must be copied, then once and not for every band.
    for band in range(bands):
        ssm_band_image(view, mosaic_width=mosaic_width, mosaic_height=mosaic_height, band=band, out=target[band])
    return target if out is None else out


def sst_band_image(
    frame: NDArray[np.uint16], *, tile_width: int, tile_height: int, band: int, out: NDArray[np.uint16] | None = None
) -> NDArray[np.uint16]:
    """Takes one band's image, its tile, out of a snapshot-tiled frame of uint16.

    Tiles are numbered row by row across the frame's whole tiles; the result has shape (tile_height, tile_width).
    Calls KORVA_Ref_CG_SST_GetBandImage_uint16.

    >>> frame = np.arange(16, dtype=np.uint16).reshape(4, 4)
    >>> sst_band_image(frame, tile_width=2, tile_height=2, band=3).tolist()
    [[10, 11], [14, 15]]
    """
    tile_width, tile_height = count("tile_width", tile_width, 1), count("tile_height", tile_height, 1)
    band = count("band", band)
    view = array("frame", frame, (UINT16,), 2)
    height, width = view.shape
    tiles = (width // tile_width) * (height // tile_height)
    if band >= tiles:
        fail("band", f"one of {tiles} tiles of {tile_height} rows and {tile_width} columns", band)
    target = output(out, (tile_height, tile_width), UINT16, is_rows, apart=(view,))
    call("KORVA_Ref_CG_SST_GetBandImage_uint16", rows(target), rows(view), width, height, tile_width, tile_height, band)
    return target if out is None else out


def band_image_strip(
    frame: NDArray[np.uint16], strip_height: int, band: int, *, out: NDArray[np.uint16] | None = None
) -> NDArray[np.uint16]:
    """Copies one band's strip out of a line-scan frame of uint16: frame rows band * strip_height and following.

    The result has shape (strip_height, columns). Calls KORVA_Ref_CG_LS_GetBandImageStrip_uint16.

    >>> frame = np.arange(12, dtype=np.uint16).reshape(6, 2)
    >>> band_image_strip(frame, strip_height=2, band=1).tolist()
    [[4, 5], [6, 7]]
    """
    strip_height, band = count("strip_height", strip_height), count("band", band)
    view = array("frame", frame, (UINT16,), 2)
    height, width = view.shape
    if (band + 1) * strip_height > height:
        fail("band", f"a strip of {strip_height} rows inside {height} rows", band)
    target = output(out, (strip_height, width), UINT16, is_rows, apart=(view,))
    if target.size:
        call("KORVA_Ref_CG_LS_GetBandImageStrip_uint16", rows(target), rows(view), width, height, strip_height, band)
    return target if out is None else out


class StitchingBuffer(WorkingMemory):
    """The ring of a line-scan sensor, which collects each band's strips over successive frames.

    The bands first_band to last_band lie in a frame as strips of strip_height rows of width samples, from the top down.
    bands is the number of ring planes, by default one for each of the last_band - first_band + 1 bands. For each frame
    t = 0, 1, 2, ... of a scan call stitch_band_image(frame, t); once t >= last_band - first_band, get_stitched_slice
    with the same t copies the completed strip of all bands into a slice cube. The ring starts filled with zeros.

    release() or a with block gives the memory back, and any use after that is a ValueError. Several threads may store
    strips at a time, each another band or frame, while none takes a slice.

    >>> slices = np.zeros((2, 3, 4), np.uint16)
    >>> with StitchingBuffer(width=4, strip_height=1, first_band=0, last_band=1) as ring:
    ...     for t in range(4):
    ...         ring.stitch_band_image(np.full((2, 4), t, np.uint16), t)
    ...         if t >= 1:
    ...             slices = ring.get_stitched_slice(t, out=slices)
    >>> slices[:, :, 0].tolist()
    [[2, 1, 0], [3, 2, 1]]
    """

    def __init__(
        self, width: int, strip_height: int, first_band: int, last_band: int, bands: int | None = None
    ) -> None:
        width, strip_height = count("width", width), count("strip_height", strip_height, 1)
        first_band = count("first_band", first_band, 0, UNSIGNED_LONG - 1)
        last_band = count("last_band", last_band, first_band, UNSIGNED_LONG - 1)
        positions = last_band - first_band + 1
        bands = positions if bands is None else count("bands", bands, 1)
        size = bands * positions * strip_height * width * 2
        require_memory("stitching buffer", size + 8 * bands * (positions * strip_height + 1))
        self._geometry = (width, strip_height, first_band, last_band, bands)
        ring = new((bands, positions * strip_height, width), UINT16, clear=True)
        self._memory = ring, planes(ring)

    def stitch_band_image(self, frame: NDArray[np.uint16], frame_index: int) -> None:
        """Stores the strips of all bands of a frame of uint16, (row, column), in the ring.

        The frame has width columns and at least (last_band + 1) * strip_height rows.
        Calls KORVA_Ref_CG_LS_StitchBandImage_uint16.
        """
        width, strip_height, first_band, last_band, bands = self._geometry
        frame_index = count("frame_index", frame_index)
        view = array("frame", frame, (UINT16,), 2)
        if view.shape[1] != width or view.shape[0] < (last_band + 1) * strip_height:
            fail("frame", f"{width} columns and at least {(last_band + 1) * strip_height} rows", f"shape {view.shape}")
        if bands < last_band - first_band + 1:
            fail("stitch_band_image", f"a ring of {last_band - first_band + 1} planes", bands)
        view = readable(view[: (last_band + 1) * strip_height], is_run)
        call("KORVA_Ref_CG_LS_StitchBandImage_uint16", self._use()[1], rows(view), width, strip_height, first_band,
             last_band, frame_index)

    def stitch_band_image_strip(
        self, strip: NDArray[np.uint16], band: int, frame_index: int, buffer_band: int | None = None
    ) -> None:
        """Stores one band's strip of uint16, (strip_height, width), in plane buffer_band of the ring.

        band is its frame band; buffer_band is band - first_band unless given.
        Calls KORVA_Ref_CG_LS_StitchBandImageStrip_uint16.
        """
        width, strip_height, first_band, last_band, bands = self._geometry
        band = count("band", band, first_band, last_band)
        buffer_band = count("buffer_band", band - first_band if buffer_band is None else buffer_band, 0, bands - 1)
        frame_index = count("frame_index", frame_index)
        view = array("strip", strip, (UINT16,), 2)
        if view.shape != (strip_height, width):
            fail("strip", f"shape {(strip_height, width)}", view.shape)
        call("KORVA_Ref_CG_LS_StitchBandImageStrip_uint16", self._use()[1], first_row(view), width, strip_height,
             first_band, last_band, band, buffer_band, frame_index)

    def get_stitched_slice(self, frame_index: int, out: NDArray[np.uint16]) -> NDArray[np.uint16]:
        """Copies the strip that frame frame_index completed into its place in the slice cube out, and returns out.

        out is a cube of uint16, (band, row, column), of at most the ring's planes, at least strip_height rows and width
        columns; all but the strip's rows stay as they are. The first complete strip goes to the bottom, each later one
        above it, and after the top one the next replaces the bottom one. frame_index is at least last_band -
        first_band. Calls KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16.
        """
        width, strip_height, first_band, last_band, bands = self._geometry
        frame_index = count("frame_index", frame_index, last_band - first_band)
        view = array("out", out, (UINT16,), 3)
        if view.shape[0] > bands or view.shape[1] < strip_height or view.shape[2] != width:
            fail("out", f"at most {bands} bands, at least {strip_height} rows and {width} columns", view.shape)
        view = output(view, view.shape, UINT16, is_planes)
        ring = self._use()[1]
        if view.size:
            call("KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16", planes(view), ring, width, strip_height,
                 view.shape[1], view.shape[0], first_band, last_band, frame_index)
        return out

    def to_array(self) -> NDArray[np.uint16]:
        """A copy of the ring, (plane, row, column); slot k of a plane is its rows k * strip_height and following."""
        return np.array(self._use()[0])
