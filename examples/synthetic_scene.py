"""A scene with known reflectance, as a snapshot-mosaic camera with 4 x 4 filters and 12 bits would record it."""

from __future__ import annotations

import numpy as np

MOSAIC = 4
BANDS = MOSAIC * MOSAIC
CENTRES = np.linspace(465.0, 630.0, BANDS)
GRID = np.arange(420.0, 681.0, 2.0)  # nm
FULL_SCALE = 4095


def _bell(centre, width):
    return np.exp(-0.5 * ((GRID - np.reshape(centre, (-1, 1))) / width) ** 2)


def _edge(centre, width):
    return 1 / (1 + np.exp(-(GRID - centre) / width))


MATERIALS = {
    "leaf": 0.05 + 0.16 * _bell(553, 24)[0],
    "red paint": 0.05 + 0.62 * _edge(597, 9),
    "ochre": 0.06 + 0.48 * _edge(555, 22),
    "yellow": 0.07 + 0.74 * _edge(512, 10),
    "sky blue": 0.08 + 0.50 * _bell(496, 34)[0],
    "blue": 0.05 + 0.38 * _bell(458, 26)[0],
    "violet": 0.06 + 0.30 * _bell(448, 24)[0] + 0.34 * _edge(622, 14),
    "grey 50 %": np.full(GRID.size, 0.5),
    "cloth": 0.17 + 0.05 * _edge(540, 45),
}
NAMES = list(MATERIALS)
SPECTRA = np.array(list(MATERIALS.values()))


def responses():
    """What each band sees of a white scene: its filter's pass band and its leak elsewhere, under a warm lamp."""
    leaks = CENTRES + np.where(CENTRES < 550, 82, -74)
    lamp = 0.35 + 0.65 * (GRID - GRID[0]) / np.ptp(GRID)
    seen = (_bell(CENTRES, 7.5) + 0.16 * _bell(leaks, 12) + 0.012) * lamp
    return seen / seen.sum(axis=1, keepdims=True)


def ideal_responses():
    """What each band is meant to see: 10 nm round its centre."""
    ideal = _bell(CENTRES, 4.25)
    return ideal / ideal.sum(axis=1, keepdims=True)


def correction_matrix():
    """Turns band values into those of the ideal filters: the linear estimate for spectra as smooth as materials are."""
    smooth = 0.25 + 0.08 * np.exp(-0.5 * ((GRID[:, None] - GRID) / 26.0) ** 2)
    seen, ideal = responses(), ideal_responses()
    return np.linalg.solve(seen @ smooth @ seen.T + 2e-6 * np.eye(BANDS), seen @ smooth @ ideal.T).T


def layout(height, width):
    """The material of every pixel, and how much of the light its slope and texture take away."""
    y, x = np.mgrid[0:height, 0:width] / height
    x -= width / height / 2
    labels = np.full((height, width), NAMES.index("cloth"))
    shading = 0.9 + 0.06 * np.sin(2 * np.pi * 47 * x) * np.sin(2 * np.pi * 47 * y)
    # The chart lies a little askew, so that its edges cross the mosaic's cells everywhere.
    v, u = 0.9986 * y - 0.0523 * x, 0.0523 * y + 0.9986 * x
    for n, name in enumerate(["red paint", "ochre", "yellow", "sky blue", "blue", "violet", "grey 50 %"]):
        column, row = n % 4, n // 4
        top, left = 0.14 + 0.36 * row, -0.82 + 0.27 * column + 0.135 * row
        inside = (np.abs(v - top - 0.12) < 0.12) & (np.abs(u - left - 0.1) < 0.1)
        labels[inside], shading[inside] = NAMES.index(name), 1.0
    # Leaves: ellipses with a midrib and side veins.
    for centre, angle, length in (((0.42, 0.55), 1.1, 0.33), ((0.68, 0.74), 0.35, 0.26), ((0.2, 0.78), 2.3, 0.2)):
        along = (y - centre[0]) * np.sin(angle) + (x - centre[1]) * np.cos(angle)
        across = (y - centre[0]) * np.cos(angle) - (x - centre[1]) * np.sin(angle)
        inside = (along / length) ** 2 + (across / (0.42 * length * (1.05 - 0.5 * along / length))) ** 2 < 1
        veins = np.exp(-((across / 0.006) ** 2)) + 0.5 * np.exp(-((np.sin(28 * (along - np.abs(across))) / 0.15) ** 2))
        labels[inside], shading[inside] = NAMES.index("leaf"), (0.85 + 0.35 * np.minimum(veins, 1))[inside]
    for row in range(6):  # A row of bars, each pair narrower than the last.
        pitch = 0.05 / 1.5**row
        inside = (np.abs(u + 0.7 - 0.14 * row) < 0.06) & (np.abs(v - 0.91) < 0.04) & ((u / pitch) % 1 < 0.5)
        labels[inside], shading[inside] = NAMES.index("grey 50 %"), 1.0
    return labels, shading


def blurred(image):
    """What a lens makes of an image: a blur of 2 pixels, by four passes of 1 4 6 4 1 along each axis."""
    for axis in (0, 1) * 4:
        wide = np.pad(image, [(2, 2) if axis == n else (0, 0) for n in (0, 1)], mode="edge")
        parts = [np.take(wide, range(k, k + image.shape[axis]), axis) for k in range(5)]
        image = (parts[0] + parts[4] + 4 * (parts[1] + parts[3]) + 6 * parts[2]) / 16
    return image


class Camera:
    """Records frames of the scene; the same seed gives the same frame."""

    def __init__(self, height=1088, width=2048):
        self.shape = (height, width)
        self.labels, shading = layout(height, width)
        # How much of each material a pixel sees.
        self.seen = np.array([blurred((shading * (self.labels == n)).astype(np.float32)) for n in range(len(NAMES))])
        y, x = np.mgrid[0:height, 0:width]
        self.band = (y % MOSAIC) * MOSAIC + x % MOSAIC
        centre = ((y - 0.5 * height) ** 2 + (x - 0.47 * width) ** 2) / (0.25 * (height**2 + width**2))
        self.light = 3300 * (1 - 0.45 * centre) * (0.8 + 0.2 * np.sin(np.arange(BANDS) * 1.7))[self.band]
        random = np.random.default_rng(2)
        signals = responses() @ SPECTRA.T
        self.scene = self.light * sum(signals[self.band, n] * part for n, part in enumerate(self.seen))
        self.offset = 118 + 6 * np.sin(x / 97) + random.normal(0, 2.5, width)
        self.hot = random.random(self.shape) < 2e-5

    def _record(self, light, seed):
        random = np.random.default_rng(seed)
        counts = light + self.offset + random.standard_normal(self.shape) * np.sqrt(9 + light / 12)
        counts[self.hot] = 3900
        return np.clip(np.rint(counts), 0, FULL_SCALE).astype(np.uint16)

    def frame(self, seed=1):
        return self._record(self.scene, seed)

    def white(self):
        """The mean of many frames of a tile of reflectance 0.95."""
        return self._record(0.95 * self.light, 0)

    def bias(self):
        return np.clip(np.rint(self.offset + np.zeros(self.shape)), 0, FULL_SCALE).astype(np.uint16)

    def truth(self):
        """Reflectance as the ideal filters see it in the middle of each mosaic cell, (band, row, column)."""
        middles = sum(self.seen[:, row::MOSAIC, column::MOSAIC] for row in (1, 2) for column in (1, 2)) / 4
        return np.tensordot(ideal_responses() @ SPECTRA.T, middles, 1)
