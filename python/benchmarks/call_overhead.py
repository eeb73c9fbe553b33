"""Measures what a call costs beyond the library's own work: microseconds, the best of several repetitions."""

import timeit

import numpy as np

import korva_reference as korva
from korva_reference._arrays import rows, run
from korva_reference._library import call


def microseconds(function, repetitions=7):
    loops, _ = timeit.Timer(function).autorange()
    return min(timeit.repeat(function, number=loops, repeat=repetitions)) / loops * 1e6


def crop(height, width):
    image = np.zeros((height, width), np.uint16)
    out = np.empty_like(image)
    target, source = rows(out), rows(image)
    direct = microseconds(
        lambda: call("KORVA_Ref_CG_CropImage_uint16", target, source, width, height, 0, 0, width, height)
    )
    return microseconds(lambda: korva.crop_image(image, left=0, top=0, width=width, height=height, out=out)), direct


def bias(height, width):
    frame = np.zeros((height, width), np.uint16)
    out, other = frame.copy(), frame.copy()
    pointers = run(out), run(frame), run(other)
    direct = microseconds(lambda: call("KORVA_Ref_RC_CorrectBias_uint16", *pointers, frame.size))
    return microseconds(lambda: korva.correct_bias(frame, other, out=out)), direct


def median(height, width):
    image = np.zeros((height, width), np.uint16)
    out = np.empty_like(image)
    sizes = np.array([height, width], np.uint64)
    target, source = rows(out), rows(image)
    addresses = run(sizes[:1]), run(sizes[1:])
    direct = microseconds(lambda: call("KORVA_Ref_MF_Median2D_3x3_uint16", target, source, *addresses))
    return microseconds(lambda: korva.median_filter_3x3(image, out=out)), direct


print(f"{'routine':12} {'image':>12} {'call':>10} {'library':>10} {'overhead':>10}   (microseconds)")
for routine in (crop, bias, median):
    # Narrow images: the library's own work must not hide what is measured.
    for shape in ((4, 4), (1088, 4)):
        total, direct = routine(*shape)
        size = f"{shape[0]} x {shape[1]}"
        print(f"{routine.__name__:12} {size:>12} {total:10.1f} {direct:10.1f} {total - direct:10.1f}")
table = np.zeros((1088, 2048), np.uint16)
arithmetic = microseconds(lambda: rows(table))
loop = microseconds(lambda: [table[row].__array_interface__["data"][0] for row in range(1088)])
print(f"row pointers of 1088 rows: {arithmetic:.1f} by arithmetic, {loop:.0f} in a Python loop")
