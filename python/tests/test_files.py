"""Raw files and ENVI cubes: what is written is read back, and what does not fit is refused."""

import os
import re
import stat
import warnings
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import numpy as np
import pytest

import korva_reference as korva
from korva_reference import envi, raw_files


def test_raw_files_hold_the_samples_and_nothing_else(tmp_path):
    data = np.arange(24, dtype=np.float64).reshape(2, 3, 4)
    korva.write_raw_data("data.raw", data.transpose(2, 1, 0).astype(">f8"))
    assert (tmp_path / "data.raw").read_bytes() == data.transpose(2, 1, 0).tobytes()
    assert np.array_equal(korva.read_raw_data("data.raw", [4, 3, 2], float), data.transpose(2, 1, 0))
    out = np.zeros((24,))
    assert korva.read_raw_data(tmp_path / "data.raw", 24, float, out=out) is out and out[1] == 12
    assert os.listdir(tmp_path) == ["data.raw"]


@pytest.mark.parametrize("call, error, words", [
    (lambda: korva.read_raw_data("a.raw", (2, 3), "u2"), ValueError, "expected 12 bytes (shape (2, 3) of uint16)"),
    (lambda: korva.read_raw_data("a.raw", 5, object), TypeError, "dtype: expected a number type"),
    (lambda: korva.read_raw_data("a.raw", 5, ">u2"), TypeError, "dtype: expected a number type in this machine's"),
    (lambda: korva.read_raw_data(".", 5, np.uint16), ValueError, "expected a regular file"),
    (lambda: korva.read_raw_data("a\0.raw", 5, np.uint16), ValueError, "path: expected a path"),
    (lambda: korva.write_raw_data("no/b.raw", np.zeros(5)), FileNotFoundError, "no/"),
    (lambda: korva.write_raw_data(7, np.zeros(5)), TypeError, "path: expected a path, found int"),
])
def test_raw_file_faults(tmp_path, call, error, words):
    korva.write_raw_data("a.raw", np.arange(5, dtype=np.uint16))
    with pytest.raises(error) as caught:
        call()
    assert words in str(caught.value) and os.listdir(tmp_path) == ["a.raw"]


def test_a_short_write_is_reported_and_leaves_no_file(tmp_path, monkeypatch):
    # What a full disk comes down to: the library returns, and the file is shorter than asked.
    monkeypatch.setattr(raw_files, "call", lambda name, data, folder, path, *sizes: Path(path.decode()).write_text("x"))
    with pytest.raises(OSError, match="expected to write 80 bytes, 1 were written; is the disk full"):
        korva.write_raw_data("data.raw", np.zeros(10))
    assert os.listdir(tmp_path) == []


def test_what_stands_at_the_path_is_kept_what_it_is(tmp_path):
    samples = np.arange(6, dtype=np.uint16)
    korva.write_raw_data("data.raw", samples)
    os.chmod("data.raw", 0o640)
    os.symlink("data.raw", "link.raw")
    os.symlink("absent.raw", "dangling.raw")
    for path in ("link.raw", "dangling.raw"):
        korva.write_raw_data(path, samples + 1)
        assert os.path.islink(path) and np.array_equal(korva.read_raw_data(path, 6, "u2"), samples + 1)
    assert os.stat("data.raw").st_mode & 0o777 == 0o640 and not os.path.islink("data.raw")
    os.mkfifo("pipe")
    with ThreadPoolExecutor() as reader:
        received = reader.submit(Path("pipe").read_bytes)
        korva.write_raw_data("pipe", samples)
        assert received.result(10) == samples.tobytes() and stat.S_ISFIFO(os.stat("pipe").st_mode)
    with pytest.raises(OSError, match="No space left"):
        korva.write_raw_data("/dev/full", np.zeros(10000))
    korva.write_raw_data("/dev/null", samples)
    assert stat.S_ISCHR(os.stat("/dev/null").st_mode) and stat.S_ISCHR(os.stat("/dev/full").st_mode)
    for path in ("no/b.raw", "."):
        with pytest.raises(OSError) as caught:
            korva.write_raw_data(path, samples)
        assert caught.value.filename == path


def test_a_header_describes_one_file(monkeypatch):
    small, large = np.ones((2, 3, 4), np.uint16), np.ones((5, 6, 7), np.float32)
    envi.write("x.raw", small)
    envi.write("x.img", large)
    envi.write("x.dat", large[:1])
    envi.write("x.raw", small[:1])
    assert sorted(os.listdir()) == ["x.dat", "x.dat.hdr", "x.hdr", "x.img", "x.img.hdr", "x.raw"]
    for path, shape in {"x.raw": (1, 3, 4), "x.hdr": (1, 3, 4), "x.img": (5, 6, 7), "x.dat.hdr": (1, 6, 7)}.items():
        assert envi.read(path)[0].shape == shape
    # What stops between the two files leaves samples without a header, not with an older one.
    with monkeypatch.context() as stopped:
        stopped.setattr(os, "replace", lambda a, b: os.rename(a, b) if b.endswith(".raw") else os.rename(a, "absent/x"))
        with pytest.raises(OSError):
            envi.write("x.raw", small.astype(np.int16))
    with pytest.raises(FileNotFoundError):
        envi.read("x.raw")
    # A raw file without a header is not given the one of its neighbour.
    korva.write_raw_data("y.bin", small)
    envi.write("y.raw", large)
    assert os.path.exists("y.raw.hdr") and not os.path.exists("y.hdr")


@pytest.mark.parametrize("interleave", ["bsq", "bil", "bip"])
@pytest.mark.parametrize("dtype", ["u1", "i2", ">u2", "i4", "<f4", ">f8", "c8", "u8"])
def test_envi_cubes_come_back_whatever_their_order(interleave, dtype):
    cube = (np.arange(60) * 3 % 251).reshape(3, 4, 5).astype(dtype)
    envi.write("cube.img", cube[:, ::-1], interleave=interleave, wavelength=[450, 550.5, 650], default_bands=[2, 1, 0],
               description="a test", others={"sensor type": "mosaic"})
    for path in ("cube.img", "cube.hdr"):
        for memory_map in (False, True):
            read, header = envi.read(path, memory_map=memory_map)
            assert read.dtype == cube.dtype.newbyteorder("=") and np.array_equal(read, cube[:, ::-1])
            assert memory_map or read.flags.c_contiguous
    assert header == envi.Header(5, 4, 3, cube.dtype.newbyteorder("="), interleave, 0, [450, 550.5, 650], "Nanometers",
                                 [2, 1, 0], "a test", {"file type": "ENVI Standard", "sensor type": "mosaic"})
    assert "\nheader offset = 0\n" in open("cube.hdr").read()
    axes = {"bsq": (0, 1, 2), "bil": (1, 0, 2), "bip": (1, 2, 0)}[interleave]
    assert open("cube.img", "rb").read() == cube[:, ::-1].astype(cube.dtype.newbyteorder("=")).transpose(axes).tobytes()


HEADER = """ENVI
; written by hand
description = {two
  lines = 7}
Samples = 2
lines   = 1
bands   = 3
header offset = 5
data type = 12
interleave = BIL
byte order = 1
wavelength = {
 400, 500,
 600}
"""


def test_envi_reads_offset_foreign_byte_order_and_free_form():
    open("cube.dat", "wb").write(b"12345" + np.arange(6, dtype=">u2").tobytes())
    open("cube.hdr", "w").write(HEADER)
    cube, header = envi.read("cube.hdr", memory_map=True)
    assert cube.tolist() == [[[0, 1]], [[2, 3]], [[4, 5]]] and cube.dtype == ">u2" and not cube.flags.writeable
    assert header.wavelength == [400, 500, 600] and header.interleave == "bil" and header.header_offset == 5
    # The mapping can go into the routines as it is.
    assert korva.crop_image(cube[1], left=0, top=0, width=2, height=1).tolist() == [[2, 3]]


@pytest.mark.parametrize("line, becomes", [
    ("ENVI\n", "\ufeffenvi \n"), ("400,", "400 nm,"), ("500,", ""), ("bands   = 3", "bands = 3\ndefault bands = {0}"),
    ("bands   = 3", "bands = 3\ndefault bands = {4, 1, 2}"),
])
def test_envi_reads_what_others_write_and_writes_it_back(line, becomes):
    open("cube.dat", "wb").write(b"12345" + np.arange(6, dtype=">u2").tobytes())
    open("cube.hdr", "w", encoding="utf-8").write(HEADER.replace(line, becomes, 1))
    with warnings.catch_warnings(record=True) as told:
        warnings.simplefilter("always")
        cube, header = envi.read("cube.hdr")
        envi.write("again.raw", cube, header=header)
        again = envi.read("again.raw")
    assert cube.ravel().tolist() == [0, 1, 2, 3, 4, 5] and np.array_equal(again[0], cube)
    assert len(told) == (0 if "envi" in becomes else 2) and header.default_bands == []
    assert header.wavelength == ([] if "0" in line else [400, 500, 600]) == again[1].wavelength
    for field in re.findall(r"^(?:wavelength|default bands) = \{[^}]*\}", open("cube.hdr").read(), re.MULTILINE):
        assert field in open("again.hdr").read()


FOREIGN = b"""ENVI
Description = {of two
 lines, 20 \xb0C}
samples = 4\nlines = 3\nbands = 2\ndata type = 1\ninterleave = BIP
map info = {UTM, 1, 1,  500.5}
Wavelength = {450.0,550.00}
band names = {a, b}
sensor type = Unknown
default bands = {2.0}
"""


def test_a_header_that_was_read_is_written_with_every_field_and_can_be_changed():
    open("a.img", "wb").write(bytes(24))
    open("a.hdr", "wb").write(FOREIGN)
    cube, header = envi.read("a.img")
    assert header.others["map info"] == ["UTM", "1", "1", "500.5"] and header.default_bands == [1]
    envi.write("b.raw", cube.astype(np.float32), header=header)
    lines = open("b.hdr", "rb").read()
    for kept in (FOREIGN[: FOREIGN.index(b"samples")], FOREIGN[FOREIGN.index(b"map info") :]):
        assert kept in lines
    assert b"data type = 4\ninterleave = bip\n" in lines and b"byte order = 0\n" in lines
    header.wavelength, header.others["map info"] = [451, 550], ["UTM", 2]
    envi.write("c.raw", cube, header=header, interleave="BSQ", others={"Sensor Type": "X"})
    text = open("c.hdr", encoding="latin-1").read()
    for field in ("map info = {UTM, 2}", "Wavelength = {451, 550}", "Sensor Type = X", "interleave = bsq"):
        assert text.count(field) == 1
    with pytest.warns(UserWarning, match="'band names' is for 2 bands"):
        envi.write("d.raw", cube[:1], header=header)
    assert b"band names" not in open("d.hdr", "rb").read() and b"avelength" not in open("d.hdr", "rb").read()


@pytest.mark.parametrize("line, becomes, words", [
    ("ENVI\n", "ENVY\n", "expected ENVI in the first line"), ("lines   = 1", "lines = 2", "expected 29 bytes"),
    ("data type = 12", "", "expected a line 'data type = ...', found none"), ("= 12", "= 7", "a data type among"),
    ("byte order = 1", "", "expected a line 'byte order = ...', found none"), ("= BIL", "= BIX", "an interleave"),
    ("lines   = 1", "lines = 0", "at least 1 as 'lines', found '0'"), ("= 5", "= -5", "as 'header offset', found '-5'"),
    ("byte order = 1", "byte order = 2", "expected a byte order of 0 or 1"),
    ("= 2", "= 9999999999999999999", "as 'samples'"),
    ("byte order = 1", " " * 100000, "expected a line 'byte order = ...', found none"),
])
def test_envi_header_faults(line, becomes, words):
    open("cube.dat", "wb").write(b"12345" + bytes(12))
    assert line in HEADER
    open("cube.hdr", "w").write(HEADER.replace(line, becomes, 1))
    with pytest.raises(ValueError) as caught:
        envi.read("cube.dat")
    assert words in str(caught.value) and "\n" not in str(caught.value)


@pytest.mark.parametrize("arguments, error, words", [
    (dict(cube=np.zeros((2, 3), bool)), TypeError, "cube: expected an array of a sample type"),
    (dict(wavelength=[1, 2]), ValueError, "wavelength: expected a finite number for each of 3 bands"),
    (dict(default_bands=[0, 1]), ValueError, "default_bands: expected 1 or 3 bands"),
    (dict(others=["lines"]), TypeError, "others: expected a mapping of names to values, found list"),
    (dict(interleave="bsx"), ValueError, "interleave: expected bsq, bil or bip"),
    (dict(description="a\nsamples = 3"), ValueError, "description: expected one line"),
    (dict(others={"lines": "3"}), ValueError, "others: expected names of further"),
    (dict(path="cube.hdr"), ValueError, "path: expected the name of the data file"),
])
def test_envi_writing_faults_leave_nothing_behind(tmp_path, arguments, error, words):
    with pytest.raises(error) as caught:
        envi.write(**{"path": "cube.raw", "cube": np.zeros((3, 4, 5), np.uint16), **arguments})
    assert words in str(caught.value) and os.listdir(tmp_path) == []
