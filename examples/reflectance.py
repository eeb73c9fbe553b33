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
parser.add_argument("--points", nargs="*", help="row,column of mosaic cells whose spectra are shown [the middle]")
parser.add_argument("--output", type=Path, default=Path("results/python"))
options = parser.parse_args()
if options.frame and not (options.white and options.bias):
    parser.error("expected --white and --bias with --frame")
across, down = (int(number) for number in options.mosaic.split("x"))
options.output.mkdir(parents=True, exist_ok=True)

if options.frame:
    frame, white, bias = (korva.read_raw_data(path, (options.height, options.width), np.uint16)
                          for path in (options.frame, options.white, options.bias))
    matrix = np.loadtxt(options.matrix, ndmin=2) if options.matrix else np.eye(across * down)
    wavelengths = np.loadtxt(options.wavelengths).ravel() if options.wavelengths else None
    named = options.points or [f"{options.height // down // 2},{options.width // across // 2}"]
    points, truth = {f"cell {text}": tuple(int(number) for number in text.split(",")) for text in named}, None
else:
    camera = scene.SnapshotCamera(options.height, options.width)
    frame, white, bias = camera.frame(), camera.white(), camera.bias()
    matrix, wavelengths, truth, points = camera.matrix, camera.wavelengths, camera.truth(), camera.points()
    options.exposure, options.white_exposure = camera.exposure, camera.white_exposure

# %% The road of a frame: bias, band images, one common point of the cell, reflectance, spectral correction
FULL_SCALE = 10000  # counts that stand for reflectance 1
road = korva.SnapshotRoad(
    white, bias=bias, mosaic=(down, across), matrix=matrix, exposure=options.exposure, full_scale=FULL_SCALE,
    white_exposure=options.white_exposure, white_reflectance=options.white_reflectance)
cube, corrected = road.reflectance(frame), road.spectra(frame)
measured = cube[matrix.argmax(axis=1)]  # For each output band the camera's band that weighs most in it.

# %% The cube, for any viewer
if wavelengths is None:
    shown, axis_values, axis_name = [len(matrix) - 1, len(matrix) // 2, 0], np.arange(len(matrix)), "band"
else:
    shown = [int(np.argmin(np.abs(wavelengths - nm))) for nm in (640, 550, 465)]
    axis_values, axis_name = wavelengths, "wavelength, nm"
korva.envi.write(options.output / "reflectance.raw", corrected, wavelength=wavelengths, default_bands=shown,
                 others={"reflectance scale factor": FULL_SCALE, "data ignore value": korva.FLAGGED})


# %% Picture 1: is the exposure right? The frame, its mosaic, the white reference
def colours(cube):
    """A colour composite, with the square root that screens expect."""
    return np.sqrt(np.clip(cube[shown].transpose(1, 2, 0) / (0.85 * FULL_SCALE), 0, 1))


plt.rcParams.update({"font.size": 10, "axes.titlesize": 11, "figure.dpi": 110, "image.interpolation": "nearest",
                     "axes.spines.top": False, "axes.spines.right": False, "axes.titlelocation": "left"})
figure, axes = plt.subplots(2, 2, figsize=(13, 7.6), layout="constrained", width_ratios=[2, 1.15])
image = axes[0, 0].imshow(frame, cmap="gray", vmin=0, vmax=np.percentile(frame, 99.9))
axes[0, 0].set_title(f"Raw frame, {frame.shape[1]} x {frame.shape[0]}")
figure.colorbar(image, ax=axes[0, 0], label="counts", shrink=0.9)
y, x = (int(share * size) // 4 * 4 for share, size in zip((0.41, 0.227), frame.shape))  # Where red meets yellow.
axes[0, 0].add_patch(Rectangle((x, y), 32, 32, fill=False, color="tab:orange", linewidth=1.5))
axes[0, 1].imshow(frame[y : y + 32, x : x + 32], cmap="gray", extent=(x, x + 32, y + 32, y))
axes[0, 1].set_title(f"32 x 32 pixels of it: cells of {across} x {down} filters", color="tab:orange")
lit = road.bands(white) - 1.0 * road.bands(bias)
image = axes[1, 0].imshow((lit / np.median(lit, axis=(1, 2), keepdims=True)).mean(axis=0))
axes[1, 0].set_title("White reference without its band levels: the illumination's fall-off")
figure.colorbar(image, ax=axes[1, 0], label="share of the median", shrink=0.9)
for counts, name in ((bias, "bias"), (frame, "frame"), (white, "white")):
    axes[1, 1].hist(counts.ravel()[::7], bins=np.arange(0, 4160, 16), histtype="stepfilled", alpha=0.55, label=name)
axes[1, 1].set(yscale="log", xlabel="counts", ylabel="pixels", title="Counts of the 4095 that 12 bits hold")
axes[1, 1].legend(frameon=False, loc="upper right")
figure.savefig(options.output / "1_frame.png")

# %% Picture 2: do the bands fit together? The composite, and an edge before and after demosaicing
figure = plt.figure(figsize=(13, 5.3), layout="constrained")
axes = figure.subplot_mosaic([["all", "before"], ["all", "after"]], width_ratios=[2.35, 1])
axes["all"].imshow(colours(corrected))
axes["all"].set_title(f"Reflectance, {axis_name} " + " / ".join(f"{axis_values[band]:.0f}" for band in shown))
for name, (row, column) in points.items():
    axes["all"].plot(column, row, "o", markersize=9, markerfacecolor="none", color="white", markeredgewidth=1.5)
    axes["all"].annotate(name, (column, row), (0, -15), textcoords="offset points", color="white", ha="center",
                         size=8.5, bbox={"boxstyle": "round,pad=0.2", "facecolor": "#0008", "linewidth": 0})
seen, most = (korva.ssm_cube(korva.correct_bias(counts, bias), mosaic_width=across, mosaic_height=down)
              for counts in (frame, white))
scale = FULL_SCALE * options.white_reflectance * options.white_exposure / options.exposure
cut = np.tensordot(matrix, scale * seen / np.maximum(most, 1), 1)
top, left = max(0, y // down - 10), max(0, x // across - 10)
for key, bands, title in (("before", cut, "As cut: colour fringes"), ("after", corrected, "Demosaiced")):
    axes[key].imshow(colours(bands[:, top : top + 30, left : left + 40]))
    axes[key].set_title(title)
for axis in axes.values():
    axis.set_axis_off()
figure.savefig(options.output / "2_composite.png")

# %% Picture 3: are the spectra right? A few points, before and after the spectral correction
columns = min(3, len(points))
figure, axes = plt.subplots(-(-len(points) // columns), columns, figsize=(12.5, 6), layout="constrained", squeeze=False)
for axis, (name, (row, column)) in zip(axes.flat, points.items()):
    if truth is not None:
        axis.plot(axis_values, truth[:, row, column], color="0.7", linewidth=5, label="truth")
    axis.plot(axis_values, measured[:, row, column] / FULL_SCALE, "--", color="tab:orange", label="measured")
    axis.plot(axis_values, corrected[:, row, column] / FULL_SCALE, ".-", color="tab:blue", label="corrected")
    axis.set_title(name)
    axis.set_ylim(bottom=0)
axes[0, 0].legend(frameon=False)
figure.supxlabel(axis_name)
figure.supylabel("reflectance")
figure.savefig(options.output / "3_spectra.png")


# %% Picture 4: how far is it from the truth, where that is known?
def angle(cube):
    cosine = (cube * truth).sum(0) / np.sqrt((cube.astype(float) ** 2).sum(0) * (truth**2).sum(0))
    return np.degrees(np.arccos(np.clip(cosine, -1, 1)))


if truth is not None:
    figure, axes = plt.subplots(1, 3, figsize=(14.5, 3.5), layout="constrained", width_ratios=[1.5, 1.5, 1])
    for axis, part, name in ((axes[0], measured, "measured"), (axes[1], corrected, "corrected")):
        image = axis.imshow(angle(part), cmap="magma", vmin=0, vmax=15)
        axis.set_title(f"Spectral angle to the truth, {name}: median {np.median(angle(part)):.1f}°")
        axis.set_axis_off()
        axes[2].plot(wavelengths, np.abs(part / FULL_SCALE - truth).mean(axis=(1, 2)), "o-", label=name)
    figure.colorbar(image, ax=axes[:2], label="degrees", shrink=0.8, extend="max")
    axes[2].set(xlabel="wavelength, nm", ylabel="mean error of reflectance", title="Error per band", ylim=(0, None))
    axes[2].legend(frameon=False)
    figure.savefig(options.output / "4_error.png")
    print(f"median spectral angle: {np.median(angle(measured)):.2f} degrees measured, "
          f"{np.median(angle(corrected)):.2f} corrected")

print(f"{options.output}: reflectance.raw and .hdr, {', '.join(sorted(p.name for p in options.output.glob('*.png')))}")
