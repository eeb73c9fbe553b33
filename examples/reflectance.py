#!/usr/bin/env python3
"""From one raw snapshot-mosaic frame to reflectance spectra, with the pictures to judge them by.

    reflectance.py                                            a synthetic scene whose true reflectance is known
    reflectance.py --frame f.raw --white w.raw --bias b.raw --width 2048 --height 1088 --mosaic 4x4
                   [--matrix matrix.txt] [--wavelengths nm.txt] [--points ROW,COLUMN ...]

Runs as a script, or cell by cell (# %%) in an editor. Pictures and an ENVI cube go to the folder named by --output.
"""

# %% What to read
import argparse
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
from demo import scene
from matplotlib.patches import Rectangle

import korva_reference as korva

parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
parser.add_argument("--frame", help="raw frame of 16-bit counts; without it a synthetic one is used")
parser.add_argument("--white", help="raw frame of a white reference")
parser.add_argument("--bias", help="raw frame taken without light")
parser.add_argument("--width", type=int, default=2048)
parser.add_argument("--height", type=int, default=1088)
parser.add_argument("--mosaic", default="4x4", help="filters across and down, such as 4x4")
parser.add_argument("--exposure", type=float, default=1.0, help="exposure time of the frame")
parser.add_argument("--white-exposure", type=float, default=1.0, help="exposure time of the white reference")
parser.add_argument("--white-reflectance", type=float, default=0.95)
parser.add_argument("--matrix", help="text file: a line per output band, a weight per input band")
parser.add_argument("--wavelengths", help="text file: a wavelength in nm per output band")
parser.add_argument("--points", nargs="*", default=[],
                    help="row,column of mosaic cells whose spectra are shown, by default the middle")
parser.add_argument("--output", type=Path, default=Path("results/python"))
options = parser.parse_args()
if options.frame and not (options.white and options.bias):
    parser.error("expected --white and --bias with --frame")
mosaic_width, mosaic_height = (int(number) for number in options.mosaic.split("x"))
options.output.mkdir(parents=True, exist_ok=True)

camera = truth = None
if options.frame:
    shape = (options.height, options.width)
    frame, white, bias = (
        korva.read_raw_data(path, shape, np.uint16) for path in (options.frame, options.white, options.bias)
    )
    bands = mosaic_width * mosaic_height
    matrix = np.loadtxt(options.matrix, ndmin=2) if options.matrix else np.eye(bands)
    wavelengths = np.loadtxt(options.wavelengths).ravel() if options.wavelengths else None
    middle = f"{options.height // mosaic_height // 2},{options.width // mosaic_width // 2}"
    points = {text: tuple(int(number) for number in text.split(",")) for text in options.points or [middle]}
else:
    camera = scene.SnapshotCamera(options.height, options.width)
    frame, white, bias = camera.frame(), camera.white(), camera.bias()
    matrix, wavelengths, truth, points = camera.matrix, camera.wavelengths, camera.truth(), camera.points()
    options.exposure, options.white_exposure = camera.exposure, camera.white_exposure

# %% The road of a frame: bias, band images, one common point of the cell, reflectance, spectral correction
FULL_SCALE = 10000  # counts that stand for reflectance 1
UNUSABLE = 65535  # no 12-bit count: marks pixels without a white reference, and no count reaches it as a limit
cell_centre = ((mosaic_height - 1) / 2, (mosaic_width - 1) / 2)


def band_images(counts):
    cut = korva.ssm_cube(korva.correct_bias(counts, bias), mosaic_width, mosaic_height)
    return cut, korva.demosaic_cube(korva.median_filter_3x3(cut), mosaic_width, mosaic_height, *cell_centre)


_, white_cube = band_images(white)
coefficients = korva.correction_coefficients(white_cube, options.white_reflectance, options.white_exposure, UNUSABLE)


def reflectance(counts):
    return korva.reflectance(counts, coefficients, options.exposure, UNUSABLE, UNUSABLE, full_scale=FULL_SCALE)


cut, demosaiced = band_images(frame)
cube = reflectance(demosaiced)
corrected = korva.apply_spectral_correction_bsq(cube, matrix)
measured = cube[matrix.argmax(axis=1)]  # For each output band the camera's band that weighs most in it.

# %% The cube, for any viewer
if wavelengths is None:
    red, green, blue = len(matrix) - 1, len(matrix) // 2, 0
    axis_values, axis_name, shown_as = np.arange(len(matrix), dtype=float), "band", f"bands {red}, {green}, {blue}"
else:
    red, green, blue = (int(np.argmin(np.abs(wavelengths - nm))) for nm in (640, 550, 465))
    axis_values, axis_name = wavelengths, "wavelength, nm"
    shown_as = " / ".join(f"{wavelengths[band]:.0f}" for band in (red, green, blue)) + " nm"
korva.envi.write(options.output / "reflectance.raw", corrected, wavelength=wavelengths,
                 default_bands=[red, green, blue], description=f"reflectance x {FULL_SCALE}")


# %% Picture 1: is the exposure right? The frame, its mosaic, the white reference
def colours(cube):
    """A colour composite, with the square root that screens expect."""
    return np.sqrt(np.clip(cube[[red, green, blue]].transpose(1, 2, 0) / (0.85 * FULL_SCALE), 0, 1))


plt.rcParams.update({"font.size": 10, "axes.titlesize": 11, "figure.dpi": 110, "image.interpolation": "nearest",
                     "axes.spines.top": False, "axes.spines.right": False, "axes.titlelocation": "left"})
figure, axes = plt.subplots(2, 2, figsize=(13, 7.6), layout="constrained", gridspec_kw={"width_ratios": [2, 1.15]})
shown = axes[0, 0].imshow(frame, cmap="gray", vmin=0, vmax=np.percentile(frame, 99.9))
axes[0, 0].set_title(f"Raw frame, {frame.shape[1]} x {frame.shape[0]}")
figure.colorbar(shown, ax=axes[0, 0], label="counts", shrink=0.9)
y, x = (int(share * size) // 4 * 4 for share, size in zip((0.41, 0.227), frame.shape))  # Where red meets yellow.
axes[0, 0].add_patch(Rectangle((x, y), 32, 32, fill=False, color="tab:orange", linewidth=1.5))
axes[0, 1].imshow(frame[y : y + 32, x : x + 32], cmap="gray", extent=(x, x + 32, y + 32, y))
axes[0, 1].set_title(f"32 x 32 pixels of it: cells of {mosaic_width} x {mosaic_height} filters", color="tab:orange")
axes[0, 1].set_xticks(np.arange(x, x + 33, mosaic_width), minor=True)
axes[0, 1].set_yticks(np.arange(y, y + 33, mosaic_height), minor=True)
axes[0, 1].grid(which="minor", color="tab:orange", alpha=0.5, linewidth=0.7)
axes[0, 1].tick_params(which="minor", length=0)
level = np.median(white_cube, axis=(1, 2))[:, None, None]
shown = axes[1, 0].imshow((white_cube / level).mean(axis=0), extent=(0, frame.shape[1], frame.shape[0], 0))
axes[1, 0].set_title("White reference without its band levels: the illumination's fall-off")
figure.colorbar(shown, ax=axes[1, 0], label="share of the median", shrink=0.9)
for axis in axes.flat[:3]:
    axis.set(xlabel="sensor column, pixels", ylabel="sensor row, pixels")
for counts, name in ((bias, "bias"), (frame, "frame"), (white, "white")):
    axes[1, 1].hist(counts.ravel()[::7], bins=np.arange(0, 4160, 16), histtype="stepfilled", alpha=0.55, label=name)
axes[1, 1].set(yscale="log", xlabel="counts", ylabel="pixels", title="Counts, up to saturation (dotted)")
if frame.max() <= 4095:
    axes[1, 1].axvline(4095, color="k", linewidth=1, linestyle=":")
axes[1, 1].legend(frameon=False, loc="upper center")
figure.savefig(options.output / "1_frame.png")

# %% Picture 2: do the bands fit together? The composite, and an edge before and after demosaicing
figure = plt.figure(figsize=(13, 5.3), layout="constrained")
axes = figure.subplot_mosaic([["all", "before"], ["all", "after"]], width_ratios=[2.35, 1])
axes["all"].imshow(colours(corrected))
axes["all"].set_title(f"Reflectance at {shown_as}, {corrected.shape[2]} x {corrected.shape[1]} mosaic cells")
for name, (row, column) in points.items():
    axes["all"].plot(column, row, "o", markersize=9, markerfacecolor="none", color="white", markeredgewidth=1.5)
    axes["all"].annotate(name, (column, row), (0, -15), textcoords="offset points", color="white", ha="center",
                         size=8.5, bbox={"boxstyle": "round,pad=0.2", "facecolor": "#0008", "linewidth": 0})
zoom = np.s_[:, max(0, y // mosaic_height - 10) :, max(0, x // mosaic_width - 10) :]
for key, cube, title in (("before", cut, "As cut: colour fringes"), ("after", demosaiced, "Demosaiced")):
    part = korva.apply_spectral_correction_bsq(reflectance(cube), matrix)[zoom][:, :30, :40]
    axes[key].imshow(colours(part))
    axes[key].set_title(f"{title}, {part.shape[2]} x {part.shape[1]} cells")
for axis in axes.values():
    axis.set_axis_off()
figure.savefig(options.output / "2_composite.png")

# %% Picture 3: are the spectra right? A few points, before and after the spectral correction
columns = 3 if len(points) > 4 else len(points)
rows = -(-len(points) // columns)
figure, axes = plt.subplots(rows, columns, figsize=(12.5, max(4.5, 2.9 * rows)), layout="constrained", sharex=True,
                            squeeze=False)
for axis in axes.flat[len(points) :]:
    axis.set_axis_off()
for axis, (name, (row, column)) in zip(axes.flat, points.items()):
    place = np.s_[:, row, column]
    if truth is not None:
        axis.plot(axis_values, truth[place], color="0.7", linewidth=5, label="truth", solid_capstyle="round")
    axis.plot(axis_values, measured[place] / FULL_SCALE, "o", markerfacecolor="none", color="tab:orange", label="measured")
    axis.plot(axis_values, corrected[place] / FULL_SCALE, ".-", color="tab:blue", label="corrected")
    place_name = f"cell row {row}, column {column}"
    axis.set_title(f"{name}  ({place_name})" if camera else place_name)
    axis.set_ylim(bottom=0)
axes[0, 0].legend(frameon=False)
figure.supxlabel(axis_name)
figure.supylabel("reflectance")
figure.savefig(options.output / "3_spectra.png")

# %% Picture 4: how far is it from the truth, where that is known?
if truth is not None:

    def angle(cube):
        a, b = cube.reshape(len(cube), -1).astype(float), truth.reshape(len(truth), -1)
        cosine = (a * b).sum(0) / np.sqrt((a * a).sum(0) * (b * b).sum(0))
        return np.degrees(np.arccos(np.clip(cosine, -1, 1))).reshape(cube.shape[1:])

    figure, axes = plt.subplots(1, 3, figsize=(14.5, 3.5), layout="constrained",
                                gridspec_kw={"width_ratios": [1.5, 1.5, 1]})
    for axis, cube, name in ((axes[0], measured, "measured"), (axes[1], corrected, "corrected")):
        shown = axis.imshow(angle(cube), cmap="magma", vmin=0, vmax=15)
        axis.set_title(f"Spectral angle to the truth, {name}: median {np.median(angle(cube)):.1f}°")
        axis.set_axis_off()
    figure.colorbar(shown, ax=axes[:2], label="degrees", shrink=0.8, extend="max")
    for cube, name, colour in ((measured, "measured", "tab:orange"), (corrected, "corrected", "tab:blue")):
        error = np.abs(cube / FULL_SCALE - truth).mean(axis=(1, 2))
        axes[2].plot(wavelengths, error, "o-", color=colour, label=name)
    axes[2].set(xlabel="wavelength, nm", ylabel="mean error of reflectance", title="Error per band")
    axes[2].set_ylim(bottom=0)
    axes[2].legend(frameon=False)
    figure.savefig(options.output / "4_error.png")
    print(f"median spectral angle: {np.median(angle(measured)):.2f} degrees measured, "
          f"{np.median(angle(corrected)):.2f} corrected")

print(f"{options.output}: reflectance.raw and .hdr, {', '.join(sorted(p.name for p in options.output.glob('*.png')))}")
