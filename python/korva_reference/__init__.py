"""The Korva reference routines for hyperspectral cameras, on NumPy arrays.

Images are (row, column) and cubes (band, row, column). Samples are uint16, float32 or, where it says so, float64; an
array's dtype chooses the routine. Every result is bit for bit the library's.

Arguments are checked before the library is called: a wrong type is a TypeError, a wrong value, shape or overlap a
ValueError, each with what was expected and what was found. Memory that this machine does not have is a MemoryError.

out= takes an array for the result, of exactly its shape and type, in this machine's byte order, with contiguous rows
(images), planes (cubes) or as one block (all else). It must be memory apart from the inputs unless the function says
that it may be an input itself. Inputs are read where they lie if their rows, planes or samples are contiguous in the
same sense; any other layout, the other byte order and odd alignment are copied first.

Calls release the interpreter lock, so threads run side by side; no two of them may write the same array.

The shared library is loaded at the first call: the file named by the environment variable KORVA_REFERENCE_LIBRARY, or
libkorva_reference_api.so.1.0 beside this package, in the lib folder of the Python environment, or where the dynamic
linker finds it. A name without a folder in that variable asks the dynamic linker at once. If there is no library, or
one of another release, that call raises an OSError that says so; loaded_library() tells which file it is.
"""

import importlib as _importlib
from types import ModuleType as _ModuleType

from . import envi
from ._library import RELEASE as __version__
from ._library import loaded_library
from .cube_generation import StitchingBuffer, band_image_strip, crop_image, ssm_band_image, ssm_cube, sst_band_image
from .demosaicing import (
    apply_demosaicing_bilinear,
    bilinear_coefficients,
    demosaic_cube,
    filter_position,
    target_position_relative_to_filter_position,
)
from .image_operations import add, apply_kernel_7x7, mix, rgb_to_ycbcr, subtract, ycbcr_to_rgb
from .median_filtering import median_1d, median_1d_9, median_1d_25, median_filter_3x3, median_filter_5x5
from .raw_files import RawFrames, open_frames, read_raw_data, write_raw_data
from .reflectance_calculation import INVALID_COEFFICIENT, correct_bias, correction_coefficients, reflectance
from .rgbx import NewWLIBuffers, rgbx_compute_band, rgbx_compute_new_wli, rgbx_demosaic_frame
from .roads import (
    FLAGGED,
    LineScanRoad,
    RGBXPictures,
    RGBXRoad,
    SnapshotRoad,
    line_scan_reflectance,
    line_scan_scene,
    line_scan_spectra,
    rgbx_pictures,
    smoothing_kernel,
    snapshot_bands,
    snapshot_reflectance,
    snapshot_spectra,
)
from .spectral_correction import apply_spectral_correction, apply_spectral_correction_bsq

__all__ = [
    "__version__",
    "FLAGGED",
    "INVALID_COEFFICIENT",
    "LineScanRoad",
    "NewWLIBuffers",
    "RGBXPictures",
    "RGBXRoad",
    "RawFrames",
    "SnapshotRoad",
    "StitchingBuffer",
    "add",
    "apply_demosaicing_bilinear",
    "apply_kernel_7x7",
    "apply_spectral_correction",
    "apply_spectral_correction_bsq",
    "band_image_strip",
    "bilinear_coefficients",
    "correct_bias",
    "correction_coefficients",
    "crop_image",
    "demosaic_cube",
    "envi",
    "filter_position",
    "line_scan_reflectance",
    "line_scan_scene",
    "line_scan_spectra",
    "loaded_library",
    "median_1d",
    "median_1d_25",
    "median_1d_9",
    "median_filter_3x3",
    "median_filter_5x5",
    "mix",
    "open_frames",
    "read_raw_data",
    "reflectance",
    "rgb_to_ycbcr",
    "rgbx_compute_band",
    "rgbx_compute_new_wli",
    "rgbx_demosaic_frame",
    "rgbx_pictures",
    "smoothing_kernel",
    "snapshot_bands",
    "snapshot_reflectance",
    "snapshot_spectra",
    "ssm_band_image",
    "ssm_cube",
    "sst_band_image",
    "subtract",
    "target_position_relative_to_filter_position",
    "write_raw_data",
    "ycbcr_to_rgb",
]


def __getattr__(name: str) -> _ModuleType:
    if name == "conformance":  # Loaded when it is first used.
        return _importlib.import_module(".conformance", __name__)
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
