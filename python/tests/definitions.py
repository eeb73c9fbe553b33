"""What every routine computes, in NumPy and plain Python, in the order and precision of its definition."""

import numpy as np

F32, F64 = np.float32, np.float64
INVALID = np.finfo(F64).max


def to_uint16(values):
    whole = np.trunc(np.asarray(values, F64) + 0.5)
    fits = (whole >= -(2.0**31)) & (whole < 2.0**31)
    return (np.where(fits, whole, 0).astype(np.int64) & 0xFFFF).astype(np.uint16)


def ssm_band_image(frame, mosaic_width, mosaic_height, band):
    rows, columns = frame.shape[0] // mosaic_height, frame.shape[1] // mosaic_width
    return frame[band // mosaic_width :: mosaic_height, band % mosaic_width :: mosaic_width][:rows, :columns]


def sst_band_image(frame, tile_width, tile_height, band):
    top, left = (n * size for n, size in zip(divmod(band, frame.shape[1] // tile_width), (tile_height, tile_width)))
    return frame[top : top + tile_height, left : left + tile_width]


def scan(frames, strip_height, first_band, last_band, slices):
    """The slice cube after a whole scan, from where each strip of the scene was seen."""
    slots, positions = slices.shape[1] // strip_height, last_band - first_band + 1
    for x in range(len(frames) - positions + 1):
        top = (slots - 1 - x % slots) * strip_height
        for plane in range(len(slices)):
            source = (first_band + plane) * strip_height
            slices[plane, top : top + strip_height] = frames[x + plane][source : source + strip_height]
    return slices


def strip(strip, width, strip_height, first_band, last_band, bands, band, frame_index, buffer_band, slices, last):
    """One strip in a ring of zeros, then the slice of frame last: both as one run."""
    positions, slots = last_band - first_band + 1, slices.shape[1] // strip_height
    ring = np.zeros((bands, positions, strip_height, width), np.uint16)
    ring[buffer_band, (frame_index + first_band - band + positions) % 2**64 % positions] = strip
    x = last - (positions - 1)
    top = (slots - 1 - x % slots) * strip_height
    slices[:, top : top + strip_height] = ring[: len(slices), x % positions]
    return np.concatenate([ring.ravel(), slices.ravel()])


def correct_bias(frame, bias):
    return np.where(frame < bias, 0, frame - bias).astype(frame.dtype) if frame.dtype == np.uint16 else frame - bias


def correction_coefficients(white, factor1, factor2, flag_value):
    invalid = (white <= 0) | (white == white.dtype.type(flag_value))
    return np.where(invalid, INVALID, F64(factor1) * F64(factor2) / np.where(invalid, 1, white).astype(F64))


def reflectance(frame, coefficients, divisor, flag_value, limit_value, full_scale=None):
    flag, limit = frame.dtype.type(flag_value), frame.dtype.type(limit_value)
    values = (frame.astype(F64) * coefficients) * (1.0 / F64(divisor))
    if full_scale is None:
        values = values.astype(F32)
    else:
        values = to_uint16(np.where(values > 1.0, 1.0, values) * F64(full_scale))
    values = np.where(frame >= limit, limit, values)
    values = np.where(frame == flag, flag, values)
    return np.where(coefficients == INVALID, np.where(frame <= 0, frame.dtype.type(0), flag), values)


def weighted_sums(planes, matrix):
    """The sums of all output bands, (output band, ...), of planes (input band, ...)."""
    sums = np.zeros((len(matrix), *planes.shape[1:]))
    for band, plane in enumerate(planes):
        sums += np.multiply.outer(matrix[:, band], plane.astype(F64))
    return sums


def stored(sums, dtype):
    return to_uint16(sums) if dtype == np.uint16 else sums.astype(F32)


def apply_spectral_correction(spectra, matrix):
    return np.moveaxis(stored(weighted_sums(np.moveaxis(spectra, -1, 0), matrix), spectra.dtype), 0, -1)


def apply_spectral_correction_bsq(cube, matrix):
    sums = weighted_sums(cube, matrix)
    return np.where(sums < 0, 0, stored(sums, cube.dtype)).astype(cube.dtype)


def bilinear_coefficients(mosaic_height, mosaic_width, row_offset, column_offset):
    p, q = F64(mosaic_height), F64(mosaic_width)
    r = row_offset + p if row_offset < 0 else F64(row_offset)
    c = column_offset + q if column_offset < 0 else F64(column_offset)
    inv = 1.0 / F64(mosaic_height * mosaic_width)
    a, b = (q - c) * inv, c * inv
    return np.array([a * (p - r), b * (p - r), a * r, b * r])


def apply_demosaicing_bilinear(band_image, weights, row_offset, column_offset):
    height, width = band_image.shape
    source, out = band_image.astype(F64), band_image.copy()
    for y, x in np.ndindex(height, width):
        y0, x0 = y - (row_offset < 0), x - (column_offset < 0)
        square = [(y0, x0), (y0, x0 + 1), (y0 + 1, x0), (y0 + 1, x0 + 1)]
        present = [k for k, (row, column) in enumerate(square) if 0 <= row < height and 0 <= column < width]
        if len(present) == 1:
            continue
        used = [weights[k] for k in present]
        if len(present) == 2 and used[0] + used[1] != 0.0:
            used = [weight / (used[0] + used[1]) for weight in used]
        value = used[0] * source[square[present[0]]]
        for weight, k in zip(used[1:], present[1:]):
            value = value + weight * source[square[k]]
        out[y, x] = to_uint16(value) if out.dtype == np.uint16 else value
    return out


def _exchanges(text):
    return [tuple(map(int, pair.split(","))) for pair in text.strip("() \n").replace("\n", " ").split(") (")]


NETWORK_9 = _exchanges(
    "(1,2) (4,5) (7,8) (0,1) (3,4) (6,7) (1,2) (4,5) (7,8) (0,3) (5,8) (4,7) (3,6) (1,4) (2,5) (4,7) (4,2) (6,4) (4,2)"
)
NETWORK_25 = _exchanges("""
(0,1) (3,4) (2,4) (2,3) (6,7) (5,7) (5,6) (9,10) (8,10) (8,9) (12,13) (11,13) (11,12) (15,16) (14,16) (14,15) (18,19)
(17,19) (17,18) (21,22) (20,22) (20,21) (23,24) (2,5) (3,6) (0,6) (0,3) (4,7) (1,7) (1,4) (11,14) (8,14) (8,11) (12,15)
(9,15) (9,12) (13,16) (10,16) (10,13) (20,23) (17,23) (17,20) (21,24) (18,24) (18,21) (19,22) (8,17) (9,18) (0,18) (0,9)
(10,19) (1,19) (1,10) (11,20) (2,20) (2,11) (12,21) (3,21) (3,12) (13,22) (4,22) (4,13) (14,23) (5,23) (5,14) (15,24)
(6,24) (6,15) (7,16) (7,19) (13,21) (15,23) (7,13) (7,15) (1,9) (3,11) (5,17) (11,17) (9,17) (4,10) (6,12) (7,14) (4,6)
(4,7) (12,14) (10,14) (6,7) (10,12) (6,10) (6,17) (12,17) (7,17) (7,10) (12,18) (7,12) (10,18) (12,20) (10,20) (10,12)
""")


def arranged(values, network):
    values = values.copy()
    for low, high in network:
        if values[low] > values[high]:
            values[low], values[high] = values[high].copy(), values[low].copy()
    return values


def median_1d(values):
    if values.size in (9, 25) and values.dtype == F32:
        return arranged(values, NETWORK_9 if values.size == 9 else NETWORK_25)[values.size // 2]
    ordered = np.sort(values)
    middle, below = ordered[values.size // 2], ordered[values.size // 2 - 1]
    if values.size % 2:
        return middle
    if values.dtype == np.uint16:
        return np.uint16((int(below) + int(middle) + 1) // 2)
    return F32(F64(below + middle) * 0.5)


def median_filter(image, radius):
    out = np.empty_like(image)
    for y, x in np.ndindex(image.shape):
        window = image[max(0, y - radius) : y + radius + 1, max(0, x - radius) : x + radius + 1]
        out[y, x] = median_1d(window.ravel())
    return out


def mix(a, b, weight):
    return (a.astype(F64) * weight + b.astype(F64) * (1.0 - F64(weight))).astype(F32)


def apply_kernel_7x7(image, kernel, out):
    rows, columns = image.shape[0] - 6, image.shape[1] - 6
    if rows > 0 and columns > 0:
        total = np.zeros((rows, columns))
        for k, weight in enumerate(np.ravel(kernel)):
            total = total + image[k // 7 : k // 7 + rows, k % 7 : k % 7 + columns].astype(F64) * F64(weight)
        out[3:-3, 3:-3] = total.astype(F32)
    return out


def rgb_to_ycbcr(image, kb, kr):
    red, green, blue = image[:3].astype(F64)
    luma = ((red * kr + green * ((1.0 - kb) - kr)) + blue * kb).astype(F32)
    cb, cr = ((image[2] - luma).astype(F64) * (0.5 / (1.0 - kb)), (image[0] - luma).astype(F64) * (0.5 / (1.0 - kr)))
    return np.stack([luma, cb.astype(F32), cr.astype(F32)])


def ycbcr_to_rgb(image, kb, kr):
    luma, cb, cr = image[:3].astype(F64)
    red, blue = cr * ((1.0 - kr) + (1.0 - kr)) + luma, cb * ((1.0 - kb) + (1.0 - kb)) + luma
    green = ((luma - red * kr) - kb * blue) * (1.0 / ((1.0 - kr) - kb))
    return np.stack([red, green, blue]).astype(F32)


def rgbx_compute_band(s, band, o):
    """Writes band's samples into o; every product and sum is one of float32 numbers."""
    height, width = s.shape
    half, quarter = F32(0.5), F32(0.25)
    if band == "G" and height > 2:
        for r in range(1, height - 1):
            for c in range((r + 1) % 2, width - 1 - r % 2, 2):
                o[r, c] = s[r, c]
                o[r, c + 1] = (((s[r, c] + s[r - 1, c + 1]) + s[r, c + 2]) + s[r + 1, c + 1]) * quarter
    if band == "X":
        for y in range(0, 2 * (height // 2) - 2, 2):
            for x in range(0, 2 * (width // 2) - 2, 2):
                a, b, d, e = s[y, x], s[y, x + 2], s[y + 2, x], s[y + 2, x + 2]
                o[y, x], o[y, x + 1], o[y + 1, x] = a, (a + b) * half, (a + d) * half
                o[y + 1, x + 1] = (((a + b) + d) + e) * quarter
    if band in "RB":
        for i in range(1, height // 2 - 1):
            start = (i - (band == "R")) % 2
            for j in range(start, width // 2 - 3 + 2 * start, 2):
                y, x = 2 * i + 1, 2 * j + 1
                p, u, v, w = s[y, x], s[y - 2, x + 2], s[y, x + 4], s[y + 2, x + 2]
                q = (((p + u) + v) + w) * quarter
                o[y - 1, x + 1], o[y, x], o[y, x + 2], o[y + 1, x + 1] = (p + u) * half, p, q, (p + w) * half
                o[y - 1, x + 2], o[y, x + 1] = (u + q) * half, (p + q) * half
                o[y, x + 3], o[y + 1, x + 2] = (v + q) * half, (q + w) * half
    return o


def rgbx_demosaic_frame(frame):
    return np.stack([rgbx_compute_band(frame, band, np.zeros_like(frame))[3:-3, 3:-3] for band in "RGBX"])


def rgbx_compute_new_wli(bands, kernel, kb, kr, weight):
    x_residual = bands[3] - apply_kernel_7x7(bands[3], kernel, np.zeros_like(bands[3]))
    ycc = rgb_to_ycbcr(bands, kb, kr)
    y_filtered = apply_kernel_7x7(ycc[0], kernel, np.zeros_like(ycc[0]))
    ycc[0] = mix(ycc[0] - y_filtered, x_residual, weight) + y_filtered
    return ycbcr_to_rgb(ycc, kb, kr)[:, 3:-3, 3:-3]
