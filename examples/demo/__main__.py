"""Takes synthetic scenes through the compiled hosts, measures how close they come to the truth, draws the pictures.

    python3 examples/demo --hosts FOLDER [--output results] [--check] [--keep-frames] [--photo PICTURE]
"""

import argparse
import html
import shutil
import subprocess
import sys
from pathlib import Path

import matplotlib
import numpy as np
from matplotlib import pyplot as plt

import scene
from korva_reference import envi

matplotlib.use("Agg")
plt.rcParams.update({"font.size": 9.5, "axes.titlesize": 10.5, "axes.titlelocation": "left", "axes.spines.top": False,
                     "axes.spines.right": False, "axes.grid": True, "grid.color": "0.9", "axes.axisbelow": True,
                     "image.cmap": "gray", "savefig.dpi": 110})
TRUTH = {"color": "0.72", "linewidth": 5, "solid_capstyle": "round", "label": "truth"}
BEFORE = {"color": "tab:orange", "linestyle": "--", "label": "before correction"}
AFTER = {"color": "tab:blue", "label": "corrected"}
LABEL = {"color": "white", "size": 8, "bbox": {"boxstyle": "round,pad=0.15", "facecolor": "#000a", "linewidth": 0}}
STYLE = """body{font:16px/1.5 system-ui,sans-serif;max-width:1240px;margin:2em auto;padding:0 1em;color:#223}
main{display:flex;flex-wrap:wrap;gap:0 1%}main>*{width:100%}figure{margin:.8em 0}img{width:100%;border:1px solid #ddd}
figcaption,summary{color:#556}.told{margin:.1em 0}td,th{padding:.1em 1em;text-align:right}"""

# What the page says: of the scene, its overview, its colours before and after correction, and a raw frame.
TOLD = {
    "snapshot_mosaic": (
        "Snapshot mosaic: 2048 x 1088 samples, 16 bands", "A still life through a cell of 4 x 4 filters that "
        "repeats over the sensor. Band images are cut out, resampled to one common point, turned into reflectance, "
        "and freed of what each filter sees of its neighbours' light.", "Raw samples, colours before and after, six "
        "spectra. Blue follows grey (the truth), orange does not; leaf and green paint look alike and differ beyond "
        "700 nm.", "pale, for every filter also sees what its neighbours see.", "the fruit has its colours back.",
        "zoom in, and each cell of 4 x 4 pixels repeats its 16 brightnesses."),
    "snapshot_tiled": (
        "Snapshot tiles: 16 bands of 512 x 272", "The same still life through 16 tiles, each of which shows all of "
        "it in one band. All tiles see the same points, so nothing is interpolated.", "Raw tiles, colours before "
        "and after, and the same six spectra.", "pale, but without the fringes of a mosaic.", "clean edges, too.",
        "16 tiles, each the whole still life in one band."),
    "line_scan": (
        "Line scan: frames of 2048 x 544 samples, 64 bands", "A flight over a landscape. Each strip of 8 rows of a "
        "frame sees another wavelength; strips of successive frames are stitched to slices that show one strip of "
        "the land in all bands.", "The stitched scene and six spectra. The sports ground's turf is green but has no "
        "red edge: it is artificial.", "no seam between slices, but washed-out colours.", "red roofs, yellow rape, "
        "blue pool.", "each strip of 8 rows sees another wavelength. Fields brighten downwards, water stays dark."),
    "rgbx": (
        "RGBX: 2048 x 1088 samples", "A painting under which an earlier drawing lies in charcoal, through a tile of "
        "R, G, B and near-infrared filters. Stuck pixels are found in a dark and a flat frame.",
        "RGB sees a sea, X a ship; the new WLI carries the drawing into the colours.",
        "The demosaiced picture; not a trace of what lies beneath.",
        "The X band: an earlier ship, hatching and two lines of writing."),
    "rgbx_photo": ("Your picture through RGBX", "X sees its luma, as if that filter were clear.",
                   "RGB, X and what the new WLI makes of them.", "The demosaiced picture.", "The X band."),
}
# Mean PSNR in dB, a little below what each scene reaches; the demo fails when a result falls under it.
LEAST = {"snapshot_mosaic": 37.5, "snapshot_tiled": 40.5, "line_scan": 43.5, "rgbx": 35.5, "rgbx_photo": 20}


def psnr(difference):
    return -10 * np.log10(np.mean(np.square(difference, dtype=np.float64), axis=(-2, -1)))


def mean_angle(cube, truth):
    norms = np.sqrt((cube**2).sum(0) * (truth**2).sum(0))
    return np.degrees(np.arccos(np.clip((cube * truth).sum(0) / np.maximum(norms, 1e-9), -1, 1))).mean()


def shown(linear):
    """Light as the levels of a screen, 0 to 1."""
    linear = np.clip(linear, 0, 1)
    return np.where(linear <= 0.0031308, 12.92 * linear, 1.055 * linear ** (1 / 2.4) - 0.055)


def show(figure, place, image, title, **style):
    axis = figure.add_subplot(place, title=title)
    axis.imshow(image, **style)
    axis.set_axis_off()
    return axis


class Demo:
    """One scene on its way through a host; what is told and shown goes to the terminal and to results/index.html."""

    body, failures = [], []

    def __init__(self, options, name):
        self.options, self.name, self.folder = options, name, options.output / name
        self.folder.mkdir(parents=True, exist_ok=True)
        title, text, *self.told = TOLD[name]
        print(f"\n{title}\n  {text}")
        self.body.append(f"<h2>{html.escape(title)}</h2>\n<p>{html.escape(text)}</p>")

    def say(self, text):
        print(f"  {text}", flush=True)
        self.body.append(f"<p class=told>{html.escape(text)}</p>")

    def write(self, **frames):
        for name, frame in frames.items():
            envi.write(self.folder / f"{name}.raw", frame, description=name)

    def run(self, host, output="", files=(), **options):
        """Runs a host as a user would; files are named after their options."""
        words = [f"{self.options.hosts}/{host}"]
        for name, file in dict(files).items():
            words += [f"--{name}", str(self.folder / file)]
        for name, value in options.items():
            words += [f"--{name.replace('_', '-')}", *str(value).split()]
        print("  $", *words, "--output", self.folder / output, flush=True)
        if subprocess.run([*words, "--output", str(self.folder / output)]).returncode:
            sys.exit(f"{host} failed")

    def read(self, file):
        return envi.read(self.folder / f"{file}.raw")[0]

    def reaches(self, quality):
        if quality < LEAST[self.name]:
            self.failures.append(f"{self.name}: expected a PSNR of at least {LEAST[self.name]} dB, found {quality:.1f}")

    def picture(self, name, draw, caption, width=100):
        """Saves the image or the figure that a function returns, and shows it over a share of the page's width."""
        if self.options.check:
            return
        image, file = draw(), self.folder / f"{name}.png"
        if isinstance(image, np.ndarray):
            plt.imsave(file, image, vmin=0, vmax=1)
        else:
            image.savefig(file)
            plt.close(image)
        link, caption = file.relative_to(self.options.output), html.escape(caption)
        self.body.append(f'<figure style="width:{width}%"><a href="{link}"><img src="{link}" alt="{caption}"></a>'
                         f"<figcaption>{caption}</figcaption></figure>")


class Spectra(Demo):
    """A cube with and without its spectral correction beside the truth."""

    def __init__(self, options, name, camera):
        super().__init__(options, name)
        self.camera = camera
        self.write(white=camera.white(), bias=camera.bias())
        np.savetxt(self.folder / "matrix.txt", camera.matrix, header="a line per output band, a weight per camera band")
        np.savetxt(self.folder / "wavelengths.txt", camera.wavelengths)

    def process(self, host, files, **layout):
        camera, nm = self.camera, self.camera.wavelengths
        files |= {"white": "white.raw", "bias": "bias.raw"}
        layout |= {"exposure": camera.exposure, "white_exposure": camera.white_exposure,
                   "white_reflectance": camera.white_reflectance}
        self.run(host, "", files | {"matrix": "matrix.txt", "wavelengths": "wavelengths.txt"}, **layout)
        self.run(host, "uncorrected", files, **layout)
        self.before = self.read("uncorrected/corrected")[np.argsort(camera.order)] / np.float32(10000)
        self.after, self.truth = self.read("corrected") / np.float32(10000), camera.truth()
        shutil.rmtree(self.folder / "uncorrected")
        self.say(f"Exposure {camera.exposure}; the white reference reflects {camera.white_reflectance} and was exposed "
                 f"{camera.white_exposure}.")
        self.quality = [psnr(cube - self.truth) for cube in (self.before, self.after)]
        for style, cube, values in zip((BEFORE, AFTER), (self.before, self.after), self.quality):
            self.say(f"PSNR {style['label']}: {values.min():.1f} to {values.max():.1f} dB, mean {values.mean():.1f}; "
                     f"mean spectral angle {mean_angle(cube, self.truth):.2f} degrees.")
        rows = [f"{band:10.1f} {was:10.1f} {now:10.1f}" for band, was, now in zip(nm, *self.quality)]
        print("\n".join(["          nm  dB before   dB after", *(f"  {row}" for row in rows[:: len(rows) // 16])]))
        cells = "".join(f"<tr><td>{'<td>'.join(row.split())}" for row in rows)
        self.body.append(f"<details><summary>The {len(nm)} bands in figures</summary><table><tr><th>nm<th>PSNR before "
                         f"correction, dB<th>corrected, dB{cells}</table></details>")
        self.reaches(self.quality[1].mean())
        self.bands = [int(np.argmin(np.abs(nm - wanted))) for wanted in (640, 550, 465)]
        self.colours = ", ".join(f"{nm[band]:.0f}" for band in self.bands) + " nm"

    def colour(self, cube):
        return shown(cube[self.bands].transpose(1, 2, 0) / np.quantile(self.after[self.bands], 0.985))

    def overview(self, draw):
        """Pictures above, drawn by a function that returns the axes to mark; below the spectra of the marked points."""
        figure = plt.figure(figsize=(11.6, 8.3), layout="constrained")
        upper, lower = figure.subfigures(2, 1, height_ratios=[1, 1.8])
        marked, charts = draw(upper), lower.subplots(2, 3)
        for number, (axis, (name, (row, column))) in enumerate(zip(charts.flat, self.camera.points().items()), 1):
            marked.plot(column, row, "o", markersize=6, markerfacecolor="none", color="white", markeredgewidth=1.4)
            marked.annotate(str(number), (column, row), (6, -4), textcoords="offset points", **LABEL)
            for cube, style in ((self.truth, TRUTH), (self.before, BEFORE), (self.after, AFTER)):
                mean = cube[:, row - 1 : row + 2, column - 1 : column + 2].mean(axis=(1, 2))
                dots = "o" if style is AFTER and len(mean) < 40 else None
                axis.plot(self.camera.wavelengths, mean, marker=dots, markersize=4, **style)
            axis.set_title(f"{number}  {name}")
            axis.set_ylim(bottom=0)
        charts[0, 0].legend(frameon=False, fontsize=8.5)
        charts[0, 0].set_ylabel("reflectance")
        charts[1, 0].set(xlabel="wavelength in nm", ylabel="reflectance")
        return figure

    def pictures(self, frame, overview):
        """The pictures that every camera gives."""
        for name, draw, width, caption in (
                ("overview", lambda: self.overview(overview), 100, ""),
                ("colour_before", lambda: self.colour(self.before), 49, f"Before correction, {self.colours}: "),
                ("colour_after", lambda: self.colour(self.after), 49, f"After correction, {self.colours}: "),
                ("raw_frame", lambda: shown(frame / np.quantile(frame, 0.995)), 49, "A raw frame: ")):
            self.picture(name, draw, caption + self.told.pop(0), width)

        def chart():
            figure, axis = plt.subplots(figsize=(7, 3.5), layout="constrained")
            for values, style in zip(self.quality, (BEFORE, AFTER)):
                axis.plot(self.camera.wavelengths, values, marker=".", **style)
            axis.set(xlabel="wavelength in nm", ylabel="PSNR in dB")
            axis.legend(frameon=False)
            return figure

        self.picture("quality", chart, "How close each band comes to the truth.", 49)


def snapshot(options, name):
    tiled = name == "snapshot_tiled"
    camera = scene.SnapshotCamera(tiled=tiled)
    frame, (height, width) = camera.frame(), camera.signal.shape
    demo = Spectra(options, name, camera)
    demo.write(frame=frame)
    layout = {"tile": f"{width // 4} {height // 4}"} if tiled else {}
    demo.process("snapshot_mosaic", {"frame": "frame.raw"}, **layout)
    worse = np.count_nonzero(demo.quality[1] < demo.quality[0])
    demo.say(f"{worse or 'No'} bands get worse by the correction. " + (
        "What stays wrong is noise, and what neighbouring bands cannot tell apart." if tiled else
        "What stays wrong is at edges: there each band is interpolated from other pixels, and the correction, which "
        "weighs bands against each other, adds up their errors. Under a lens without blur some bands get worse by it."))

    def overview(figure):
        grid = figure.add_gridspec(1, 3, width_ratios=[0.52, 1, 1])
        y, x = int(0.404 * height) // 4 * 4, int(0.223 * width) // 4 * 4  # where red meets yellow
        raw, title, style = (frame, "Raw tiles", {}) if tiled else (
            frame[y : y + 48, x : x + 48], "Raw mosaic, 48 x 48", {"interpolation": "nearest"})
        show(figure, grid[0], shown(raw / np.quantile(frame, 0.995)), title, **style)
        show(figure, grid[1], demo.colour(demo.before), f"Before correction: {demo.colours}")
        return show(figure, grid[2], demo.colour(demo.after), f"After correction: {demo.colours}")

    demo.pictures(frame, overview)


def line_scan(options, name):
    camera = scene.LineScanCamera()
    demo = Spectra(options, name, camera)
    with open(demo.folder / "frames.raw", "wb") as recording:
        for number, frame in enumerate(camera.frames()):
            frame.tofile(recording)
            if number == 90:
                demo.write(frame=frame)
    demo.process("line_scan", {"frames": "frames.raw"}, width=camera.width, height=camera.height,
                 strip_height=camera.strip, first_band=camera.first, last_band=camera.first + camera.bands - 1)
    if not options.keep_frames:
        (demo.folder / "frames.raw").unlink()

    def overview(figure):
        both, middle = demo.colour(demo.after), camera.width // 2
        both[:, :middle] = demo.colour(demo.before)[:, :middle]
        axis = show(figure, 111, both, f"Left: before correction, right: after ({demo.colours})")
        axis.axvline(middle, color="white", linewidth=1.5)
        return axis

    demo.pictures(demo.read("frame")[0], overview)


def rgbx(options, name, bands, white):
    camera = scene.RgbxCamera(bands)
    frame = camera.frame(seed=7)
    height, width = frame.shape
    demo = Demo(options, name)
    demo.write(frame=frame, dark=camera.frame(0, 8), flat=camera.frame(0.8, 9))
    layout = {"width": width, "height": height, "black": camera.black, "white_level": camera.white_level}
    demo.run("rgbx", "with_defects", {"frame": "frame.raw"}, **layout, weight=1)
    demo.run("rgbx", "", {file: f"{file}.raw" for file in ("frame", "dark", "flat")}, **layout, weight="1 0.5 0")
    cleaned = demo.read("cleaned_frame")[0]
    changed = np.count_nonzero(cleaned != frame)
    demo.say(f"{camera.stuck.size} stuck pixels planted, {changed} samples changed by medians.")

    def picture(planes):
        return shown(planes[:3].transpose(1, 2, 0) / white)

    names = {"demosaiced RGB with its defects": "with_defects/bands", "demosaiced RGB": "bands",
             **{f"new WLI at weight {weight}": f"wli_weight_{weight}" for weight in ("1", "0.5", "0")}}
    images, truth = [picture(demo.read(file)) for file in names.values()], picture(bands)
    for what, image in zip(names, images):
        margin = (height - len(image)) // 2
        quality = psnr((image - truth[margin:-margin, margin:-margin]).transpose(2, 0, 1)).mean()
        demo.say(f"PSNR of the {what} against the original: {quality:.1f} dB.")
        if what == "demosaiced RGB":
            demo.reaches(quality)
    demo.say("Below weight 1 it falls on purpose: the detail that X adds is none of the original's colours.")
    x_band, (_, rgb, full, half, none) = shown(demo.read("bands")[3] / white), images
    shutil.rmtree(demo.folder / "with_defects")

    def beside(columns, size, images, x, y, part, **style):
        """The same part of pictures that lost different margins, placed by shares of the frame's size."""
        figure = plt.figure(figsize=size, layout="constrained")
        grid = figure.add_gridspec(-(-len(images) // columns), columns)
        for k, (title, image) in enumerate(images.items()):
            margin = (width - image.shape[1]) // 2
            top, left = (max(0, int(share * whole) - margin) for share, whole in ((y, height), (x, width)))
            image = image[top : top + part[1], left : left + part[0]]
            show(figure, grid[k // columns, k % columns], image, title, vmin=0, vmax=1, **style)
        return figure

    raw, clean = (shown((counts - np.float32(camera.black)) / (camera.white_level - camera.black) / white)
                  for counts in (frame, cleaned))
    filters = f" Filters: {', '.join(f'{band} {nm} nm' for band, nm in camera.wavelengths.items())}."
    close = {"Demosaiced RGB": rgb, "X band": x_band, "New WLI, weight 1": full, "New WLI, weight 0": none}
    weights = {"New WLI, weight 1": full, "weight 0.5": half, "weight 0": none}
    medians = {"Raw frame with stuck pixels, 180 x 150": raw, "After the medians": clean}
    for file, draw, share, caption in (
            ("overview", lambda: beside(2, (9.2, 7), close, 0.42, 0.325, (480, 330)), 100,
             demo.told[0] + (filters if name == "rgbx" else "")),
            ("rgb", lambda: rgb, 49, demo.told[1]),
            ("x_band", lambda: x_band, 49, demo.told[2]),
            ("wli_side_by_side", lambda: beside(3, (12, 3.9), weights, 0.4, 0.34, (620, 560)), 100,
             "Weight 1, 0.5 and 0: the finest detail moves from what RGB saw to what X saw."),
            *((f"wli_weight_{weight}", lambda image=image: image, 32, f"New WLI at weight {weight}.")
              for weight, image in (("1", full), ("0.5", half), ("0", none))),
            ("median_before_after",
             lambda: beside(2, (11, 4.8), medians, 0.17, 0.55, (180, 150), interpolation="nearest"), 100,
             "Stuck pixels on the left are gone on the right, while the strokes stay."),
            ("raw_frame", lambda: raw, 100, "The raw frame: zoom in to see X, G, R and B pixels side by side.")):
        demo.picture(file, draw, caption, share)


def photograph(path):
    """What the four filters see of a picture; X is its luma, as if that filter were clear."""
    levels = np.atleast_3d(plt.imread(path))
    levels = levels / (255.0 if levels.dtype == np.uint8 else 1.0)
    levels = levels[: len(levels) // 4 * 4, : levels.shape[1] // 4 * 4, [0, 1, 2] if levels.shape[2] > 2 else [0, 0, 0]]
    linear = np.where(levels <= 0.04045, levels / 12.92, ((levels + 0.055) / 1.055) ** 2.4)
    return np.concatenate([linear, linear @ [[0.2126], [0.7152], [0.0722]]], 2).transpose(2, 0, 1).astype(np.float32)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--hosts", type=Path, required=True, help="folder of the compiled hosts")
    parser.add_argument("--output", type=Path, default=Path("results"), help="folder for frames, cubes and pictures")
    parser.add_argument("--check", action="store_true", help="measure only, draw nothing")
    parser.add_argument("--keep-frames", action="store_true", help="keep the 280 MB of line-scan frames")
    parser.add_argument("--photo", help="a picture of your own to mosaic and reconstruct, instead of the scenes")
    options = parser.parse_args()
    if options.photo:
        rgbx(options, "rgbx_photo", photograph(options.photo), 1)
    else:
        snapshot(options, "snapshot_mosaic")
        snapshot(options, "snapshot_tiled")
        line_scan(options, "line_scan")
        rgbx(options, "rgbx", scene.painting_bands(), 0.62)
    if not options.check:
        page = options.output / "index.html"
        page.write_text('<!DOCTYPE html><html lang="en"><meta charset="utf-8"><title>Korva reference API: demo</title>'
                        f"<style>{STYLE}</style><h1>From raw frames to spectra</h1><p>Scenes whose true reflectance is "
                        "known, recorded by synthetic cameras, processed by the example hosts. The raw files and their "
                        f"ENVI headers lie beside the pictures.</p><main>{''.join(Demo.body)}</main></html>\n")
        print(f"\n{page.resolve()} shows all pictures with captions and figures.")
    sys.exit("\n".join(Demo.failures) or None)


if __name__ == "__main__":
    main()
