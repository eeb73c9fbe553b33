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
# The files of a run, all of them with frames of 16 x 16.
RUNS = {"snapshot_mosaic": {"frame": "mosaic.raw", "white": "white.raw"}, "rgbx": {"frame": "rgbx.raw"},
        "line_scan": {"frames": "scan.raw", "white": "white.raw", "strip_height": 2, "first_band": 1, "last_band": 3}}
every_host = pytest.mark.parametrize("host", RUNS)


def command(host, *words, **options):
    """A run whose options are added, replaced or, with None, left out."""
    options = {"width": 16, "height": 16, "output": "out", **RUNS[host], **options}
    for name, value in options.items():
        words += () if value is None else (f"--{name.replace('_', '-')}", *str(value).split())
    return [HOSTS / host, *words]


def run(*words, **options):
    result = subprocess.run(command(*words, **options), capture_output=True, text=True)
    assert result.returncode == 0 and not result.stderr, result.stderr
    return result.stdout


def refuses(message, *words, status=1, preexec_fn=None, **options):
    """One line on stderr that holds the message, a non-zero exit, and every file as it was."""
    before = {path: path.is_file() and path.stat().st_mtime_ns for path in Path().rglob("*")}
    result = subprocess.run(command(*words, **options), capture_output=True, text=True, preexec_fn=preexec_fn)
    assert (result.returncode, result.stderr.count("\n")) == (status, 1), result.stderr
    assert result.stderr.startswith(f"{words[0]}: ") and message in result.stderr
    assert before == {path: path.is_file() and path.stat().st_mtime_ns for path in Path().rglob("*")}


def become_nobody():
    os.setuid(65534)  # Root reads everything, so what may not be read is tried as another user.


def results():
    return {path.name: path.read_bytes() for path in Path("out").iterdir()}


def cube(path="out/corrected.raw", dtype=np.uint16, bands=16):
    return np.fromfile(path, dtype).reshape(bands, -1)


@pytest.fixture(autouse=True)
def files():
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        os.chdir(folder)
        band, flat = np.arange(16).reshape(4, 4), np.zeros((16, 16), int)
        # Band b reflects (b + 1) / 100 of what white does, in cells or in tiles.
        frames = {"mosaic": 60 + 10 * np.tile(band, (4, 4)), "tiles": 60 + 10 * band.repeat(4, 0).repeat(4, 1),
                  "white": 1050 + flat, "bias": 50 + flat, "rgbx": 2048 + flat, "flat": 3000 + flat, "dark": 70 + flat}
        # The band at place i of the range sees in frame t the slice t - i of the scene.
        place = np.arange(16).repeat(16).reshape(16, 16) // 2 - 1
        frames["scan"] = 105 * (np.arange(7)[:, None, None] - place + 1)
        for name in ("rgbx", "flat"):  # A stuck pixel under each kind of filter, one of them seen in the dark only.
            frames[name][[8, 9, 9, 9, 11, 11], [9, 8, 9, 11, 9, 11]] = 0
        frames["rgbx"][8, 8] = frames["dark"][8, 8] = 4095
        for name, frame in frames.items():
            frame.astype(np.uint16).tofile(f"{name}.raw")
        np.savetxt("reverse.txt", np.eye(16)[::-1])
        np.savetxt("nm.txt", 500.5 + np.arange(16))
        Path("out").mkdir()
        Path("out/corrected.raw").write_text("an earlier result")
        yield
        os.chdir("/")


def test_snapshot_frames_become_reflectance():
    reflectance = 100 * np.arange(1, 17)[:, None]
    for options in ({}, {"frame": "tiles.raw", "tile": "4 4"}):
        run("snapshot_mosaic", bias="bias.raw", **options)
        assert cube().shape == (16, 16) and np.all(cube() == reflectance)
    run("snapshot_mosaic", bias="bias.raw", crop="4 8 12 4", matrix="reverse.txt", wavelengths="nm.txt", exposure=2,
        white_exposure=4, white_reflectance=0.5, full_scale=20000)
    assert cube().shape == (16, 3) and np.all(cube() == 2 * reflectance[::-1])
    assert Path("out/corrected.hdr").read_text().splitlines()[2:] == [
        "samples = 3", "lines = 1", "bands = 16", "header offset = 0", "file type = ENVI Standard", "data type = 12",
        "interleave = bsq", f"byte order = {int(sys.byteorder == 'big')}", "wavelength units = Nanometers",
        "wavelength = {" + ", ".join(f"{500.5 + band}" for band in range(16)) + "}", "default bands = {16, 16, 1}",
        "reflectance scale factor = 20000", "data ignore value = 65535"]
    # A dead filter has no reflectance, and its pixels no spectra.
    white = np.fromfile("white.raw", np.uint16).reshape(16, 16)
    white[1::4, 2::4] = 0
    white.tofile("white.raw")
    run("snapshot_mosaic")
    assert np.all(cube() == 65535)


def test_text_from_other_systems_is_read():
    run("snapshot_mosaic", matrix="reverse.txt")
    plain, text = results(), Path("reverse.txt").read_bytes()
    Path("reverse.txt").write_bytes(b"\xef\xbb\xbf# elsewhere\n\n" + text.replace(b" ", b",").replace(b"\n", b"\r\n"))
    run("snapshot_mosaic", matrix="reverse.txt")
    assert results() == plain


def test_line_scan_puts_every_strip_in_its_place():
    run("line_scan")
    assert np.all(cube(bands=3) == 1000 * np.arange(5, 0, -1).repeat(32))  # The last slice lies on top.
    one_file = results()
    for number, frame in enumerate(np.fromfile("scan.raw", np.uint16).reshape(7, 256)):
        frame.tofile(f"frame{number}.raw")
    run("line_scan", frames=" ".join(f"frame{number}.raw" for number in range(7)))
    assert results() == one_file


def test_rgbx_frames_lose_their_defects():
    told = run("rgbx", dark="dark.raw", flat="flat.raw", black=48, white_level=4048, weight="1 0.25")
    assert "7 samples replaced" in told and np.all(cube("out/cleaned_frame.raw") == 2048)
    assert np.all(cube("out/bands.raw", np.float32) == 0.5)
    for weight in ("1", "0.25"):
        assert np.allclose(cube(f"out/wli_weight_{weight}.raw", np.float32), 0.5)
    assert "data type = 4" in Path("out/bands.hdr").read_text() and "0 samples replaced" in run("rgbx")


@every_host
def test_wrong_options_are_refused(host):
    refuses("nonsense", host, "--nonsense", status=2)
    for number in ("0", "-1", "4294967296", "99999999999999999999999", "1e3", "2048.5", "wide"):
        refuses(f"--width: Value {number} ", host, width=number, status=2)
    for wrong in {"snapshot_mosaic": [{"mosaic": "4"}, {"mosaic": "0 4"}, {"exposure": "nan"}, {"exposure": "inf"},
                                      {"white_reflectance": 0}, {"full_scale": 65535}, {"white": None}],
                  "line_scan": [{"strip_height": -3}, {"white_exposure": "none"}, {"frames": None}],
                  "rgbx": [{"weight": 1.5}, {"blur": "nan"}, {"black": 65536}]}[host]:
        refuses(f"--{next(iter(wrong)).replace('_', '-')}", host, status=2, **wrong)
    assert run(host, "--version").split()[0] == host


@pytest.mark.parametrize("host, wrong, message", [
    ("snapshot_mosaic", {"crop": "8 8 16 12"}, "part of the frame of 16 x 16, found 16 x 12 from column 8, row 8"),
    ("snapshot_mosaic", {"crop": "3 0 8 8"}, "from its corner"), ("snapshot_mosaic", {"tile": "17 1"}, "of 17 x 1"),
    ("line_scan", {"last_band": 8}, "found band 8"), ("line_scan", {"last_band": 0}, "found band 0"),
    ("line_scan", {"frames": "white.raw"}, "at least 3 frames"), ("rgbx", {"width": 18}, "multiple of 4"),
    ("rgbx", {"black": 4095}, "--black below")])
def test_what_does_not_fit_is_refused(host, wrong, message):
    refuses(message, host, **wrong)


@pytest.mark.parametrize("host, option", [("snapshot_mosaic", "frame"), ("snapshot_mosaic", "bias"), ("rgbx", "dark"),
                                          ("line_scan", "frames")])
def test_wrong_frames_are_refused(host, option):
    for size in (0, 1, 511, 513, 1024):
        Path("wrong.raw").write_bytes(bytes(size))
        whole = "at least 3 frames" if host == "line_scan" else "expected one frame"
        refuses(whole if size == 1024 else f"found {size} bytes", host, **{option: "wrong.raw"})
    os.mkfifo("pipe")
    Path("secret").touch(0)
    for name, reason in (("missing", "No such file"), (".", "it is no regular file"), ("pipe", "it is no regular file"),
                         ("secret", "Permission denied")):
        refuses(f"{name}: expected a file that can be read, found none ({reason}", host, **{option: name},
                preexec_fn=become_nobody if name == "secret" and os.getuid() == 0 else None)


@pytest.mark.parametrize("line, message", [
    ("nan " * 16, "line 3: expected finite numbers, found 'nan'"), ("1e999", "line 3"), ("0.5x", "'0.5x'"),
    ("1 2 3", "expected 16 weights for output band 2, found 3"), ("7 " * 16, "can bring band 2 to")])
def test_wrong_weights_are_refused(line, message):
    lines = Path("reverse.txt").read_text().splitlines()
    Path("wrong.txt").write_text("\n".join([*lines[:2], line, *lines[3:]]))
    refuses(message, "snapshot_mosaic", matrix="wrong.txt")
    Path("wrong.txt").write_text("# nothing\n")
    refuses("found no numbers", "snapshot_mosaic", matrix="wrong.txt")
    refuses("expected 16 wavelengths", "snapshot_mosaic", wavelengths="wrong.txt")


@every_host
def test_results_without_a_place_leave_nothing_behind(host):
    def limit_files():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100))

    for output in ("out", "new/folder"):
        refuses("could write 100", host, preexec_fn=limit_files, output=output)
    for output in ("scan.raw", "scan.raw/deeper"):
        refuses("Not a directory", host, output=output)
    if os.getuid() == 0:
        refuses("Permission denied", host, preexec_fn=become_nobody)
    with open("/dev/full", "w") as full:
        told = subprocess.run(command(host, output="told"), stdout=full, stderr=subprocess.PIPE, text=True)
    assert told.returncode == 1 and "standard output cannot be written: No space left" in told.stderr
    for name in ("out/corrected.hdr", "out/wli_weight_0.hdr"):
        Path(name).mkdir()
    refuses("expected a file or nothing, found a folder", host)


def test_stopped_and_killed_runs():
    os.truncate("scan.raw", 2**30)  # A sparse file: a long scan that ends in darkness.
    before = results()
    for request in (signal.SIGTERM, signal.SIGKILL):
        process = subprocess.Popen(command("line_scan"), stderr=subprocess.PIPE, text=True)
        while not Path("out/.unfinished").exists():
            time.sleep(0.005)
        refuses("another run is writing there", "snapshot_mosaic")
        process.send_signal(request)
        message = process.communicate(timeout=60)[1]
        if request == signal.SIGTERM:
            assert process.returncode == 1 and "stopped on request" in message and results() == before
    Path("out/.unfinished/half").write_text("left over")
    run("snapshot_mosaic")
    assert {path.name for path in Path("out").iterdir()} == {"corrected.raw", "corrected.hdr"}


if __name__ == "__main__":
    os.environ["KORVA_HOSTS"] = sys.argv[1]
    sys.exit(pytest.main(["-q", "-p", "no:cacheprovider", __file__]))
