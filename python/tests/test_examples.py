"""The examples, other programs' view of the written cubes, and an installation: slow, or in need of more packages."""

import doctest
import os
import re
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import korva_reference as korva

ROOT = Path(korva.__file__).parents[2]
EXAMPLES = ROOT / "examples"
pytestmark = pytest.mark.deep


def run(*command, **options):
    result = subprocess.run(list(map(str, command)), capture_output=True, text=True, **options)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def test_written_cubes_open_in_other_programs(tmp_path):
    import rasterio
    import spectral
    from osgeo import gdal

    gdal.UseExceptions()
    cube = np.random.default_rng(4).integers(0, 10000, (5, 7, 6)).astype(np.uint16)
    for interleave in ("bsq", "bil", "bip"):
        for dtype in (np.uint16, np.float32, np.float64):
            name = f"{interleave}_{np.dtype(dtype)}"
            korva.envi.write(f"{name}.raw", cube.astype(dtype), interleave=interleave,
                             wavelength=[450, 500, 550, 600, 650.5], default_bands=[4, 2, 0],
                             others={"reflectance scale factor": 10000, "data ignore value": 65535})
            image = spectral.open_image(f"{name}.hdr")
            assert image.bands.centers == [450, 500, 550, 600, 650.5] and image.bands.band_unit == "Nanometers"
            assert np.array_equal(image.load(dtype=dtype, scale=False).transpose(2, 0, 1), cube)
            assert image.metadata["default bands"] == ["5", "3", "1"]
            assert image.scale_factor == 10000 and image.metadata["data ignore value"] == "65535"
            dataset = gdal.Open(f"{name}.raw")
            assert dataset.GetDriver().ShortName == "ENVI" and np.array_equal(dataset.ReadAsArray(), cube)
            assert dataset.ReadAsArray().dtype == dtype
            assert dataset.GetRasterBand(5).GetMetadata()["wavelength"] == "650.5"
            assert dataset.GetRasterBand(1).GetNoDataValue() == 65535
            with rasterio.open(f"{name}.raw") as opened:
                assert np.array_equal(opened.read(), cube) and opened.nodata == 65535
            colours = [dataset.GetRasterBand(band).GetColorInterpretation() for band in (5, 3, 1)]
            assert colours == [gdal.GCI_RedBand, gdal.GCI_GreenBand, gdal.GCI_BlueBand]
            # And the other way: what Spectral Python writes is read here.
            spectral.envi.save_image(f"other_{name}.hdr", cube.transpose(1, 2, 0).astype(dtype), interleave=interleave)
            assert np.array_equal(korva.envi.read(f"other_{name}.hdr")[0], cube)
    lines = re.search(r"```octave\n(.*?)```", (ROOT / "docs/python.md").read_text(), re.DOTALL)[1]
    korva.envi.write("cube.raw", cube)
    script = re.sub("512, 272, 16", "6, 7, 5", lines) + 'printf("%d ", cube(2, 3, 4), size(cube))'
    assert run("octave-cli", "--eval", script).split() == [str(n) for n in (cube[3, 1, 2], 7, 6, 5)]


def test_documented_lines_run_as_they_stand():
    page = ROOT / "docs/python.md"
    tried = doctest.testfile(str(page), module_relative=False)
    assert tried.attempted >= 9 and tried.failed == 0
    frame = np.random.default_rng(5).integers(1, 4096, (1088, 2048), np.uint16)
    korva.write_raw_data("frame.raw", frame)
    with open("scan.raw", "wb") as scan:
        scan.truncate(512 + 100 * frame.nbytes)
    names = dict(frame=frame, white=frame, bias=frame // 99, dark=frame // 99, flat=frame, matrix=np.eye(16),
                 wavelengths=range(450, 610, 10))
    blocks = [block for path in (page, ROOT / "README.md")
              for block in re.findall(r"```python\n(.*?)```", path.read_text(), re.DOTALL) if ">>>" not in block]
    for block in blocks:
        exec(block, names)
    assert len(blocks) == 3 and names["rgb"].shape == (3, 1082, 2042) and names["scene"].shape == (100, 8, 2048)
    exec(re.search(r"^\| NumPy \| `([^`]*)`", page.read_text(), re.MULTILINE)[1], {"korva_reference": korva})
    for line in re.search(r"^\| GDAL \| `(.*?)` \|", page.read_text(), re.MULTILINE)[1].split("`; `"):
        run(*line.split())


def test_package_installs_without_a_network_and_its_examples_run(tmp_path):
    run(sys.executable, "-m", "venv", "--system-site-packages", "venv")
    python = tmp_path / "venv/bin/python"
    environment = {key: value for key, value in os.environ.items() if not key.startswith(("PYTHONPATH", "KORVA_"))}
    # From a copy of what it needs: the build leaves files beside the sources.
    for part in ("python", "include", "src", "cmake", "CMakeLists.txt"):
        run("cp", "-r", ROOT / part, tmp_path / part)
    run(python, "-m", "pip", "install", "-q", "--no-build-isolation", "--no-index", "./python", env=environment)
    where = run(python, "-c", "import korva_reference as k; print(k.__file__)", env=environment, cwd="/").strip()
    assert where.startswith(str(tmp_path / "venv")) and (Path(where).parent / "py.typed").exists()
    output = run(python, "-m", "pytest", "-q", "-p", "no:cacheprovider", "--doctest-modules", "--rootdir=venv",
                 Path(where).parent, env=environment, cwd=tmp_path)
    assert " passed" in output and "skipped" not in output


def test_reflectance_example_draws_its_pictures_and_takes_own_frames(tmp_path):
    example = [sys.executable, EXAMPLES / "reflectance.py", "--width=512", "--height=272"]
    output = run(*example, "--output=own")
    measured, corrected = (float(word) for word in output.split() if word.replace(".", "").isdigit())
    assert corrected < 0.3 * measured and corrected < 2, output
    assert {path.name for path in Path("own").iterdir()} == {
        "1_frame.png", "2_composite.png", "3_spectra.png", "4_error.png", "reflectance.raw", "reflectance.hdr"}
    sys.path.insert(0, str(EXAMPLES))
    from demo.scene import SnapshotCamera

    camera = SnapshotCamera(272, 512)
    for name in ("frame", "white", "bias"):
        korva.write_raw_data(f"{name}.raw", getattr(camera, name)())
    np.savetxt("matrix.txt", camera.matrix)
    run(*example, "--frame=frame.raw", "--white=white.raw", "--bias=bias.raw", "--matrix=matrix.txt", "--exposure=1.1",
        "--points", "30,20", "5,5", "--output=given")
    assert Path("given/reflectance.raw").read_bytes() == Path("own/reflectance.raw").read_bytes()
