"""Drives the example hosts as a user with good, bad and hostile files would: hosts_test.py <folder of the hosts>."""

import os
import resource
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import pytest

HOSTS = Path(os.environ.get("KORVA_HOSTS", ".")).resolve()
SIZE = {"snapshot_mosaic": (16, 12), "line_scan": (6, 10), "rgbx": (16, 16)}  # width, height
SCAN = ["--strip-height", "2", "--first-band", "1", "--last-band", "3"]


def command(host, *arguments, output="out", **given):
    """A run on the files of the folder; keywords replace or, with None, leave out an option's value."""
    width, height = SIZE[host]
    options = {"width": width, "height": height, "output": output}
    options |= {"frames": "scan.raw", "white": "scan_white.raw"} if host == "line_scan" else {"frame": f"{host}.raw"}
    options |= {"white": "white.raw"} if host == "snapshot_mosaic" else {}
    options |= {name.replace("_", "-"): value for name, value in given.items()}
    words = [word for name, value in options.items() if value is not None for word in (f"--{name}", *str(value).split())]
    return [HOSTS / host, *words, *(SCAN if host == "line_scan" else []), *arguments]


def run(host, *arguments, **given):
    result = subprocess.run(command(host, *arguments, **given), capture_output=True, text=True)
    assert result.returncode == 0 and not result.stderr, result.stderr
    return result.stdout


def state():
    return {path: path.is_file() and path.stat().st_mtime_ns for path in Path().rglob("*")}


def results():
    return {path.name: path.read_bytes() for path in Path("out").iterdir()}


def refuses(words, host, *arguments, status=1, stdout=subprocess.DEVNULL, limits=None, **given):
    """One line on stderr with the words, a non-zero exit, and every file as it was."""
    before = state()
    result = subprocess.run(command(host, *arguments, **given), stderr=subprocess.PIPE, text=True, stdout=stdout,
                            preexec_fn=limits, timeout=60)
    assert result.returncode == status, (result.returncode, result.stderr)
    assert result.stderr.count("\n") == 1 and result.stderr.startswith(f"{host}: ") and words in result.stderr
    assert state() == before


def as_nobody():
    """Root reads everything, so what may not be read is tried as another user."""
    if os.getuid() == 0:
        os.setuid(65534)
    else:
        os.chmod("out", 0o555)


def cube(path, *shape, dtype=np.uint16):
    return np.fromfile(path, dtype).reshape(shape)


@pytest.fixture(autouse=True)
def files():
    """Flat frames whose results are known: band b of the scene reflects (b + 1) / 100 of what white does."""
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        os.chdir(folder)
        bands = np.tile(np.arange(16).reshape(4, 4), (3, 4))
        frames = {"snapshot_mosaic": 50 + 10 * (bands + 1), "white": np.full((12, 16), 1050), "bias": np.full((12, 16), 50),
                  "tiles": 50 + 10 * (1 + np.arange(16).reshape(4, 4).repeat(3, 0).repeat(4, 1)),
                  "rgbx": np.full((16, 16), 2048), "flat": np.full((16, 16), 3000), "dark": np.full((16, 16), 70)}
        # Strips of 2 rows for 5 bands; in frame t the band at place i of the range sees slice t - i of the scene.
        frames["scan"] = 100 * (np.arange(7)[:, None, None] - np.arange(-1, 4).repeat(2)[:, None] + 1) + np.zeros(6)
        frames["scan_white"] = np.full((10, 6), 1000)
        for name in ("rgbx", "flat"):
            frames[name][5, 6] = 0
        frames["rgbx"][10, 10] = frames["dark"][10, 10] = 4095
        for name, frame in frames.items():
            frame.astype(np.uint16).tofile(f"{name}.raw")
        np.savetxt("reverse.txt", np.eye(16)[::-1])
        Path("nm.txt").write_text(" ".join(str(500.5 + band) for band in range(16)))
        Path("out").mkdir()
        Path("out/corrected.raw").write_text("an earlier result")
        yield
        os.chdir("/")


def test_snapshot_frames_become_reflectance():
    flat = np.arange(100, 1700, 100)[:, None, None]
    run("snapshot_mosaic", bias="bias.raw")
    assert np.array_equal(cube("out/corrected.raw", 16, 3, 4), flat + np.zeros((16, 3, 4)))
    run("snapshot_mosaic", bias="bias.raw", crop="4 8 12 4", matrix="reverse.txt", wavelengths="nm.txt", exposure=2,
        white_exposure=4, white_reflectance=0.5, full_scale=20000)
    assert np.array_equal(cube("out/corrected.raw", 16, 1, 3), 2 * flat[::-1] + np.zeros((16, 1, 3)))
    header = Path("out/corrected.hdr").read_text().splitlines()
    wavelengths = ", ".join(str(500.5 + band) for band in range(16))
    assert header[0] == "ENVI" and set(header) >= {
        "samples = 3", "lines = 1", "bands = 16", "data type = 12", "interleave = bsq", f"byte order = {int(sys.byteorder == 'big')}",
        "header offset = 0", "wavelength = {" + wavelengths + "}", "wavelength units = Nanometers",
        "default bands = {16, 16, 1}", "reflectance scale factor = 20000", "data ignore value = 65535"}
    run("snapshot_mosaic", frame="tiles.raw", bias="bias.raw", tile="4 3")
    assert np.array_equal(cube("out/corrected.raw", 16, 3, 4), flat + np.zeros((16, 3, 4)))
    # A dead filter has no reflectance, and its pixel no spectrum.
    white = cube("white.raw", 12, 16)
    white[1::4, 2::4] = 0
    white.tofile("white.raw")
    run("snapshot_mosaic")
    assert np.all(cube("out/corrected.raw", 16, 3, 4) == 65535)


def test_text_from_other_systems_is_read():
    run("snapshot_mosaic", matrix="reverse.txt")
    plain = results()
    text = Path("reverse.txt").read_bytes()
    Path("reverse.txt").write_bytes(b"\xef\xbb\xbf" + b"# made elsewhere\n\n" + text.replace(b"\n", b"\r\n"))
    run("snapshot_mosaic", matrix="reverse.txt")
    assert results() == plain


def test_line_scan_puts_every_strip_in_its_place():
    run("line_scan")
    # The last slice of the scan lies on top.
    slices = 1000 * np.arange(5, 0, -1).repeat(2)[:, None]
    assert np.array_equal(cube("out/corrected.raw", 3, 10, 6), slices + np.zeros((3, 10, 6)))
    with_one_file = results()
    scan = cube("scan.raw", 7, 60)
    for frame in range(7):
        scan[frame].tofile(f"frame{frame}.raw")
    run("line_scan", frames=" ".join(f"frame{frame}.raw" for frame in range(7)))
    assert results() == with_one_file


def test_rgbx_frames_lose_their_defects():
    assert "2 samples replaced" in run("rgbx", "--weight", "1", "0.25", dark="dark.raw", flat="flat.raw", black=48, white_level=4048)
    assert np.all(cube("out/cleaned_frame.raw", 16, 16) == 2048)
    assert np.all(cube("out/bands.raw", 4, 10, 10, dtype=np.float32) == 0.5)
    for weight in ("1", "0.25"):
        assert np.allclose(cube(f"out/wli_weight_{weight}.raw", 3, 4, 4, dtype=np.float32), 0.5)
    assert "data type = 4" in Path("out/bands.hdr").read_text()
    assert "0 samples replaced" in run("rgbx")


@pytest.mark.parametrize("host", SIZE)
def test_wrong_options_are_refused(host):
    refuses("nonsense", host, "--nonsense", status=2)
    for number in ("0", "-1", "4294967296", "99999999999999999999999", "1e3", "2048.5", "wide"):
        refuses(f"--width: Value {number} ", host, width=number, status=2)
    for wrong in {"snapshot_mosaic": [{"mosaic": "4"}, {"mosaic": "0 4"}, {"exposure": "nan"}, {"exposure": "inf"},
                                      {"white_reflectance": 0}, {"full_scale": 65535}, {"white": None}, {"frame": None}],
                  "line_scan": [{"strip_height": -3}, {"white_exposure": "none"}, {"frames": None}],
                  "rgbx": [{"weight": 1.5}, {"blur": "nan"}, {"black": 65536}]}[host]:
        refuses(f"--{next(iter(wrong)).replace('_', '-')}", host, status=2, **wrong)
    assert run(host, "--version").split()[0] == host


def test_sizes_that_do_not_fit_are_refused():
    for wrong in ({"crop": "8 8 16 12"}, {"crop": "3 0 8 8"}, {"crop": "0 0 3 3"}, {"tile": "17 1"}):
        refuses("expected", "snapshot_mosaic", **wrong)
    refuses("found band 3", "line_scan", height=6)
    refuses("at least 3 frames", "line_scan", frames="scan_white.raw")
    refuses("multiple of 4", "rgbx", width=18)
    refuses("--black below", "rgbx", black=4095)


@pytest.mark.parametrize("host, option", [("snapshot_mosaic", "frame"), ("snapshot_mosaic", "white"),
                                          ("snapshot_mosaic", "bias"), ("line_scan", "frames"), ("rgbx", "dark")])
def test_wrong_frames_are_refused(host, option):
    size = Path("scan_white.raw" if host == "line_scan" else f"{host}.raw").stat().st_size
    for length in (0, 1, size - 1, size + 1):
        Path("wrong.raw").write_bytes(bytes(length))
        refuses(f"found {length} bytes", host, **{option: "wrong.raw"})
    if host != "line_scan":
        Path("wrong.raw").write_bytes(bytes(2 * size))
        refuses("expected one frame", host, **{option: "wrong.raw"})
    os.mkfifo("pipe")
    for name, reason in (("missing", "No such file"), (".", "it is no regular file"), ("pipe", "it is no regular file")):
        refuses(f"{name}: expected a file that can be read, found none ({reason}", host, **{option: name})
    Path("secret.raw").touch(0o000)
    refuses("Permission denied", host, limits=as_nobody, **{option: "secret.raw"})


def test_wrong_numbers_are_refused():
    lines = Path("reverse.txt").read_text().splitlines()
    for line, words in (("nan " * 16, "line 3: expected finite numbers"), ("1e999 " * 16, "line 3"), ("0.5x", "'0.5x'"),
                        ("1 2 3", "expected 16 weights for output band 2, found 3"), ("7 " * 16, "can bring band 2")):
        Path("wrong.txt").write_text("\n".join([*lines[:2], line, *lines[3:]]))
        refuses(words, "snapshot_mosaic", matrix="wrong.txt")
    Path("wrong.txt").write_text("# nothing\n")
    refuses("found no numbers", "snapshot_mosaic", matrix="wrong.txt")
    refuses("expected 16 wavelengths", "snapshot_mosaic", wavelengths="wrong.txt")


@pytest.mark.parametrize("host", SIZE)
def test_results_without_a_place_leave_nothing_behind(host):
    refuses("Not a directory", host, output="scan.raw")
    refuses("Not a directory", host, output="scan.raw/deeper")
    refuses("Permission denied", host, limits=as_nobody)
    refuses("Permission denied", host, limits=as_nobody, output="out/deeper")
    refuses("No such file", host, output="new/folder", **{"frames" if host == "line_scan" else "frame": "missing"})

    def short_files():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100))

    refuses("could write 100", host, limits=short_files)
    with open("/dev/full", "w") as full:
        result = subprocess.run(command(host, output="new"), stdout=full, stderr=subprocess.PIPE, text=True)
    assert result.returncode == 1 and "standard output cannot be written" in result.stderr
    Path("out/corrected.raw").unlink()
    for name in ("corrected.raw", "wli_weight_0.hdr"):
        Path("out", name).mkdir()
    refuses("found a folder", host)


def test_stopped_and_killed_runs():
    os.truncate("scan.raw", 4 * 2**30 // 120 * 120)  # A sparse file: a long scan that ends in darkness.
    before = results()
    for request in (signal.SIGTERM, signal.SIGKILL):
        process = subprocess.Popen(command("line_scan"), stderr=subprocess.PIPE, text=True)
        while not Path("out/.unfinished").exists():
            time.sleep(0.005)
        refuses("another run is writing there", "snapshot_mosaic")
        process.send_signal(request)
        stderr = process.communicate(timeout=60)[1]
        if request == signal.SIGTERM:
            assert process.returncode == 1 and "stopped on request" in stderr and results() == before
    assert Path("out/.unfinished").exists()
    Path("out/.unfinished/half").write_text("left over")
    run("snapshot_mosaic")
    assert {path.name for path in Path("out").iterdir()} == {"corrected.raw", "corrected.hdr"}


if __name__ == "__main__":
    os.environ["KORVA_HOSTS"] = sys.argv[1]
    sys.exit(pytest.main(["-q", "-p", "no:cacheprovider", __file__]))
