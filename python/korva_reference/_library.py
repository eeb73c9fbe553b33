"""Finds the shared library, loads it on first use and declares its functions to ctypes."""

from __future__ import annotations

import ctypes
import os
import re
import sys
import sysconfig
import threading
from typing import Any, Callable, NamedTuple, TypeVar

# Of this package, and so of the library that it calls.
RELEASE = "1.0.0"
FILE_NAME = "libkorva_reference_api.so.1.0"
ENVIRONMENT_VARIABLE = "KORVA_REFERENCE_LIBRARY"


class NewWLIBuffersRecord(ctypes.Structure):
    """The record that the new-WLI functions take by value."""

    _fields_ = [(name, ctypes.c_void_p) for name in ("xResidual", "yFiltered", "yResidual", "yccImage")]


_TYPES = {
    "p": ctypes.c_void_p, "L": ctypes.c_ulong, "I": ctypes.c_uint, "H": ctypes.c_ushort, "f": ctypes.c_float,
    "d": ctypes.c_double, "B": NewWLIBuffersRecord, "v": None,
}

# One letter per argument, in order; what stands before the colon is returned.
SIGNATURES = {
    "KORVA_Ref_AllocateArray2D_float": "v:pLL",
    "KORVA_Ref_AllocateArray2D_uint16": "v:pLL",
    "KORVA_Ref_FreeArray2D_float": "v:p",
    "KORVA_Ref_FreeArray2D_uint16": "v:p",
    "KORVA_Ref_AllocateArray3D_BSQ_float": "v:pLLL",
    "KORVA_Ref_AllocateArray3D_BSQ_uint16": "v:pLLL",
    "KORVA_Ref_FreeArray3D_BSQ_float": "v:p",
    "KORVA_Ref_FreeArray3D_BSQ_uint16": "v:p",
    "KORVA_Ref_ReadRawDataFromDisk": "v:pppLL",
    "KORVA_Ref_WriteRawDataToDisk": "v:pppLL",
    "KORVA_Ref_CG_CropImage_uint16": "v:ppLLLLLL",
    "KORVA_Ref_CG_SSM_GetBandImage_uint16": "v:ppLLLLL",
    "KORVA_Ref_CG_SST_GetBandImage_uint16": "v:ppLLLLL",
    "KORVA_Ref_CG_LS_AllocateStitchingBuffer_uint16": "v:pLLLLL",
    "KORVA_Ref_CG_LS_FreeStitchingBuffer_uint16": "v:p",
    "KORVA_Ref_CG_LS_GetBandImageStrip_uint16": "v:ppLLLL",
    "KORVA_Ref_CG_LS_StitchBandImageStrip_uint16": "v:ppLLLLLLL",
    "KORVA_Ref_CG_LS_StitchBandImage_uint16": "v:ppLLLLL",
    "KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16": "v:ppLLLLLLL",
    "KORVA_Ref_RC_CorrectBias_float": "v:pppL",
    "KORVA_Ref_RC_CorrectBias_uint16": "v:pppL",
    "KORVA_Ref_RC_ComputeCorrectionCoefficients_float": "v:ppLddf",
    "KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16": "v:ppLddH",
    "KORVA_Ref_RC_ComputeReflectance_float": "v:pppLdff",
    "KORVA_Ref_RC_ComputeReflectance_uint16": "v:pppLdHHH",
    "KORVA_Ref_SC_ApplySpectralCorrection_float": "v:pppII",
    "KORVA_Ref_SC_ApplySpectralCorrection_uint16": "v:pppII",
    "KORVA_Ref_SC_ApplySpectralCorrection_BIP_float": "v:pppIII",
    "KORVA_Ref_SC_ApplySpectralCorrection_BIP_uint16": "v:pppIII",
    "KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float": "v:ppppIII",
    "KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16": "v:ppppIII",
    "KORVA_Ref_DM_ComputeFilterPosition": "v:ppII",
    "KORVA_Ref_DM_ComputeTargetPositionRelativeToFilterPosition": "v:ppIIdd",
    "KORVA_Ref_DM_ComputeCoefficientsBilinear": "v:pIIdd",
    "KORVA_Ref_DM_ApplyDemosaicingBilinear_dbl": "v:ppIIpdd",
    "KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16": "v:ppIIpdd",
    "KORVA_Ref_MF_Median1D_9_uint16": "H:p",
    "KORVA_Ref_MF_Median1D_9_float": "f:p",
    "KORVA_Ref_MF_Median1D_25_uint16": "H:p",
    "KORVA_Ref_MF_Median1D_25_float": "f:p",
    "KORVA_Ref_MF_Median1D_uint16": "H:pL",
    "KORVA_Ref_MF_Median1D_float": "f:pL",
    "KORVA_Ref_MF_Median2D_3x3_uint16": "v:pppp",
    "KORVA_Ref_MF_Median2D_3x3_float": "v:pppp",
    "KORVA_Ref_MF_Median2D_5x5_uint16": "v:pppp",
    "KORVA_Ref_MF_Median2D_5x5_float": "v:pppp",
    "KORVA_Ref_Subtract_float": "v:pppLL",
    "KORVA_Ref_Add_float": "v:pppLL",
    "KORVA_Ref_Mix_float": "v:pppLLd",
    "KORVA_Ref_Crop_float": "v:ppLLLLLL",
    "KORVA_Ref_ApplyKernel7x7_float": "v:ppLLp",
    "KORVA_Ref_RGBToYCbCr_float": "v:ppLLdd",
    "KORVA_Ref_YCbCrToRGB_float": "v:ppLLdd",
    "KORVA_Ref_RGBX_ComputeBand_R_float": "v:ppLL",
    "KORVA_Ref_RGBX_ComputeBand_G_float": "v:ppLL",
    "KORVA_Ref_RGBX_ComputeBand_B_float": "v:ppLL",
    "KORVA_Ref_RGBX_ComputeBand_X_float": "v:ppLL",
    "KORVA_Ref_RGBX_DemosaicFrame_float": "v:pppLL",
    "KORVA_Ref_RGBX_AllocateNewWLIBuffers_float": "v:pLL",
    "KORVA_Ref_RGBX_FreeNewWLIBuffers_float": "v:B",
    "KORVA_Ref_RGBX_ComputeNewWLI_float": "v:ppLLpBddd",
}


class LoadedLibrary(NamedTuple):
    """Which file the functions come from, and the release that stands in it."""

    path: str
    release: str


class _SymbolInfo(ctypes.Structure):
    """What dladdr tells about an address, the name of its file first."""

    _fields_ = [(name, ctypes.c_void_p) for name in ("file", "base", "name", "address")]


Result = TypeVar("Result")

_recording = threading.local()
_functions: dict[str, Any] = {}
_loaded: LoadedLibrary | None = None


def _candidates() -> list[str]:
    named = os.environ.get(ENVIRONMENT_VARIABLE)
    if named:
        return [named]
    machine = sysconfig.get_config_var("MULTIARCH") or ""
    folders = [os.path.dirname(__file__)]
    for prefix in dict.fromkeys((sys.prefix, sys.base_prefix, "/usr/local")):
        folders += [os.path.join(prefix, part) for part in ("lib", f"lib/{machine}", "lib64") if not part.endswith("/")]
    # The bare name asks the dynamic linker: LD_LIBRARY_PATH, ldconfig's cache, the standard folders.
    return [os.path.join(folder, FILE_NAME) for folder in dict.fromkeys(folders)] + [FILE_NAME]


def _identify(function: Any) -> LoadedLibrary:
    """The file that a function lies in; its release stands there as text."""
    info = _SymbolInfo()
    ctypes.CDLL(None).dladdr(function, ctypes.byref(info))
    path = os.path.realpath(os.fsdecode(ctypes.string_at(info.file)))
    with open(path, "rb") as file:
        release = re.search(rb"korva_reference_api release ([0-9.]+)", file.read())
    return LoadedLibrary(path, release.group(1).decode() if release else "unknown")


def _load() -> None:
    global _loaded
    candidates, reason = _candidates(), ""
    library = None
    for path in candidates:
        if os.sep in path and not os.path.exists(path):
            continue
        try:
            library = ctypes.CDLL(path)
            break
        except OSError as error:
            if os.sep in path:
                reason = f"; {error}"
    if library is None:
        hint = "" if len(candidates) == 1 else f" (or name the file in {ENVIRONMENT_VARIABLE})"
        raise OSError(f"korva_reference: shared library not found, looked for {', '.join(candidates)}{hint}{reason}")
    functions = {}
    for name, signature in SIGNATURES.items():
        try:
            function = getattr(library, name)
        except AttributeError:
            raise OSError(f"korva_reference: {path} is not this package's library, it has no {name}") from None
        returned, arguments = signature.split(":")
        function.restype = _TYPES[returned]
        function.argtypes = [_TYPES[letter] for letter in arguments]
        functions[name] = function
    loaded = _identify(function)
    if loaded.release != RELEASE:
        raise OSError(f"korva_reference: {loaded.path} is release {loaded.release}, this package is {RELEASE}; "
                      f"install both of one release, or name another file in {ENVIRONMENT_VARIABLE}")
    # Two threads may come here at a time, and do the same.
    _functions.update(functions)
    _loaded = loaded


def loaded_library() -> LoadedLibrary:
    """Which file the functions come from, with its path and release; loads it if no call has yet."""
    if _loaded is None:
        _load()
    assert _loaded is not None
    return _loaded


def ask(name: str, *arguments: Any) -> Any:
    """Calls a library function that no samples go through, only numbers."""
    if not _functions:
        _load()
    return _functions[name](*arguments)


def call(name: str, *arguments: Any) -> Any:
    """Calls a library function without the interpreter lock; the arguments stay alive until it returns."""
    result = ask(name, *arguments)
    if (steps := getattr(_recording, "steps", None)) is not None:
        steps.append((_functions[name], arguments))
    return result


def step(function: Callable[..., Any], *arguments: Any) -> None:
    """Calls any other function that works on samples, all of whose results go into its arguments."""
    steps, _recording.steps = getattr(_recording, "steps", None), None
    function(*arguments)
    _recording.steps = steps
    if steps is not None:
        steps.append((function, arguments))


def repeatable(function: Callable[..., Result], *arguments: Any) -> tuple[Result, Callable[[], None]]:
    """The result of a function, and what computes it again, into the same memory, from what its arguments hold then.

    Only calls and steps are repeated, without their checks and on the arrays that they had, and so by one thread at a
    time. Checks and new memory are what keeps threads waiting for each other: for the interpreter, for pages.
    """
    steps: list[tuple[Callable[..., Any], tuple[Any, ...]]] = []
    _recording.steps = steps
    try:
        result = function(*arguments)
    finally:
        _recording.steps = None

    def again() -> None:
        for function, arguments in steps:
            function(*arguments)

    return result, again
