"""Random valid calls of every public function, what each gives on plain arrays, and guarded memory for their arrays."""

import copy
import ctypes
import mmap

import numpy as np

import korva_reference as korva
from korva_reference import INVALID_COEFFICIENT

# Values where comparisons, rounding and conversion change their minds.
UINT16_EDGES = np.array([0, 1, 2, 32767, 32768, 65534, 65535], np.uint16)
FLOAT_EDGES = np.array([0.0, -0.0, 1e-45, -1.5, 0.5, 65535.5, 3.4e38, np.inf, -np.inf, np.nan])


def samples(rng, dtype, shape, edges=True):
    if dtype == np.uint16:
        values, special = rng.integers(0, 65536 if rng.random() < 0.7 else 9, shape).astype(dtype), UINT16_EDGES
    else:
        values, special = (rng.random(shape) * 70000 - 2000).astype(dtype), FLOAT_EDGES.astype(dtype)
    if edges and rng.random() < 0.5:
        values = np.where(rng.random(shape) < 0.1, rng.choice(special, shape), values)
    return values


def sample_type(rng, *dtypes):
    return np.dtype(rng.choice(dtypes or ("u2", "f4")))


def size(rng, least=1, most=14):
    return int(rng.integers(least, most))


def crop_image(rng):
    image = samples(rng, sample_type(rng), (size(rng), size(rng)))
    top, left = (int(rng.integers(0, n)) for n in image.shape)
    height, width = (int(rng.integers(0, n - start + 1)) for n, start in zip(image.shape, (top, left)))
    return dict(image=image, left=left, top=top, width=width, height=height)


def _mosaic(rng):
    cell = dict(mosaic_width=size(rng, 1, 6), mosaic_height=size(rng, 1, 6))
    return samples(rng, np.dtype("u2"), (size(rng, 6, 30), size(rng, 6, 30))), cell


def ssm_band_image(rng):
    frame, cell = _mosaic(rng)
    cell["band"] = int(rng.integers(0, cell["mosaic_width"] * cell["mosaic_height"]))
    return dict(frame=frame, **cell)


def ssm_cube(rng):
    frame, cell = _mosaic(rng)
    return dict(frame=frame, **cell)


def sst_band_image(rng):
    frame = samples(rng, np.dtype("u2"), (size(rng, 6, 30), size(rng, 6, 30)))
    tile = dict(tile_width=size(rng, 1, 6), tile_height=size(rng, 1, 6))
    tiles = (frame.shape[1] // tile["tile_width"]) * (frame.shape[0] // tile["tile_height"])
    tile["band"] = int(rng.integers(0, tiles))
    return dict(frame=frame, **tile)


def band_image_strip(rng):
    frame, strip_height = samples(rng, np.dtype("u2"), (size(rng, 6, 20), size(rng))), size(rng, 0, 5)
    band = int(rng.integers(0, frame.shape[0] // strip_height)) if strip_height else 3
    return dict(frame=frame, strip_height=strip_height, band=band)


def scan_call(frames, width, strip_height, first_band, last_band, bands, slices, by_strip):
    """A whole scan through a ring; the slices' memory is the result."""
    with korva.StitchingBuffer(width, strip_height, first_band, last_band, bands) as ring:
        for t, frame in enumerate(frames):
            if by_strip:
                for band in range(first_band, last_band + 1):
                    ring.stitch_band_image_strip(korva.band_image_strip(frame, strip_height, band), band, t)
            else:
                ring.stitch_band_image(frame, t)
            if t >= last_band - first_band:
                ring.get_stitched_slice(t, out=slices)
    return slices


def scan(rng):
    width, strip_height, first_band, positions = size(rng, 1, 6), size(rng, 1, 4), size(rng, 0, 3), size(rng, 1, 5)
    rows = (first_band + positions) * strip_height + size(rng, 0, 2)
    frames = samples(rng, np.dtype("u2"), (positions + size(rng, 0, 9), rows, width))
    slices = np.zeros((size(rng, 1, positions + 1), strip_height * size(rng, 1, 4) + size(rng, 0, 2), width), np.uint16)
    return dict(
        frames=frames, width=width, strip_height=strip_height, first_band=first_band,
        last_band=first_band + positions - 1, bands=None, slices=slices, by_strip=bool(rng.integers(2)),
    )


def strip_call(strip, width, strip_height, first_band, last_band, bands, band, frame_index, buffer_band, slices, last):
    """One strip into a ring, and a slice out of it; what ring and slices hold then."""
    with korva.StitchingBuffer(width, strip_height, first_band, last_band, bands) as ring:
        ring.stitch_band_image_strip(strip, band, frame_index, buffer_band)
        ring.get_stitched_slice(last, out=slices)
        return np.concatenate([ring.to_array().ravel(), slices.ravel()])


def strip(rng):
    width, strip_height, first_band, positions = size(rng, 0, 6), size(rng, 1, 4), size(rng, 0, 3), size(rng, 1, 5)
    bands = size(rng, 1, 5)
    slices = samples(rng, np.dtype("u2"), (size(rng, 0, bands + 1), strip_height * size(rng, 1, 4) + size(rng, 0, 2),
                                           width))
    return dict(
        strip=samples(rng, np.dtype("u2"), (strip_height, width)), width=width, strip_height=strip_height,
        first_band=first_band, last_band=first_band + positions - 1, bands=bands,
        band=first_band + size(rng, 0, positions), frame_index=[0, 1, 7, 2**64 - 1][rng.integers(4)],
        buffer_band=size(rng, 0, bands), slices=slices, last=positions - 1 + size(rng, 0, 9),
    )


def correct_bias(rng):
    dtype, shape = sample_type(rng), tuple(size(rng, 1, 6) for _ in range(size(rng, 1, 4)))
    return dict(frame=samples(rng, dtype, shape), bias=samples(rng, dtype, shape))


def correction_coefficients(rng):
    white = samples(rng, sample_type(rng), (size(rng), size(rng)))
    rest = dict(factor1=float(rng.random()), factor2=float(rng.random() * 3), flag_value=int(rng.integers(0, 9)))
    return dict(white=white, **rest)


def reflectance(rng):
    dtype, shape = sample_type(rng), (size(rng), size(rng))
    frame = samples(rng, dtype, shape)
    coefficients = rng.random(shape) / 30000
    coefficients[rng.random(shape) < 0.1] = INVALID_COEFFICIENT
    rest = dict(divisor=float(rng.random() + 0.1), flag_value=int(rng.integers(0, 9)), limit_value=60000)
    if dtype == np.uint16:
        rest["full_scale"] = int(rng.integers(0, 65536))
    return dict(frame=frame, coefficients=coefficients, **rest)


def _matrix(rng, in_bands):
    scale = rng.choice([1.0, 1.0, 1e6])
    return (rng.random((size(rng, 0, 9), in_bands)) * 2 - 0.8) * scale / max(in_bands, 1)


def apply_spectral_correction(rng):
    shape = tuple(size(rng, 1, 6) for _ in range(size(rng, 0, 3)))
    spectra = samples(rng, sample_type(rng), (*shape, size(rng, 0, 20)))
    return dict(spectra=spectra, matrix=_matrix(rng, spectra.shape[-1]))


def apply_spectral_correction_bsq(rng):
    cube = samples(rng, sample_type(rng), (size(rng, 0, 20), size(rng, 1, 8), size(rng, 1, 8)))
    return dict(cube=cube, matrix=_matrix(rng, len(cube)))


def bilinear_coefficients(rng):
    p, q = size(rng), size(rng)
    offsets = dict(row_offset=float(rng.uniform(-p, p)), column_offset=float(rng.uniform(-q, q)))
    return dict(mosaic_height=p, mosaic_width=q, **offsets)


def filter_position(rng):
    return dict(mosaic_width=size(rng), band=size(rng, 0, 200))


def target_position_relative_to_filter_position(rng):
    position, target = (size(rng, 0), size(rng, 0)), rng.random(2) * 9
    names = ("filter_row", "filter_column", "target_row", "target_column")
    return dict(zip(names, (*position, *target.tolist())))


def apply_demosaicing_bilinear(rng):
    image = samples(rng, sample_type(rng, "u2", "f8"), (size(rng), size(rng)))
    row_offset, column_offset = (float(rng.choice([0.0, -0.0, 1.5, -0.5, np.inf])) for _ in range(2))
    weights = rng.random(4) * rng.choice([0.5, 0.5, 40]) * (rng.random(4) < 0.9)
    return dict(band_image=image, weights=weights, row_offset=row_offset, column_offset=column_offset)


def demosaic_cube(rng):
    width, height = size(rng, 1, 4), size(rng, 1, 4)
    cube = samples(rng, sample_type(rng, "u2", "f8"), (width * height, size(rng, 1, 6), size(rng, 1, 6)))
    target = float(rng.random() * height), float(rng.random() * width)
    return dict(cube=cube, mosaic_width=width, mosaic_height=height, target_row=target[0], target_column=target[1])


def _median_1d(count):
    def make(rng):
        # NaN has a defined fate in the networks only, and the place of equal zeros in a selection is open.
        return dict(values=samples(rng, sample_type(rng), (count or size(rng, 1, 40),), edges=count is not None))

    return make


def _median_filter(radius):
    def make(rng):
        shape = (size(rng, 2 * radius, 14), size(rng, 2 * radius, 20))
        dtype, planes = sample_type(rng), rng.integers(0, 3)
        return dict(image=samples(rng, dtype, (planes, *shape) if planes else shape, edges=dtype == np.uint16))

    return make


def _pixelwise(*parameters):
    def make(rng):
        shape = (size(rng), size(rng))
        a, b = samples(rng, np.dtype("f4"), shape), samples(rng, np.dtype("f4"), shape)
        return dict(a=a, b=b, **{name: float(rng.random() * 3 - 1) for name in parameters})

    return make


def apply_kernel_7x7(rng):
    return dict(image=samples(rng, np.dtype("f4"), (size(rng, 1, 20), size(rng, 1, 20))), kernel=rng.random((7, 7)))


def _conversion(rng):
    image = samples(rng, np.dtype("f4"), (3, size(rng), size(rng)))
    return dict(image=image, kb=float(rng.random() / 2), kr=float(rng.random() / 2))


def _rgbx_frame(rng):
    return samples(rng, np.dtype("f4"), (size(rng, 6, 18), 4 * size(rng, 2, 6)))


def rgbx_compute_band(rng):
    return dict(frame=_rgbx_frame(rng), band=str(rng.choice(list("RGBX"))))


def rgbx_demosaic_frame(rng):
    return dict(frame=_rgbx_frame(rng))


def rgbx_compute_new_wli(rng):
    bands = samples(rng, np.dtype("f4"), (4, size(rng, 6, 18), size(rng, 6, 18)), edges=False)
    return dict(bands=bands, kernel=rng.random((7, 7)) / 30, kb=0.114, kr=0.299, weight=float(rng.random() * 1.5))


def new_wli_call(width, height, bands, out=None, **rest):
    with korva.NewWLIBuffers(width, height) as buffers:
        return buffers.compute(bands, out=out, **rest)


def new_wli(rng):
    arguments = rgbx_compute_new_wli(rng)
    return dict(width=arguments["bands"].shape[2], height=arguments["bands"].shape[1], **arguments)


CASES = {
    "crop_image": crop_image, "ssm_band_image": ssm_band_image, "ssm_cube": ssm_cube, "sst_band_image": sst_band_image,
    "band_image_strip": band_image_strip, "scan": scan, "strip": strip, "correct_bias": correct_bias,
    "correction_coefficients": correction_coefficients, "reflectance": reflectance,
    "apply_spectral_correction": apply_spectral_correction,
    "apply_spectral_correction_bsq": apply_spectral_correction_bsq, "bilinear_coefficients": bilinear_coefficients,
    "filter_position": filter_position,
    "target_position_relative_to_filter_position": target_position_relative_to_filter_position,
    "apply_demosaicing_bilinear": apply_demosaicing_bilinear, "demosaic_cube": demosaic_cube,
    "median_1d_9": _median_1d(9), "median_1d_25": _median_1d(25), "median_1d": _median_1d(None),
    "median_filter_3x3": _median_filter(1), "median_filter_5x5": _median_filter(2),
    "subtract": _pixelwise(), "add": _pixelwise(), "mix": _pixelwise("weight"), "apply_kernel_7x7": apply_kernel_7x7,
    "rgb_to_ycbcr": _conversion, "ycbcr_to_rgb": _conversion, "rgbx_compute_band": rgbx_compute_band,
    "rgbx_demosaic_frame": rgbx_demosaic_frame, "rgbx_compute_new_wli": rgbx_compute_new_wli, "new_wli": new_wli,
}
CALLS = {"scan": scan_call, "strip": strip_call, "new_wli": new_wli_call}
WITHOUT_OUT = ("scan", "strip", "filter_position", "target_position_relative_to_filter_position",
               "bilinear_coefficients", "median_1d_9", "median_1d_25", "median_1d")


def make(name, seed):
    """The function, the arguments of case number seed, and what it gives for them: arrays of one block each.

    Whether that is right is for the library's own tests, and for a few worked values.
    """
    arguments = CASES[name](np.random.default_rng([seed, list(CASES).index(name)]))
    function = CALLS.get(name) or getattr(korva, name)
    return function, arguments, function(**copy.deepcopy(arguments))


def assert_same(result, expected, what):
    """Equal bits, or NaN on both sides: the sign and payload of a NaN that arithmetic makes are the processor's."""
    result, expected = np.asarray(result), np.asarray(expected)
    assert result.dtype == expected.dtype and result.shape == expected.shape, what
    bits = f"u{expected.dtype.itemsize}"
    same = np.ascontiguousarray(result).view(bits) == np.ascontiguousarray(expected).view(bits)
    if expected.dtype.kind == "f":
        same |= np.isnan(result) & np.isnan(expected)
    assert same.all(), f"{what}: first difference at {np.argwhere(~same)[0]}"


class GuardedPages:
    """Memory between two forbidden pages, filled with a pattern round the array that lies in it."""

    def __init__(self, pages=8):
        self.map = mmap.mmap(-1, (pages + 2) * mmap.PAGESIZE)
        start = ctypes.addressof(ctypes.c_char.from_buffer(self.map))
        libc = ctypes.CDLL(None, use_errno=True)
        for page in (0, pages + 1):
            address = ctypes.c_void_p(start + page * mmap.PAGESIZE)
            assert libc.mprotect(address, ctypes.c_size_t(mmap.PAGESIZE), 0) == 0
        self.memory = np.frombuffer(self.map, np.uint8)[mmap.PAGESIZE : -mmap.PAGESIZE]

    def place(self, values, rng, layout="plain"):
        """An array of these values whose memory ends, or begins, at a forbidden page."""
        self.memory[:] = 0xA5
        dtype, shape, pick = values.dtype, list(values.shape), [slice(None)] * values.ndim
        if layout == "padded" and values.ndim:
            shape[-1], pick[-1] = shape[-1] + 3, slice(1, -2)
        elif layout == "spread" and values.ndim:
            shape[-1], pick[-1] = 2 * shape[-1], slice(None, None, 2)
        elif layout == "reversed" and values.ndim:
            pick[0] = slice(None, None, -1)
        elif layout == "transposed":
            shape = shape[::-1]
        elif layout == "swapped":
            dtype = dtype.newbyteorder()
        length = int(np.prod(shape)) * dtype.itemsize
        odd = layout == "odd"
        start = len(self.memory) - length - odd if rng.random() < 0.7 else int(odd)
        block = np.ndarray(shape, dtype, self.memory.data, start)
        view = block.T if layout == "transposed" else block[tuple(pick)]
        view[...] = values
        self.before = self.memory.copy()
        return view

    def unchanged_round(self, view=None):
        """Nothing but view has changed since it was placed. view may be written over to find out."""
        if view is not None and view.size:
            now = view.copy()
            view[...] = np.ndarray(view.shape, view.dtype, self.before.data, self._offset(view), view.strides)
            same = np.array_equal(self.memory, self.before)
            view[...] = now
            return same
        return np.array_equal(self.memory, self.before)

    def _offset(self, view):
        return view.__array_interface__["data"][0] - self.memory.__array_interface__["data"][0]


LAYOUTS = ("plain", "padded", "spread", "reversed", "transposed", "swapped", "odd")
