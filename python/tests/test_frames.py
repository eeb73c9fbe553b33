"""Many frames: whatever happens, every result is that of its own frame, and what has none is told."""

import contextlib
import csv
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

import numpy as np
import pytest

import korva_reference as korva
from korva_reference import frames

ROOT = Path(korva.__file__).parents[2]
HEIGHT, WIDTH = 16, 32
SIZE = ("--width", WIDTH, "--height", HEIGHT)
WHITE = np.full((HEIGHT, WIDTH), 3000, np.uint16)


def frame(seed, shape=(HEIGHT, WIDTH)):
    return np.random.default_rng(seed).integers(0, 2900, shape).astype(np.uint16)


@pytest.fixture(autouse=True)
def recording(tmp_path):
    """Six frames in folders, and a white reference."""
    os.makedirs("frames/a")
    for seed in range(6):
        frame(seed).tofile(f"frames/{'a/' * (seed > 2)}frame_{seed}.raw")
    WHITE.tofile("white.raw")


def run(*arguments, source="frames", output="cubes", white="white.raw"):
    given = () if white is None else ("--white", white)
    try:
        return frames.main([str(a) for a in ("--frames", source, *given, "--output", output, *SIZE, *arguments)])
    except SystemExit as stop:  # argparse has one for wrong options.
        return stop.code


def files(folder="cubes"):
    """Each result file and its bytes."""
    found = {}
    for path in list(Path(folder).rglob("*")):
        if path.is_file() and ".frames" not in path.parts and path.name != "failures.csv":
            with contextlib.suppress(FileNotFoundError):  # Of a run that renames it meanwhile.
                found[str(path.relative_to(folder))] = path.read_bytes()
    return found


def failures(folder="cubes"):
    with open(f"{folder}/failures.csv", newline="") as file:
        heading, *rows = csv.reader(file)
    assert heading == ["frame", "reason"]
    return dict(rows)


def cube(name, folder="cubes"):
    return korva.envi.read(f"{folder}/{name}.raw")[0]


def expected(seed, median=korva.median_filter_3x3, **options):
    return median(korva.SnapshotRoad(WHITE, mosaic=(4, 4), **options).spectra(frame(seed)))


def written(folder="cubes"):
    return {name: os.stat(f"{folder}/{name}").st_mtime_ns for name in files(folder)}


def test_results_belong_to_their_frames_and_to_what_they_depend_on(capsys):
    assert run() == 0 and failures() == {}
    assert set(files()) == {f"{'a/' * (k > 2)}frame_{k}.{end}" for k in range(6) for end in ("raw", "hdr")}
    assert np.array_equal(cube("a/frame_4"), expected(4))
    # One removed, one added, one changed to the same size and time, one result cut short: just these are computed.
    before = written()
    os.unlink("frames/frame_0.raw")
    frame(10).tofile("frames/frame_10.raw")
    before_change = os.stat("frames/a/frame_3.raw")
    frame(11).tofile("frames/a/frame_3.raw")
    os.utime("frames/a/frame_3.raw", ns=(before_change.st_atime_ns, before_change.st_mtime_ns))
    os.truncate("cubes/frame_1.raw", 100)
    os.unlink("cubes/frame_2.hdr")
    assert run() == 0 and "6 frames, 2 already done" in capsys.readouterr().err
    for name, seed in (("frame_10", 10), ("a/frame_3", 11), ("frame_1", 1), ("frame_2", 2), ("a/frame_5", 5)):
        assert np.array_equal(cube(name), expected(seed)), name
    kept = {name for name, when in written().items() if before.get(name) == when}
    assert kept == {f"{name}.{end}" for name in ("frame_0", "a/frame_4", "a/frame_5") for end in ("raw", "hdr")}
    # Frames of the same names elsewhere, even of the same times, are others.
    shutil.copytree("frames", "elsewhere")
    frame(12).tofile("elsewhere/frame_2.raw")
    shutil.copystat("frames/frame_2.raw", "elsewhere/frame_2.raw")
    assert run(source="elsewhere") == 0 and np.array_equal(cube("frame_2"), expected(12))
    # Another white reference under its name, other settings, another release: refused, and told what differs.
    now = files()
    (WHITE - 1).tofile("white.raw")
    assert run() == 2 and "another white;" in capsys.readouterr().err
    WHITE.tofile("white.raw")
    assert run("--exposure", 2) == 2 and "another options;" in capsys.readouterr().err
    settings = Path("cubes/.frames/settings.json")
    settings.write_text(settings.read_text().replace(korva.__version__, "0.9"))
    assert run() == 2 and "another release;" in capsys.readouterr().err
    assert files() == now


def test_bad_frames_are_told_and_tried_again(capsys, monkeypatch):
    os.truncate("frames/frame_1.raw", 100)
    Path("cubes").mkdir(exist_ok=True)
    Path("cubes/a_download.partial").write_text("of somebody else")
    original = frames.cube_of

    def vanishing(*arguments):
        os.unlink("frames/a/frame_4.raw")
        return original(*arguments)

    with monkeypatch.context() as patch:
        patch.setattr(frames, "cube_of", vanishing)
        assert run() == 1
    assert failures().keys() == {"frame_1.raw", "a/frame_4.raw"}
    assert "found 100 bytes" in failures()["frame_1.raw"] and "No such file" in failures()["a/frame_4.raw"]
    assert "2 failed" in capsys.readouterr().err and len(files()) == 9
    os.unlink("cubes/a_download.partial")  # Not ours, so it is still there.
    before = written()
    for seed, name in ((1, "frame_1"), (4, "a/frame_4")):
        frame(seed).tofile(f"frames/{name}.raw")
    assert run() == 0 and failures() == {} and len(files()) == 12
    assert before.items() <= written().items() and np.array_equal(cube("frame_1"), expected(1))
    # Strict: the first one ends the run.
    os.truncate("frames/frame_2.raw", 100)
    assert run("--strict", output="strict") == 1 and not files("strict")
    assert failures("strict").keys() == {"frame_2.raw"}


def test_a_folder_has_one_owner_and_no_lock_outlives_it(capsys):
    hold = ("import sys, time, contextlib; from korva_reference import frames as f\n"
            "stack = contextlib.ExitStack(); f.Results('cubes', eval(sys.argv[1]), 'x', stack); print(1, flush=True)\n"
            "time.sleep(60)")
    for held, refused, allowed in (("None", ["--shard=1/2"], []),
                                   ("(1, 2)", ["--strict", "--shard=1/2", "--shard=1/3"], ["--shard=2/2"])):
        with subprocess.Popen([sys.executable, "-c", hold, held], stdout=subprocess.PIPE) as owner:
            owner.stdout.readline()
            for arguments in refused:
                assert run(arguments) == 2 and "another run works in this folder" in capsys.readouterr().err
            for arguments in allowed:
                assert run(arguments) == 0
            owner.kill()
    assert run() == 0 and len(files()) == 12


def test_shards_need_no_dask_and_add_up_to_one_run():
    np.stack([frame(seed) for seed in range(20, 27)]).tofile("frames/scan.raw")
    os.truncate("frames/frame_0.raw", 10)
    for form in ("envi", "zarr"):
        assert run("--format", form, output=f"whole_{form}") == 1
        without = "import sys; sys.modules['dask'] = sys.modules['distributed'] = None\n" \
                  "from korva_reference import frames; sys.exit(frames.main(sys.argv[1:]))"
        for part in (2, 3, 1):
            arguments = ["--frames=frames", "--white=white.raw", f"--format={form}", f"--output=parts_{form}"]
            shard = subprocess.run([sys.executable, "-c", without, *map(str, SIZE), *arguments, f"--shard={part}/3"])
            assert shard.returncode == (part == 1)  # The fourth frame is bad.
        assert files(f"parts_{form}") == files(f"whole_{form}") and len(files(f"whole_{form}")) > 12
        assert failures(f"parts_{form}") == failures(f"whole_{form}") != {}
    assert np.array_equal(cube("scan/000003", "whole_envi"), expected(23))


def test_zarr_is_one_array_that_grows(tmp_path):
    import xarray

    np.savetxt("wavelengths.txt", np.arange(16) + 500.5)
    more = ("--format=zarr", "--wavelengths=wavelengths.txt", "--median=0")
    assert run(*more) == 0
    frame(0).tofile("frames/a/first.raw")
    assert run(*more) == 0
    data = xarray.open_zarr("cubes/cubes.zarr", mask_and_scale=False)
    assert data.cube.dims == ("frame", "band", "row", "column") and data.wavelength[3] == 503.5
    assert list(data.frame.values[-2:]) == ["frame_2", "a/first"] and data.cube.shape == (7, 16, 4, 8)
    for name, seed in (("a/first", 0), ("a/frame_3", 3)):
        assert np.array_equal(data.cube.sel(frame=name), expected(seed, median=np.asarray))
    scaled = xarray.open_zarr("cubes/cubes.zarr").cube.sel(frame="frame_1").values
    assert np.allclose(scaled, expected(1, median=np.asarray) / 10000)


def test_cubes_say_what_they_are_and_flag_what_is_saturated():
    np.savetxt("wavelengths.txt", np.arange(16) + 500.5)
    options = dict(exposure=2.0, white_exposure=3.0, white_reflectance=0.9, full_scale=5000, saturation=2890)
    assert run("--wavelengths=wavelengths.txt", *(f"--{k.replace('_', '-')}={v}" for k, v in options.items())) == 0
    found, header = korva.envi.read("cubes/a/frame_3.raw")
    plain = expected(3, median=np.asarray, **options)
    flagged = plain == korva.FLAGGED
    assert flagged.any() and (found[flagged] == korva.FLAGGED).all()
    assert np.array_equal(found[~flagged], korva.median_filter_3x3(plain)[~flagged])
    assert header.wavelength == [500.5 + k for k in range(16)] and header.wavelength_units == "Nanometers"
    assert header.others["reflectance scale factor"] == "5000" and header.others["data ignore value"] == "65535"
    assert header.others["frame"] == "a/frame_3.raw"


def test_scenes_rgbx_frames_and_other_files_take_the_same_command(capsys):
    # A header before each frame, floating-point samples, and a pattern.
    samples = np.stack([frame(seed) for seed in range(3)]).astype(np.float32)
    body = b"".join(b"head" + part.tobytes() for part in samples)
    Path("many.bin").write_bytes(body)
    Path("w.bin").write_bytes(b"head" + WHITE.astype(np.float32).tobytes())
    stride = samples[0].nbytes + 4
    assert run("--offset=4", f"--frame-stride={stride}", "--sample-type=float32", source="man*.bin", white="w.bin") == 0
    assert np.array_equal(cube("many.bin/000002"), expected(2))
    # Each folder's single frames are a scene, and so is a file of many.
    np.stack([frame(seed) for seed in range(3)]).tofile("frames/scan.raw")
    scan = dict(strip_height=2, first_band=0, last_band=2)
    lines = [f"--{k.replace('_', '-')}={v}" for k, v in scan.items()]
    assert run("--sensor=line-scan", *lines, output="scenes") == 0
    assert set(files("scenes")) == {f"{name}.{end}" for name in ("frames", "a", "scan") for end in ("raw", "hdr")}
    for name, seeds in (("a", (3, 4, 5)), ("scan", (0, 1, 2))):
        scene = korva.line_scan_spectra([frame(seed) for seed in seeds], WHITE, **scan)
        assert np.array_equal(cube(name, "scenes"), scene)
    assert run("--sensor=rgbx", "--black=10", "--white-level=3000", output="rgbx", white=None) == 0
    pictures = korva.rgbx_pictures(frame(1), black=10, white_level=3000)
    assert np.array_equal(cube("frame_1", "rgbx")[4:], pictures.new_wli)
    assert np.array_equal(cube("frame_1", "rgbx")[:3], pictures.rgb[:, 3:-3, 3:-3])


@pytest.mark.parametrize("arguments", [
    "--threads=0", "--threads=-4", "--mosaic=4", "--mosaic=axb", "--mosaic=0x4", "--tile=4", "--shard=0/3",
    "--shard=4/3", "--shard=1", "--exposure=0", "--exposure=nan", "--median=4", "--width=0", "--frame-stride=10",
    "--saturation=70000", "--full-scale=65535", "--white=absent.raw", "--matrix=white.raw", "--wavelengths=one.txt",
    "--mosaic=4x4 --tile=4x4", "--frames=absent", "--frames=empty", "--frames=empty/*.raw", "--output=frames/cubes",
    "--sensor=rgbx", "--sensor=line-scan", "--bias=frames", "--output=one.txt/cubes"])
def test_wrong_use_is_told_in_a_line(arguments, capsys):
    os.mkdir("empty")
    Path("one.txt").write_text("500\n")
    assert run(*arguments.split()) == 2
    said = capsys.readouterr().err.strip().split("\n")[-1]
    assert said.startswith("python -m korva_reference.frames: ") and len(said) > 50 and not files()


# On a cluster. Its processes are those of the documented lines.

BIG = ("--width", 512, "--height", 544)


@contextlib.contextmanager
def cluster(workers=2, *options, environment=None):
    """A scheduler, the process that keeps the workers alive, and the scheduler's address."""
    with contextlib.ExitStack() as stack:
        def start(*command, env=None):
            log = stack.enter_context(open(f"{command[0]}.log", "w"))
            process = subprocess.Popen([sys.executable, "-m", f"distributed.cli.{command[0]}", *map(str, command[1:])],
                                       stdout=log, stderr=log, env=env)
            stack.callback(process.wait)
            stack.callback(lambda: (children(process.pid, signal.SIGKILL), process.kill()))
            return process

        Path("scheduler.json").unlink(missing_ok=True)
        scheduler = start("dask_scheduler", "--host=127.0.0.1", "--port=0", "--no-dashboard",
                          "--scheduler-file=scheduler.json")
        while not Path("scheduler.json").exists():
            time.sleep(0.05)
        address = re.search(r'"address": "(tcp:[^"]*)"', Path("scheduler.json").read_text())[1]
        nanny = workers and start("dask_worker", address, f"--nworkers={workers}", "--nthreads=1", "--no-dashboard",
                                  *options, env=environment)
        yield scheduler, nanny, address


def children(pid, sent=0):
    """The worker processes of a nanny, after each was sent a signal."""
    found = subprocess.run(["pgrep", "-P", str(pid), "-f", "spawn_main"], capture_output=True, text=True).stdout.split()
    for child in map(int, found):
        with contextlib.suppress(ProcessLookupError):
            os.kill(child, sent)
    return found


@pytest.mark.deep
def test_workers_that_cannot_do_the_work_are_named(capsys):
    with cluster(0) as (_, _, address):
        assert run("--scheduler", address, "--patience=2") == 1
        assert "no worker" in capsys.readouterr().err
    without = {key: value for key, value in os.environ.items() if key != "PYTHONPATH"}
    with cluster(1, environment=without) as (_, _, address):
        assert run("--scheduler", address) == 1
        assert "cannot use korva_reference (No module named" in capsys.readouterr().err
    assert run("--scheduler", "tcp://127.0.0.1:1", "--patience=1") == 1 and not files()


@pytest.mark.deep
def test_a_frame_that_kills_its_workers_fails_and_the_others_do_not():
    Path("killer.py").write_text("import os\nfrom korva_reference.frames import Job\nJob.counts = lambda *a, "
                                 "counts=Job.counts: os._exit(1) if (s := counts(*a))[0, 0] == 2999 else s\n")
    np.full((HEIGHT, WIDTH), 2999, np.uint16).tofile("frames/frame_2.raw")
    with cluster(2, "--preload=killer.py") as (_, _, address):
        assert run("--scheduler", address) == 1
    assert failures() == {"frame_2.raw": "killed its worker again and again"} and len(files()) == 10


def shell(folder, *arguments):
    command = [sys.executable, "-m", "korva_reference.frames", "--frames=big", "--white=big.raw", "--output", folder,
               *BIG, *arguments]
    return subprocess.Popen(list(map(str, command)), stderr=subprocess.PIPE, text=True)


def strike(what, folder, script, scheduler, nanny):
    """Does what the night may bring."""
    if what == "one worker":
        os.kill(int(random.choice(children(nanny.pid))), signal.SIGKILL)
    elif what == "all workers":
        nanny.kill()
        children(nanny.pid, signal.SIGKILL)
    elif what in ("client", "scheduler"):
        {"client": script, "scheduler": scheduler}[what].kill()
    elif what == "folder":
        with contextlib.suppress(OSError):
            os.rename(folder, folder + "_gone")


@pytest.mark.deep
@pytest.mark.parametrize("form", ["envi", "zarr"])
@pytest.mark.parametrize("what", ["one worker", "all workers", "client", "scheduler", "folder", "full disk"])
def test_after_whatever_happens_a_second_run_ends_as_one_undisturbed(what, form):
    os.mkdir("big")
    for seed in range(120):
        frame(seed, (544, 512)).tofile(f"big/{seed:02}.raw")
    np.full((544, 512), 3000, np.uint16).tofile("big.raw")
    assert shell("whole", "--format", form).wait() == 0
    whole, struck = files("whole"), 0
    for turn in range(3):
        folder = f"{what.replace(' ', '_')}_{turn}"
        with cluster() as (scheduler, nanny, address), contextlib.ExitStack() as stack:
            if what == "full disk":
                os.mkdir(folder)
                size = random.randint(100, sum(map(len, whole.values())) // 1024)
                if subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}k", "none", folder]).returncode:
                    pytest.skip("a small disk can be made by root only")
                stack.callback(subprocess.run, ["umount", "-l", folder], check=True)
            arguments = ("--format", form, "--scheduler", address, "--patience=10")
            script = shell(folder, *arguments)
            ending, moment = "*.0.0.0" if form == "zarr" else "*.raw", random.randint(1, 100)
            while script.poll() is None and what != "full disk" and len(list(Path(folder).rglob(ending))) < moment:
                time.sleep(0.002)
            struck += script.poll() is None
            strike(what, folder, script, scheduler, nanny)
            _, said = script.communicate(timeout=90)
            assert script.returncode in {"one worker": (0,), "client": (-signal.SIGKILL, 0)}.get(what, (0, 1)), said
            assert what != "full disk" or "No space left" in said or "disk full" in said, said
            if what == "folder" and os.path.exists(folder + "_gone"):
                shutil.rmtree(folder, ignore_errors=True)
                os.rename(folder + "_gone", folder)
            if what == "full disk":
                subprocess.run(["mount", "-o", "remount,size=200m", folder], check=True)
            again = shell(folder, *(arguments if what in ("one worker", "client") else arguments[:2]))
            assert again.wait(timeout=90) == 0, again.stderr.read()
            assert files(folder) == whole
    assert struck, "every strike came too late to prove anything"


@pytest.mark.deep
def test_lines_of_the_page_run_as_they_stand_from_the_documented_installation(tmp_path):
    for part in ("python", "include", "src", "cmake", "CMakeLists.txt"):
        subprocess.run(["cp", "-r", ROOT / part, "."], check=True)
    lines = "\n".join(re.findall(r"```sh\n(.*?)```", (ROOT / "docs/frames.md").read_text(), re.DOTALL))
    for seed in range(2):
        frame(seed, (1088, 2048)).tofile(f"frames/frame_{seed}.raw")
    for other in Path("frames").rglob("frame_[2-5].raw"):
        other.unlink()
    np.full((1088, 2048), 3000, np.uint16).tofile("white.raw")
    environment = {key: value for key, value in os.environ.items() if not key.startswith(("PYTHONPATH", "KORVA_"))}
    install = ("python3 -m venv --system-site-packages venv && . venv/bin/activate && pip install -q --no-index "
               "--no-build-isolation './python[frames]'\nrm -r python\n")
    script = f"set -e\nexport PATH=/usr/bin:$PATH\n{install}trap 'kill $(jobs -p)' EXIT\n{lines}"
    done = subprocess.run(["bash", "-c", script], env=environment, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    assert files("cubes") == files("cubes_cluster") == files("cubes_shards") and len(files("cubes")) == 4
    assert "DataArray" in done.stdout
