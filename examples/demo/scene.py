"""Three scenes whose true reflectance is known, and the cameras that record them: the one description for all examples.

A scene is a picture whose pixels are materials with reflectance spectra rather than colours. Places are given in units
of its height: y from 0 to 1, x from 0 to its aspect.
"""

import numpy as np
from matplotlib.backends.backend_agg import FigureCanvasAgg
from matplotlib.figure import Figure

# ---- Spectra, filters and the correction between them ----

GRID = np.arange(400.0, 1001.0, 5.0)  # nm


def bump(centre, deviation, nm=GRID):
    return np.exp(-0.5 * ((nm - centre) / deviation) ** 2)


def rise(edge, width, nm=GRID):
    return 1 / (1 + np.exp((edge - nm) / width))


def pigment(floor, humps=(), steps=()):
    """A floor, any number of humps and steps; most pigments turn pale in the near infrared."""
    value = floor + sum(h * bump(c, w) for h, c, w in humps) + sum(h * rise(e, w) for h, e, w in steps)
    return np.clip(value + 0 * GRID, 0.005, 0.97)


def foliage(green, edge, plateau):
    """Chlorophyll's green hump, its dip near 675 nm and the red edge."""
    visible = 0.035 + green * bump(552, 32) + 0.35 * green * bump(620, 45) - 0.012 * bump(676, 14)
    return visible + plateau * rise(edge, 11) - 0.03 * bump(970, 25)


MATERIALS = {
    **{name: level * (1 + 0.04 * rise(700, 120)) for name, level in
       {"black": 0.03, "dark grey": 0.09, "mid grey": 0.2, "light grey": 0.37}.items()},
    "white": pigment(0.2, steps=[(0.7, 400, 12)]),
    "skin": pigment(0.14, [(-0.05, 545, 20), (-0.04, 578, 10)], [(0.16, 480, 40), (0.36, 605, 22)]),
    "sky": pigment(0.12, [(0.22, 460, 55)], [(0.25, 740, 40)]),
    "green paint": pigment(0.05, [(0.13, 545, 38)], [(0.12, 800, 40)]),
    "violet": pigment(0.14, [(0.3, 440, 50)], [(0.32, 690, 30)]),
    "turquoise": pigment(0.1, [(0.5, 500, 50)], [(0.15, 790, 35)]),
    "orange": pigment(0.045, steps=[(0.58, 588, 14)]),
    "indigo": pigment(0.07, [(0.32, 450, 38)], [(0.35, 730, 28)]),
    "crimson": pigment(0.09, [(0.06, 440, 40)], [(0.52, 608, 14)]),
    "purple": pigment(0.05, [(0.13, 430, 35)], [(0.2, 660, 28), (0.25, 760, 30)]),
    "lime": pigment(0.06, [(0.45, 545, 42), (0.22, 620, 60)], [(0.25, 730, 40)]),
    "amber": pigment(0.06, steps=[(0.62, 560, 17)]),
    "blue": pigment(0.04, [(0.32, 452, 30)], [(0.3, 770, 25)]),
    "green": pigment(0.05, [(0.29, 532, 34)], [(0.15, 790, 35)]),
    "red": pigment(0.04, steps=[(0.64, 612, 11)]),
    "yellow": pigment(0.06, steps=[(0.7, 518, 14)]),
    "magenta": pigment(0.12, [(0.26, 440, 50)], [(0.62, 618, 14)]),
    "cyan": pigment(0.06, [(0.38, 472, 48)], [(0.3, 820, 35)]),
    "leaf": foliage(0.085, 712, 0.46),
    "young leaf": foliage(0.19, 702, 0.56),
    "dry leaf": pigment(0.06, [(-0.02, 672, 25)], [(0.2, 570, 40), (0.26, 720, 50)]),
    "soil": pigment(0.05, steps=[(0.12, 580, 60), (0.2, 820, 110)]),
    "sand": pigment(0.16, steps=[(0.26, 530, 60), (0.14, 760, 110)]),
    "wood": pigment(0.08, steps=[(0.25, 560, 45), (0.3, 690, 60)]),
    "bark": pigment(0.05, steps=[(0.08, 580, 50), (0.2, 740, 60)]),
    "terracotta": pigment(0.07, [(-0.05, 860, 70)], [(0.3, 575, 22), (0.16, 700, 45)]),
    "water": pigment(0.012, [(0.045, 480, 60), (0.02, 560, 40)]),
    "shallows": pigment(0.02, [(0.28, 480, 60), (0.06, 570, 50)]),
    "asphalt": pigment(0.06, steps=[(0.06, 620, 120)]),
    "concrete": pigment(0.22, steps=[(0.16, 560, 90)]),
    "plaster": pigment(0.36, steps=[(0.22, 500, 70)]),
    "slate": pigment(0.08, [(0.035, 470, 60)], [(0.06, 800, 90)]),
    "solar cell": pigment(0.015, [(0.06, 450, 40)], [(0.05, 930, 25)]),
    "tomato": pigment(0.03, [(-0.01, 550, 40)], [(0.5, 598, 11), (0.12, 730, 40)]),
    "lemon": pigment(0.05, [(-0.03, 675, 12)], [(0.6, 516, 12), (0.14, 720, 30)]),
    "plum": pigment(0.028, [(0.035, 430, 40)], [(0.05, 640, 20), (0.38, 735, 28)]),
}
NUMBER = {name: number for number, name in enumerate(MATERIALS)}
# After the materials the same ones as thin paint over charcoal: no difference to the eye, dark to the infrared.
OVER_CHARCOAL = len(MATERIALS)
SPECTRA = np.array(list(MATERIALS.values()))
SPECTRA = np.concatenate([SPECTRA, SPECTRA + 0.85 * rise(770, 14) * (0.04 - SPECTRA)])


def light(nm=GRID):
    """Lamp and sensor together: halogen rises towards the infrared, silicon falls there."""
    return (0.25 + 0.75 * rise(620, 90, nm)) * (0.45 + 0.55 * bump(600, 190, nm))


def ideal_filters(centres, width):
    """What each band is meant to see; a row sums to 1, so a white surface gives 1 in every band."""
    rows = np.array([bump(centre, width / 2.355) for centre in centres])
    return rows / rows.sum(axis=1, keepdims=True)


def real_filters(centres, width, columns):
    """What filters see under the lamp: a peak with wide feet, for long wavelengths a second order near 0.6 of the
    centre, and 13 % of light that strays in from the filters above, below and beside in a grid that repeats."""
    clean = np.array([(0.6 * bump(c, width / 2.355) + 0.4 / (1 + ((GRID - c) / (width / 2)) ** 2) + 0.008
                       + 0.3 * rise(720, 15, c) * bump(0.6 * c + 20, width / 2.355)) * light() for c in centres])
    grid = clean.reshape(-1, columns, GRID.size)
    stray = sum(np.roll(grid, step, axis) for step in (1, -1) for axis in (0, 1)).reshape(clean.shape) / 4
    mixed = clean + 0.13 * (stray - clean)
    return mixed / mixed.sum(axis=1, keepdims=True)


def correction_matrix(ideal, real, noise):
    """Turns what real filters measure into what ideal ones would, with the least expected error when neighbouring
    wavelengths are alike (correlation falls by 1/e in 60 nm): W = T K A' (A K A' + noise^2 I)^-1. Grey stays grey."""
    alike = np.exp(-np.abs(GRID[:, None] - GRID) / 60)
    both = real @ alike @ real.T + noise**2 * np.eye(len(real))
    matrix = np.linalg.solve(both, real @ alike @ ideal.T).T
    return matrix / matrix.sum(axis=1, keepdims=True)


# ---- Painting ----

HEIGHTS = np.random.default_rng(0).uniform(-1, 1, (256, 256)).astype(np.float32)


def bumps(x, y, seed):
    """Smooth bumps of about unit size, from -1 to 1, the same on every machine."""
    x, y = np.broadcast_arrays(np.asarray(x, np.float32) + 37 * seed, np.asarray(y, np.float32) + 101 * seed)
    column, row = np.floor(x).astype(int), np.floor(y).astype(int)
    u, v = x - column, y - row
    u, v = u * u * (3 - 2 * u), v * v * (3 - 2 * v)
    corner = [HEIGHTS[(row + dy) % 256, (column + dx) % 256] for dy in (0, 1) for dx in (0, 1)]
    upper, lower = corner[0] + u * (corner[1] - corner[0]), corner[2] + u * (corner[3] - corner[2])
    return upper + v * (lower - upper)


def texture(x, y, octaves, seed):
    """Bumps with finer and fainter bumps on them."""
    return sum(0.5 * 0.55**k * bumps(x * 2.03**k, y * 2.03**k, seed + k) for k in range(octaves))


def turned(x, y, angle):
    return x * np.cos(angle) + y * np.sin(angle), y * np.cos(angle) - x * np.sin(angle)


def rectangle(x, y, half_width, half_height, corner=0.0):
    """Distance to a rectangle round the origin, negative inside."""
    dx, dy = np.abs(x) - half_width + corner, np.abs(y) - half_height + corner
    return np.hypot(np.maximum(dx, 0), np.maximum(dy, 0)) + np.minimum(np.maximum(dx, dy), 0) - corner


class Scene:
    """Each pixel is a share of one material, the rest of another, both under the same shade."""

    def __init__(self, height, width):
        self.over = np.zeros((height, width), np.uint8)
        self.under = np.zeros((height, width), np.uint8)
        self.share = np.ones((height, width), np.float32)
        self.shade = np.ones((height, width), np.float32)
        self.aspect = width / height
        self.places = {}  # name: (y, x) of what spectra are shown of

    def box(self, x, y, half_width, half_height=None):
        """Slices of the pixels about a place, and their coordinates as seen from it."""
        size, halves = len(self.over), (half_height or half_width, half_width)
        rows, columns = (slice(max(0, int((middle - half) * size)), max(0, int((middle + half) * size) + 1))
                         for middle, half in zip((y, x), halves))
        dy, dx = (((np.arange(count) + 0.5) / size - middle).astype(np.float32)
                  for count, middle in zip(self.over.shape, (y, x)))
        return (rows, columns), dx[None, columns], dy[rows, None]

    def paint(self, inside, over, shade=1.0, under=None, share=1.0, box=np.s_[:, :]):
        """Gives the pixels inside a new look; materials are names or arrays of names' numbers."""
        over, under = (NUMBER[m] if isinstance(m, str) else m for m in (over, over if under is None else under))
        looks = {"over": over, "under": under, "share": np.clip(share, 0, 1), "shade": shade}
        for part, value in ((getattr(self, name)[box], value) for name, value in looks.items()):
            np.copyto(part, value, casting="unsafe", where=inside)

    def shadow(self, x, y, width, height):
        """A soft dark ellipse where something stands."""
        box, dx, dy = self.box(x, y, 1.6 * width, 1.6 * height)
        self.shade[box] *= 1 - 0.62 * np.exp(-1.8 * np.hypot(dx / width, dy / height) ** 3)

    def seen(self, response, blur=2):
        """What a filter sees of the scene through a lens that spreads each point."""
        table = (SPECTRA @ response).astype(np.float32)
        under = table[self.under]
        image = self.shade * (under + self.share * (table[self.over] - under))
        for axis in (0, 1) * blur:
            image = np.moveaxis(image, axis, 0)
            wide = np.concatenate([image[:1], image, image[-1:]])
            image = np.moveaxis(0.25 * (wide[:-2] + wide[2:]) + 0.5 * image, 0, axis)
        return image


def still_life(height, width):
    """A table by a wall: a colour chart, a plant in a pot, painted tiles, a bowl of water, fruit and its doubles."""
    scene = Scene(height, width)
    everywhere, x, y = scene.box(0, 0, scene.aspect, 1)
    scene.paint(True, "plaster", 0.95 - 0.22 * np.hypot(x - 0.75, y - 0.2) + 0.05 * texture(x * 6, y * 6, 5, 1))
    board = np.floor((y - 0.66) / 0.115)
    grain = texture(x * 3 + 17 * board, y * 90, 4, 5) + 0.5 * texture(x * 1.2, y * 14 + board, 3, 9)
    seam = np.where(np.abs((y - 0.66 + 0.0575) % 0.115 - 0.0575) < 0.0022, 0.45, 1)
    scene.paint(y > 0.66, "wood", seam * (0.82 + 0.25 * (y - 0.66)), "bark", 0.78 + 0.5 * grain)
    _tiles(scene, 1.565, 0.285, 0.15)
    _chart(scene, 0.442, 0.372, 0.095)
    _plant(scene, 1.03, 0.8)
    _bowl(scene, 1.6, 0.74, 0.2)
    for number, (x, y, radius, stretch, skin) in enumerate([
            (0.2, 0.79, 0.085, 1.0, "tomato"), (0.38, 0.83, 0.07, 1.3, "lemon"), (0.59, 0.78, 0.075, 1.0, "amber"),
            (0.73, 0.87, 0.06, 1.0, "plum"), (0.52, 0.91, 0.055, 1.0, "green paint")]):
        _ball(scene, x, y, radius, stretch, skin, number)
    _leaf(scene, 1.22, 0.93, -0.3, 0.2, 0.045, "leaf", 0.95, 0.12)
    _leaf(scene, 1.0, 0.9, 0.15, 0.17, 0.04, "dry leaf", 0.95, -0.1)
    _leaf(scene, 0.83, 0.955, -0.5, 0.12, 0.03, "dry leaf", 0.85, 0.08)
    scene.places |= {"plum": (0.87, 0.715), "green paint": (0.905, 0.505), "leaf": (0.935, 1.31)}
    return scene


def _chart(scene, x, y, patch):
    pitch = 1.16 * patch
    scene.shadow(x + 0.02, y + 2.08 * pitch, 3.3 * pitch, 0.035)
    box, dx, dy = scene.box(x, y, 3.1 * pitch, 2.1 * pitch)
    scene.paint(rectangle(dx, dy, 3.08 * pitch, 2.08 * pitch, 0.012) < 0, "black", 1.3, box=box)
    patches = [["bark", "skin", "sky", "green paint", "violet", "turquoise"],
               ["orange", "indigo", "crimson", "purple", "lime", "amber"],
               ["blue", "green", "red", "yellow", "magenta", "cyan"],
               ["white", "plaster", "light grey", "mid grey", "dark grey", "black"]]
    for row, names in enumerate(patches):
        for column, name in enumerate(names):
            box, dx, dy = scene.box(x + (column - 2.5) * pitch, y + (row - 1.5) * pitch, patch / 2)
            scene.paint(rectangle(dx, dy, patch / 2, patch / 2, 0.005) < 0, name, 0.98, box=box)
    scene.places["red patch"] = (y + 0.5 * pitch, x - 0.5 * pitch)


def _tiles(scene, x, y, size):
    box, dx, dy = scene.box(x, y, 1.5 * size)
    u, v = ((d / size + 0.5) % 1 - 0.5 for d in (dx, dy))
    r, corner = np.hypot(u, v), np.hypot(np.abs(u) - 0.5, np.abs(v) - 0.5)
    petals = r - 0.2 - 0.13 * np.abs(np.cos(4 * np.arctan2(v, u)))
    glaze = 0.92 + 0.1 * texture((x + dx) * 30, (y + dy) * 30, 3, 77)
    inside = np.maximum(np.abs(u), np.abs(v)) < 0.485
    scene.paint(inside, "white", 0.93 * glaze, box=box)
    scene.paint(inside & (corner < 0.17), "indigo", 1.05 * glaze, box=box)
    scene.paint(inside & (petals < 0), "cyan", 0.95 * glaze, box=box)
    scene.paint(inside & (r < 0.13), "white", 0.93 * glaze, box=box)
    scene.paint(inside & ((np.abs(petals) < 0.022) | (np.abs(corner - 0.25) < 0.02)), "blue", glaze, box=box)
    scene.paint(inside & (r < 0.09), "amber", glaze, box=box)
    scene.places["blue glaze"] = (y - 1.425 * size, x - 1.425 * size)


def _leaf(scene, x, y, angle, length, width, material, shade, bend):
    """A pointed leaf from its foot along a direction, with a midrib, side veins and a light and a dark half."""
    box, dx, dy = scene.box(x, y, length * (1.15 + abs(bend)))
    along, across = turned(dx, dy, angle)
    along = along / length
    across = across - 4 * bend * length * along * (1 - along)
    half = width * np.sin(np.pi * np.clip(along, 0, 1) ** 0.8).clip(0) ** 0.85
    veins = np.abs((along * 9 - 1.1 * np.abs(across) / width + 0.5) % 1 - 0.5)
    rib = np.exp(-((across / (0.045 * width * (1.6 - np.clip(along, 0, 1)))) ** 2))
    side = 0.5 * np.exp(-((veins / 0.07) ** 2)) * (1 - along)
    blotch = 1 + 0.1 * texture((x + dx) * 60, (y + dy) * 60, 3, 31)
    shade = shade * np.where(across > 0, 0.86, 1.06) * blotch * (0.8 + 0.25 * along)
    scene.paint(np.abs(across) < half, "young leaf", shade, material, 0.75 * rib + 0.5 * side, box)


def _plant(scene, x, foot):
    scene.shadow(x + 0.03, foot, 0.2, 0.045)
    box, dx, dy = scene.box(x, foot - 0.125, 0.15, 0.125)
    down = dy + 0.125
    rim = (np.abs(dx) < 0.145) & (down < 0.045)
    tone = np.where(down < 0.045, 1.08, 0.96 - 0.35 * np.exp(-(((down - 0.045) / 0.02) ** 2)))
    shade = tone * (1.12 - 0.55 * (dx / 0.15 + 0.35) ** 2) + 0.05 * texture(dx * 40, dy * 40, 4, 3)
    scene.paint(rim | (np.abs(dx) < 0.13 - 0.16 * down), "terracotta", shade, box=box)
    random = np.random.default_rng(11)
    crown = foot - 0.42
    for k in range(46):
        spread = 0.19 * np.sqrt((45 - k) / 46)
        lx, ly = x + 1.25 * spread * np.cos(2.39996 * k), crown + 0.05 + 0.8 * spread * np.sin(2.39996 * k)
        angle = np.arctan2(ly - crown - 0.03, lx - x) + random.uniform(-0.35, 0.35)
        _leaf(scene, lx - 0.05 * np.cos(angle), ly - 0.05 * np.sin(angle), angle, random.uniform(0.15, 0.21),
              random.uniform(0.032, 0.046), "young leaf" if random.random() < 0.3 else "leaf",
              random.uniform(0.72, 1.0) * (0.72 + 0.006 * k), random.uniform(-0.1, 0.1))


def _ball(scene, x, y, radius, stretch, skin, seed):
    scene.shadow(x + 0.25 * radius, y + 0.86 * radius, 1.25 * radius * stretch, 0.35 * radius)
    box, dx, dy = scene.box(x, y, 1.1 * radius * stretch, 1.1 * radius)
    u, v = dx / stretch / radius, dy / radius
    depth = np.sqrt(np.maximum(0, 1 - u * u - v * v))
    lit = np.maximum(0, -0.42 * u - 0.55 * v + 0.72 * depth)
    gloss = np.maximum(0, -0.36 * u - 0.42 * v + 0.83 * depth) ** 60
    inside = np.hypot(u, v) < 1 + 0.012 * np.sin(5 * np.arctan2(v, u))
    pores = 0.03 * texture((x + dx) * 160, (y + dy) * 160, 2, seed)
    scene.paint(inside, "white", 0.3 + 0.78 * lit + pores, skin, 0.75 * gloss, box)


def _bowl(scene, x, y, radius):
    scene.shadow(x + 0.03, y + 0.5 * radius, 1.2 * radius, 0.45 * radius)
    box, dx, dy = scene.box(x, y, radius)
    u = dx / radius
    body = (dy > 0) & (dy < 0.62 * radius * np.sqrt(np.maximum(0, 1 - 0.98 * u * u)))
    scene.paint(body, "white", 0.92 - 0.35 * (u + 0.3) ** 2, box=box)
    ellipse = np.hypot(u, 2.6 * dy / radius)
    scene.paint(ellipse < 1, "white", 1.0, box=box)
    r = np.hypot(dx - 0.02, 2.6 * dy - 0.03) / radius
    ripple = np.sin(60 * r) * np.exp(-2.2 * r)
    glint = np.maximum(0, ripple) ** 3 * 0.4 * bumps((x + dx) * 8, (y + dy) * 8, 3)
    under = np.where(r < 0.6, NUMBER["water"], NUMBER["shallows"])
    scene.paint(ellipse < 0.93, "white", 0.9 + 0.3 * ripple, under, glint, box)
    scene.places["water"] = (y + 0.12 * radius, x + 0.6 * radius)


def landscape(height, width):
    """A river valley from the air: fields, a wood, a village with red roofs, a sports ground with artificial turf."""
    scene = Scene(height, width)
    random = np.random.default_rng(42)
    everywhere, x, y = scene.box(0, 0, scene.aspect, 1)
    _fields(scene, x, y, random)

    def river(x):
        return 0.66 + 0.13 * np.sin(1.9 * x + 0.4) + 0.035 * np.sin(5.1 * x)

    def road(x):
        return 0.34 + 0.05 * np.sin(1.3 * x - 1.5)

    def across(line):
        return (y - line(x)) / np.hypot(1, (line(x + 0.01) - line(x - 0.01)) / 0.02)

    water = np.abs(across(river)) - 0.05 - 0.012 * np.sin(3.7 * x) - 0.006 * texture(x * 14, y * 14, 3, 6)
    grain, waves = texture(x * 90, y * 90, 3, 2), texture(x * 45, y * 110, 3, 15)
    bank = water < 0.014 + 0.008 * texture(x * 20, y * 20, 2, 5)
    scene.paint(bank, "sand", 0.9 + 0.15 * grain, "leaf", 0.8 + 0.2 * grain)
    scene.paint(water < 0, "water", 0.95 + 0.18 * waves, "shallows", 0.35 - 0.65 * water / 0.03)
    scene.paint(np.abs(across(road)) < 0.017, "asphalt", 1 + 0.15 * texture(x * 80, y * 80, 2, 1))
    scene.paint((np.abs(across(road)) < 0.0018) & (x % 0.03 < 0.017), "white", 0.9)
    box, dx, dy = scene.box(1.86, 1, 0.012, 1 - road(1.86) - 0.017)  # A lane with a bridge.
    over_water = np.abs(1 + dy - river(1.86)) < 0.085
    stone = np.where(over_water, NUMBER["concrete"], NUMBER["sand"])
    scene.paint(True, stone, 0.95 + 0.1 * texture(dx * 60, dy * 60, 2, 9), box=box)
    scene.paint(over_water & (np.abs(dx) > 0.009), "white", 0.85, box=box)
    for seed, (wx, wy, rx, ry) in enumerate([(3.5, 0.13, 0.4, 0.13), (0.32, 0.1, 0.27, 0.12), (1.2, 0.93, 0.3, 0.1)]):
        for k in range(int(13600 * rx * ry)):
            angle, r = random.uniform(0, 2 * np.pi), np.sqrt(random.random())
            r *= 1 + 0.15 * np.sin(3 * angle)
            kind = random.choice(["dry leaf", "young leaf", "leaf"], p=[0.05, 0.25, 0.7])
            _tree(scene, wx + rx * r * np.cos(angle), wy + ry * r * np.sin(angle), random.uniform(0.011, 0.022), kind,
                  random.uniform(0.62, 0.95), k)
    for k, tx in enumerate(np.cumsum(random.uniform(0.04, 0.12, 60))):
        bank = random.choice([-1, 1]) * random.uniform(0.095, 0.12)
        _tree(scene, tx, river(tx) + bank, random.uniform(0.011, 0.017), "leaf", 0.9, k)
    _village(scene, 2.3, 0.165, random)
    _sports_ground(scene, 1.3, 0.15)
    scene.places |= {"river": (river(2.7), 2.7), "wood": (0.12, 3.45), "ploughed field": (0.84, 2.9)}
    return scene


def _fields(scene, x, y, random):
    """Fields are the cells of scattered seeds; each has its crop, its furrows and its own health."""
    # What grows on what, and how much of it evenly, in furrows and in patches.
    crops = [("young leaf", "soil", 0.4, 0.35, 0.3), ("leaf", "soil", 0.25, 0.7, 0), ("soil", "bark", 0.35, 0.5, 0),
             ("dry leaf", "sand", 0.15, 0.4, 0.4), ("lemon", "young leaf", 0.3, 0, 0.35)]
    nearest = np.full(scene.over.shape, 9, np.float32)
    second, field = nearest.copy(), np.zeros(scene.over.shape, int)
    seeds = [(fx + random.uniform(-0.14, 0.14), fy + random.uniform(-0.11, 0.11))
             for fy in np.arange(-0.1, 1.2, 0.3) for fx in np.arange(-0.1, scene.aspect + 0.2, 0.36)]
    for number, (fx, fy) in enumerate(seeds):
        distance = np.hypot((x - fx) * 0.85, y - fy)
        second = np.minimum(second, np.maximum(nearest, distance))
        field[distance < nearest] = number
        nearest = np.minimum(nearest, distance)
    grain, patchy = texture(x * 50, y * 50, 4, 4), 0.5 + 0.5 * texture(x * 7, y * 7, 3, 8)
    for number in range(len(seeds)):
        angle, pitch, health = random.uniform(-0.6, 0.9), random.uniform(0.008, 0.016), random.uniform(0.75, 1.1)
        crop, ground, even, rows, patches = crops[random.integers(5)]
        furrow = 0.5 + 0.5 * np.sin(2 * np.pi * (x * np.sin(angle) + y * np.cos(angle)) / pitch)
        cover = even + rows * furrow + patches * patchy
        scene.paint(field == number, crop, health * (0.84 + 0.14 * grain), ground, cover)
    scene.paint(second - nearest < 0.011, "leaf", 0.6 + 0.25 * grain, "soil", 0.7 + 0.3 * grain)


def _tree(scene, x, y, radius, foliage, shade, seed):
    """A crown is a dome with a sunlit and a shaded side, standing in its own shadow."""
    scene.shadow(x + 0.5 * radius, y + 0.45 * radius, 1.15 * radius, 1.15 * radius)
    box, dx, dy = scene.box(x, y, 1.3 * radius)
    u, v = dx / radius, dy / radius
    lit = (0.8 - 0.28 * (u + v) - 0.12 * (u * u + v * v)) * (1 + 0.3 * texture(dx * 150, dy * 150, 2, seed))
    edge = 1 + 0.16 * bumps(np.arctan2(v, u) * 2.2 + 9, 90 * radius, seed)
    scene.paint(np.hypot(u, v) < edge, foliage, shade * lit, box=box)


def _village(scene, x, y, random):
    for row in range(2):
        for column in range(6):
            hx, hy = x + (column - 2.5) * 0.165 + random.uniform(-0.01, 0.01), y + (row - 0.5) * 0.155
            box, dx, dy = scene.box(hx, hy, 0.09)
            lawn = 0.75 + 0.15 * texture((hx + dx) * 70, (hy + dy) * 70, 3, 21)
            scene.paint(rectangle(*turned(dx, dy, 0.04), 0.073, 0.065) < 0, "young leaf", lawn, "sand", 0.8, box)
            if (row, column) == (1, 3):
                pool = rectangle(*turned(dx, dy, 0.3), 0.042, 0.024)
                scene.paint(pool < 0, "white", 0.95, box=box)
                scene.paint(pool < -0.004, "cyan", 1.1, box=box)
                scene.places["pool"] = (hy, hx)
                continue
            roof = ["terracotta", "terracotta", "slate", "terracotta", "light grey"][(5 * row + 2 * column) % 5]
            length, width, angle = random.uniform((0.037, 0.024, -0.25), (0.05, 0.032, 0.35))
            scene.shade[box] *= np.where(rectangle(*turned(dx - 0.014, dy - 0.014, angle), length, width) < 0, 0.38, 1)
            along, over = turned(dx, dy, angle)
            sunny = np.where(over < 0, 1.05, 0.66) * (0.93 + 0.07 * np.sin(over * 1100))
            inside = rectangle(along, over, length, width) < 0
            scene.paint(inside, roof, np.where(np.abs(over) < 0.0016, 1.2, sunny), box=box)
            if (column + row) % 3 == 1:
                panel = rectangle(along, over + 0.5 * width, 0.7 * length, 0.3 * width) < 0
                scene.paint(panel & (along % (0.35 * length) > 0.0024), "solar cell", box=box)
            _tree(scene, hx + 0.06, hy + 0.05, 0.015, "leaf", 0.9, column + 7 * row)
            if roof == "terracotta":
                scene.places.setdefault("tiled roof", (hy - 0.012, hx))


def _sports_ground(scene, x, y):
    box, dx, dy = scene.box(x, y, 0.26, 0.16)
    oval = np.hypot(np.maximum(np.abs(dx) - 0.105, 0), dy) - 0.1
    scene.paint(oval < 0.02, "young leaf", 0.85 + 0.1 * texture(dx * 60, dy * 60, 3, 61), "soil", 0.85, box)
    scene.paint(oval < 0, "tomato", 0.95, box=box)
    scene.paint((oval < 0) & (np.abs(oval % 0.009 - 0.0045) > 0.0036), "white", 0.95, box=box)
    scene.paint(oval < -0.037, "green", np.where((dx + 1) % 0.028 < 0.014, 0.62, 0.72), box=box)
    u, v = np.abs(dx), np.abs(dy)
    pitch = rectangle(dx, dy, 0.098, 0.054)
    lines = [np.hypot(dx, dy) - 0.022, np.where(v < 0.054, u, 1), pitch, rectangle(u - 0.098, dy, 0.022, 0.03)]
    scene.paint((np.abs(lines).min(axis=0) < 0.0014) & (pitch < 0.002), "white", 0.95, box=box)
    scene.places["artificial turf"] = (y + 0.01, x + 0.05)


HORIZON = 0.52


def old_painting(height, width):
    """A harbour painted on canvas; beneath the paint lies a charcoal drawing that only the near infrared sees."""
    scene = Scene(height, width)
    everywhere, x, y = scene.box(0, 0, scene.aspect, 1)
    _sky_and_sea(scene, x, y, 1.32, 0.3)
    ridge = HORIZON - 0.035 - 0.05 * bumps(x * 2.1 + 3, 0.5, 1) - 0.012 * bumps(x * 9, 1, 2)
    stroke = bristles(x, y, -0.5, 12)
    scene.paint((y > ridge) & (y < HORIZON), "purple", 1.1 + 0.3 * stroke, "green paint", 0.5 + 0.7 * stroke)
    _houses(scene, x, y)
    _boat(scene, 1.62, 0.63, 0.12, "crimson", "lemon")
    _boat(scene, 1.08, 0.6, 0.075, "green paint", "white")
    _boat(scene, 0.52, 0.83, 0.2, "blue", "orange")
    # The grain of the ground frays the strokes; the weave of the canvas shows through as a fine grid of light.
    charcoal = _drawing(scene) + 0.3 * bumps(x * 300, y * 300, 4) > 0.5
    for material in (scene.over, scene.under):
        material[charcoal] += OVER_CHARCOAL
    scene.shade *= 1 + 0.035 * np.sin(x * 1150) * np.sin(y * 1150) + 0.02 * texture(x * 40, y * 40, 3, 6)
    return scene


def bristles(x, y, angle, seed):
    """Brush strokes follow a direction; bristles leave fine ridges along it."""
    along, across = turned(x, y, angle)
    return 0.75 * bumps(along * 14, across * 190, seed) + 0.45 * texture(along * 9, across * 28, 2, seed + 3)


def _sky_and_sea(scene, x, y, sun_x, sun_y):
    far = np.hypot(x - sun_x, y - sun_y)
    swirl = bristles(x - sun_x, y - sun_y, 0.2 + 3.2 * np.exp(-2.2 * far), 5)
    glow = np.exp(-3.2 * far) + 0.12 * swirl
    scene.paint(True, "violet", 1.05 + 0.12 * swirl, "blue", 0.15 + 3.4 * glow + 0.25 * swirl)
    scene.paint(glow > 0.2, "amber", 0.95 + 0.08 * swirl, "violet", (glow - 0.2) * 4.5)
    scene.paint(glow > 0.42, "yellow", 0.98 + 0.06 * swirl, "amber", (glow - 0.42) * 3)
    rays = bristles(x, y, np.arctan2(y - sun_y, x - sun_x) + 1.6, 2)
    scene.paint(far < 0.07, "yellow", 1.0, "white", 0.6 + 0.4 * rays)
    depth = np.maximum(y - HORIZON, 0) / (1 - HORIZON)
    wave = bumps(x * 9 / (0.12 + depth), np.log(0.05 + depth) * 26, 3) + 0.4 * bristles(x, y, 0, 8)
    crest = np.where(wave > 0.25, NUMBER["cyan"], NUMBER["indigo"])
    scene.paint(y > HORIZON, crest, 0.95 + 0.12 * wave, "turquoise", 0.62 - 0.35 * depth + 0.2 * wave)
    path = np.exp(-(((x - sun_x) / (0.05 + 0.22 * depth)) ** 2)) * (0.7 + 0.5 * wave)
    scene.paint((y > HORIZON) & (path > 0.45), "amber", 0.95, "yellow", 0.5 + 0.4 * wave)


def _houses(scene, x, y):
    random = np.random.default_rng(9)
    left, foot = 0.02, 0.6
    stroke = bristles(x, y, 1.5, 21)
    for wall in ("crimson", "lemon", "turquoise", "orange", "plaster", "blue", "magenta"):
        width, top = random.uniform(0.075, 0.11), random.uniform(0.3, 0.38)
        u, v = np.abs(((x - left) / width * 3) % 1 - 0.5), np.abs(((y - top) / 0.062) % 1 - 0.5)
        front = (x > left) & (x < left + width) & (y > top) & (y < foot)
        scene.paint(front, wall, 0.9 + 0.1 * stroke)
        scene.paint(front & (u < 0.26) & (v < 0.3), "indigo", 0.5)
        scene.paint(front & (u < 0.26) & (v < 0.3) & ((u < 0.035) | (v < 0.035)), "white", 0.9)
        gable = (y < top) & (top - y < 0.06 - 0.06 * np.abs(x - left - width / 2) / (width / 2 + 0.008))
        scene.paint(gable, "terracotta", 0.85 + 0.08 * np.sin(y * 900) + 0.05 * np.sin(x * 700))
        left += width + 0.004
    joint = (np.abs((x + np.where(y > 0.622, 0.03, 0)) % 0.06) < 0.003) | (np.abs(y - 0.622) < 0.0014)
    quay = (y > 0.598) & (y < 0.648) & (x < left + 0.05 - 0.6 * (0.648 - y))
    scene.paint(quay, "concrete", np.where(joint, 0.5, 0.85 + 0.12 * texture(x * 50, y * 50, 3, 4)))


def _boat(scene, x, y, size, hull, sail):
    box, dx, dy = scene.box(x, y - 0.6 * size, size)
    u, v = dx / size, dy / size - 0.6
    stroke = bristles(x + dx, y + dy, 1.1, 9)
    body = (v > -0.038 * (u + 0.62)) & (v < 0.2) & (u > -0.62 + 0.8 * v) & (u < 0.69 - 1.05 * v)
    scene.paint(body, hull, 0.85 + 0.1 * stroke, box=box)
    scene.paint(body & (v < 0.045), "white", 0.85, box=box)
    main = (u > 0.03) & (v < -0.1 - 0.07 * u) & (v > -1.35 + 2.12 * (u - 0.03))
    scene.paint(main, sail, 0.92 + 0.12 * stroke, box=box)
    jib = (u < -0.05) & (v < -0.1 + 0.13 * u) & (v > -1.2 - 2.3 * (u + 0.05))
    scene.paint(jib, np.where(v % 0.24 < 0.12, NUMBER[hull], NUMBER["white"]), 0.9 + 0.1 * stroke, box=box)
    scene.paint((np.abs(u) < 0.02) & (v > -1.42) & (v < 0), "bark", 0.9, box=box)


def _drawing(scene):
    """Guide lines to the vanishing point, an earlier three-master, hatching for another sky, and two lines of writing;
    drawn in black by Matplotlib, and returned as the share of each pixel that is covered."""
    height, width = scene.over.shape
    figure = Figure((width / 100, height / 100), 100)
    axes = figure.add_axes((0, 0, 1, 1), xlim=(0, scene.aspect), ylim=(1, 0))
    axes.set_axis_off()
    pen = max(0.9, 0.0019 * height)

    def strokes(points, width):
        axes.plot(*np.transpose(points), color="black", linewidth=width * pen, solid_capstyle="round")

    for k in range(-7, 8):
        strokes([(1.32, HORIZON), (1.32 + 0.33 * k, 1)], 0.7)
    for level in (0.25, HORIZON, 0.75):
        strokes([(0, level), (3, level)], 0.7)
    x, y, t = 0.98, 0.66, np.linspace(0, 1, 25)
    strokes(np.transpose([x - 0.26 + 0.54 * t, y + 0.07 * np.sin(np.pi * t) - 0.045 * t * t]), 1.3)
    strokes([(x - 0.26, y), (x + 0.28, y - 0.045)], 1.3)
    for mast in range(3):
        mx, top = x - 0.15 + 0.15 * mast, y - 0.42 - 0.06 * (mast == 1)
        strokes([(mx, y), (mx, top)], 1.2)
        strokes([(x - 0.27, y), (mx, top), (x + 0.3, y - 0.05)], 0.5)
        for yard in range(3):
            high, half = top + 0.05 + 0.11 * yard, 0.04 + 0.014 * yard
            strokes([(mx - half, high), (mx + half, high), (mx + half + 0.012, high + 0.085),
                     (mx - half - 0.012, high + 0.085), (mx - half, high)], 1)
            for h in np.linspace(mx - half, mx + half, 7, endpoint=False):
                strokes([(h, high + 0.08), (h + 0.28 * half, high + 0.012)], 0.6)
    for k in range(60):
        strokes([(1.5 + 0.006 * k, 0.05), (1.44 + 0.006 * k, 0.19)], 0.6)
        strokes([(0.1 + 0.0075 * k, 0.06), (0.16 + 0.0075 * k, 0.2)], 0.6)
    writing = {"fontsize": 0.029 * height, "style": "italic", "family": "DejaVu Serif"}
    axes.text(0.62, 0.155, "three masts, no sun: begin again", **writing)
    axes.text(0.1, 0.93, "for Ada, who asked what lies beneath", **writing)
    canvas = FigureCanvasAgg(figure)
    canvas.draw()
    return 1 - np.asarray(canvas.buffer_rgba())[..., 0] / np.float32(255)


# ---- Cameras ----


class Sensor:
    """A 12-bit sensor: bias pattern, illumination that falls off to the corners, pixel gains and noise."""

    saturation = 4095

    def __init__(self, height, width, black=128, white=3000, uneven=1):
        random = np.random.default_rng(2024)
        y, x = np.ogrid[-0.53 : 0.47 : height * 1j, -0.46 : 0.54 : width * 1j]
        normal = random.standard_normal((3, height, width), np.float32)
        glow = 20 * np.exp(-30 * ((x - 0.54) ** 2 + (y + 0.53) ** 2)) + 3 * normal[0, 0] + 1.5 * normal[1]
        self.black = (black + uneven * glow).astype(np.float32)
        fall = 1 + uneven * (1.1 * x * x + 0.7 * y * y)
        self.gain = (white * (1 + 0.012 * uneven * normal[2]) / fall**2).astype(np.float32)

    def expose(self, signal, exposure=1.0, seed=0, averaged=1):
        """A frame of a signal that is 1 for a white surface in the strongest band; averaging many calms the noise."""
        counts = self.gain * np.float32(exposure) * signal
        noise = np.random.default_rng(seed).standard_normal(self.gain.shape, np.float32) / np.float32(np.sqrt(averaged))
        counts += self.black + noise * np.sqrt(6 + 0.12 * counts) + 0.5
        return np.clip(counts, 0, self.saturation).astype(np.uint16)

    def bias(self):
        """The mean of many frames behind a closed shutter."""
        return (self.black + 0.5).astype(np.uint16)


class Camera:
    """What the hyperspectral cameras have in common: bands and filters, exposures, the white tile, the correction."""

    exposure, white_exposure, white_reflectance, pixels_per_sample = 1.1, 1.0, 0.95, 1

    def __init__(self, height, width, wavelengths, order, filter_width, columns, noise):
        self.sensor, self.wavelengths, self.order = Sensor(height, width), wavelengths, order
        self.bias = self.sensor.bias
        self.ideal = ideal_filters(wavelengths, filter_width)
        self.filters = real_filters(wavelengths[order], filter_width, columns)
        self.matrix = correction_matrix(self.ideal, self.filters, noise)
        strength = light(wavelengths[order])
        self.strength = (strength / strength.max()).astype(np.float32)

    def white(self):
        return self.sensor.expose(self.white_reflectance * self.white_signal, self.white_exposure, 1, 64)

    def points(self):
        """Samples of the cube that show what the scene names."""
        size = len(self.scene.over) // self.pixels_per_sample
        return {name: (int(y * size), int(x * size)) for name, (y, x) in self.scene.places.items()}


class SnapshotCamera(Camera):
    """A still life through a mosaic of 4 x 4 filters, or through 16 tiles that each show all of it."""

    pixels_per_sample = 4

    def __init__(self, height=1088, width=2048, tiled=False):
        # Makers scatter the bands of a mosaic over its cell; tiles stand in order.
        order = np.arange(16) if tiled else np.random.default_rng(4).permutation(16)
        super().__init__(height, width, np.linspace(465, 865, 16), order, 300 / 16, 4, 0.006)
        self.scene = still_life(height, width)
        self.signal, self.white_signal = np.zeros((2, height, width), np.float32)
        for band in range(16):
            image = self.scene.seen(self.filters[band], 8)
            if tiled:
                place = np.s_[band // 4 * (height // 4) :, band % 4 * (width // 4) :]
                self.signal[place][: height // 4, : width // 4] = self.strength[band] * self.cells(image)
                self.white_signal[place] = self.strength[band]
            else:
                place = np.s_[band // 4 :: 4, band % 4 :: 4]
                self.signal[place], self.white_signal[place] = self.strength[band] * image[place], self.strength[band]

    def cells(self, image):
        """The image in the middle of each cell of 4 x 4 pixels."""
        height, width = (size // 4 * 4 for size in image.shape)
        return sum(image[row:height:4, column:width:4] for row in (1, 2) for column in (1, 2)) / 4

    def frame(self, seed=2):
        return self.sensor.expose(self.signal, self.exposure, seed)

    def truth(self):
        """Reflectance as the ideal filters see it, (band, row, column)."""
        return np.array([self.cells(self.scene.seen(row, 8)) for row in self.ideal])


class LineScanCamera(Camera):
    """A flight over a landscape: each strip of 8 rows of the frame sees its own wavelength."""

    height, width, strip, first, bands = 544, 2048, 8, 2, 64

    def __init__(self, rows=512):
        wavelengths = np.linspace(465, 900, self.bands)
        super().__init__(self.height, self.width, wavelengths, np.arange(self.bands), 14, 1, 0.01)
        self.scene = landscape(rows, self.width)
        self.white_signal = np.zeros((self.height, self.width), np.float32)
        self.lit = np.s_[self.first * self.strip : (self.first + self.bands) * self.strip]
        self.white_signal[self.lit] = self.strength.repeat(self.strip)[:, None]

    def frames(self):
        """The scene moves down the sensor by a strip a frame, its lower end first: the band at place i sees in frame t
        what the first band saw in frame t - i."""
        slices = len(self.scene.over) // self.strip
        seen = np.array([s * self.scene.seen(row, 1) for s, row in zip(self.strength, self.filters)])
        seen = seen.reshape(self.bands, slices, self.strip, self.width)
        for t in range(slices + self.bands - 1):
            signal = np.zeros((self.height, self.width), np.float32)
            place = np.arange(max(0, t - slices + 1), min(self.bands, t + 1))
            signal[self.lit].reshape(self.bands, self.strip, -1)[place] = seen[place, slices - 1 - (t - place)]
            yield self.sensor.expose(signal, self.exposure, 1000 + t)

    def truth(self):
        return np.array([self.scene.seen(row, 1) for row in self.ideal])


class RgbxCamera:
    """An RGBX sensor with stuck pixels, black at 64 counts and white at 4095."""

    black, white_level = 64, 4095
    wavelengths = {"R": 610, "G": 545, "B": 465, "X": 850}

    def __init__(self, bands):
        """bands: what the four filters see of the picture, (band, row, column)."""
        height, width = bands.shape[1:]
        y, x = np.ogrid[:height, :width]
        pattern = np.where((y + x) % 2, 1, np.where(y % 2 == 0, 3, np.where((y + x) % 4 == 0, 0, 2)))
        self.light = np.take_along_axis(bands, pattern[None], 0)[0]
        self.sensor = Sensor(height, width, self.black, self.white_level - self.black, 0)
        random = np.random.default_rng(13)
        self.stuck = random.permutation(height * width)[: height * width // 2000]
        self.stuck_at = np.where(random.random(self.stuck.size) < 0.6, self.white_level, 0)

    def frame(self, light=None, seed=0):
        """A frame of the picture, or of an even surface; the same pixels are stuck in all."""
        frame = self.sensor.expose(self.light if light is None else np.float32(light), seed=seed)
        frame.flat[self.stuck] = self.stuck_at
        return frame


def painting_bands(height=1088, width=2048):
    scene = old_painting(height, width)
    return np.array([scene.seen(row, 1) for row in ideal_filters(list(RgbxCamera.wavelengths.values()), 70)])
