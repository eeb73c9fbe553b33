"""Each stated limit is refused by name, and the classes that own memory are safe in every state."""

import subprocess
import sys
import threading

import numpy as np
import pytest

import korva_reference as korva

U2, F4 = np.uint16, np.float32
WIDE = np.broadcast_to(np.zeros(1, F4), (1, 2**17, 2**16))
KERNEL = np.ones((7, 7))


def crop(image, left, top, width, height):
    return korva.crop_image(image, left=left, top=top, width=width, height=height)


# What random bad calls do not reach, or would not tell from another fault.
@pytest.mark.parametrize("call, error, words", [
    (lambda: crop(np.zeros((4, 5), U2), 3, 0, 3, 1), ValueError, "crop: expected a rectangle inside"),
    (lambda: crop(np.zeros((4, 5), np.int16), 0, 0, 1, 1), TypeError, "uint16 or float32, found int16 (image.astype("),
    (lambda: korva.median_filter_3x3(np.zeros((4, 5))), TypeError, "found float64 (image.astype(np.float32) converts)"),
    (lambda: korva.reflectance(np.zeros(4, F4), np.zeros(4), 0.0, 0, 0), ValueError, "divisor: expected a positive"),
    (lambda: korva.reflectance(np.zeros(4, U2), np.zeros(4), 1, 0, 0), TypeError, "full_scale: expected the result"),
    (lambda: korva.apply_spectral_correction(np.zeros(1, F4), [["a"]]), TypeError, "matrix: expected real numbers"),
    (lambda: korva.apply_spectral_correction(WIDE.T, [[1.0]]), ValueError, "pixels: expected a whole number"),
    (lambda: korva.apply_spectral_correction_bsq(WIDE, [[1.0]]), ValueError, "pixels: expected a whole number"),
    (lambda: korva.bilinear_coefficients(mosaic_height=2**16, mosaic_width=2**16, row_offset=0, column_offset=0),
     ValueError, "mosaic_height * mosaic_width: expected"),
    (lambda: korva.apply_demosaicing_bilinear(np.zeros((2, 2)), np.ones(4), np.nan, 0), ValueError, "row_offset: exp"),
    (lambda: korva.demosaic_cube(np.zeros((4, 2, 2)), 2, 2, 0.5, 0.5), TypeError, "takes 1 positional argument but 5"),
    (lambda: korva.rgb_to_ycbcr(np.zeros((9, 9, 3), F4), 0.1, 0.2), ValueError, "image: expected 3 planes, (plane"),
    (lambda: korva.StitchingBuffer(2**40, 2**40, 0, 2**40), MemoryError, "stitching buffer: needs"),
    (lambda: korva.NewWLIBuffers(2**33, 2**33), MemoryError, "new-WLI buffers: needs"),
])
def test_limit(call, error, words):
    with pytest.raises(error) as caught:
        call()
    assert words in str(caught.value)


def test_output_must_be_apart_from_the_inputs():
    memory = np.zeros((12, 8), F4)
    image = memory[:8]
    for out, words in (
        (memory[1:9], "out: expected memory apart from the other arrays, found an overlap"),
        (np.zeros((8, 8), U2), "out: expected samples of float32, found uint16"),
        (np.lib.stride_tricks.as_strided(np.zeros(16, F4), (8, 8), (4, 4)), "out: expected contiguous rows"),
        (np.broadcast_to(np.zeros(8, F4), (8, 8)), "out: expected a writeable array, found a read-only one"),
    ):
        with pytest.raises((TypeError, ValueError)) as caught:
            korva.median_filter_3x3(image, out=out)
        assert words in str(caught.value)
    with pytest.raises(ValueError, match="out: expected an input array itself or memory apart from it"):
        korva.subtract(image, image, out=memory[1:9])
    # Rows that interleave without touching are apart, although one lies within the bounds of the other.
    korva.median_filter_3x3(memory[::2], out=memory[1::2])


def test_a_released_object_refuses_everything():
    ring, buffers = korva.StitchingBuffer(4, 1, 0, 1), korva.NewWLIBuffers(8, 8)
    for owner in (ring, buffers, ring, buffers):
        owner.release()
    for use in (
        lambda: ring.stitch_band_image(np.zeros((2, 4), U2), 0),
        lambda: ring.stitch_band_image_strip(np.zeros((1, 4), U2), 0, 0),
        lambda: ring.get_stitched_slice(1, out=np.zeros((2, 3, 4), U2)),
        lambda: ring.to_array(),
        lambda: ring.__enter__(),
        lambda: buffers.compute(np.zeros((4, 8, 8), F4), KERNEL, 0, 0, 1),
    ):
        with pytest.raises(ValueError, match="expected an open buffer, found a released one"):
            use()


def test_ring_limits():
    with korva.StitchingBuffer(4, 2, 1, 3, bands=2) as ring:
        assert ring.to_array().shape == (2, 6, 4) and not ring.to_array().any()
        ring.stitch_band_image_strip(np.full((2, 4), 7, U2), 2, 2**64 - 1, buffer_band=0)
        # Slot (2**64 - 1 + 1 - 2 + 3) mod 3, where the sum wraps to 1.
        assert (ring.to_array()[0, 2:4] == 7).all() and ring.to_array().sum() == 7 * 8
        with pytest.raises(ValueError, match="a ring of 3 planes, found 2"):
            ring.stitch_band_image(np.zeros((8, 4), U2), 0)


def test_threads_share_buffers_and_release_takes_none_from_under_a_call():
    bands = np.random.default_rng(2).random((4, 200, 300), F4)
    expected, results = korva.rgbx_compute_new_wli(bands, KERNEL, 0.1, 0.2, 0.5), []
    for _ in range(50):
        buffers = korva.NewWLIBuffers(300, 200)
        started = threading.Barrier(4)

        def compute(buffers=buffers, started=started):
            started.wait()
            try:
                results.append(np.array_equal(buffers.compute(bands, KERNEL, 0.1, 0.2, 0.5), expected))
            except ValueError as error:
                results.append("released" in str(error))

        threads = [threading.Thread(target=compute) for _ in range(3)]
        for thread in threads:
            thread.start()
        started.wait()
        buffers.release()
        for thread in threads:
            thread.join()
    assert results == [True] * 150


BUSY = """
import numpy as np, os, threading, time
import korva_reference as korva
bands, frame = np.ones((4, 1500, 1500), np.float32), np.ones((6000, 2000), np.uint16)
buffers, ring = korva.NewWLIBuffers(1500, 1500), korva.StitchingBuffer(2000, 2000, 0, 2)
def compute():
    while True:
        buffers.compute(bands, np.ones((7, 7)), 0.1, 0.2, 0.5)
def stitch():
    while True:
        ring.stitch_band_image(frame, 5)
for work in (compute, stitch):
    threading.Thread(target=work, daemon=True).start()
time.sleep(0.2)
"""
AFTER_FORK = """
for _ in range(5):
    if child := os.fork():
        assert os.waitpid(child, 0)[1] == 0
    else:
        korva.StitchingBuffer.stitch_band_image(ring, frame, 1)
        os._exit(0 if buffers.compute(bands, np.ones((7, 7)), 0.1, 0.2, 0.5).any() else 1)
"""


@pytest.mark.parametrize("then", ["", AFTER_FORK])
def test_exit_and_fork_during_calls_of_daemon_threads(then):
    for _ in range(3):
        subprocess.run([sys.executable, "-c", BUSY + then], check=True, timeout=60)
