"""Looks for conversions of single lanes in loops over vectors of 64-bit ARM's kernels.

    aarch64-linux-gnu-objdump -d --no-show-raw-insn --demangle LIBRARY | check_arm_loops.py

g++ 12 takes vectors apart for conversions that it does not know, which makes kernels up to five times as slow.
"""

import re
import sys

SINGLE = re.compile(r"\t(fcvt\w*|[su]cvtf)\s+[dswx]\d+, [dswx]\d+")
VECTOR = re.compile(r"\t(f\w+|[su]cvtf)\s+v\d+\.")
# One converted sample serves all lanes there.
MAY = "CorrectSpectrum"

kernels, wrong = 0, []
for function in sys.stdin.read().split("\n\n"):
    name = re.match(r"[0-9a-f]+ <(.*korva::runFor.*)>:", function)
    if not name or MAY in name[1]:
        continue
    kernels += 1
    lines = [(int(place, 16), text) for place, text in re.findall(r"^ *([0-9a-f]+):(\t.*)", function, re.MULTILINE)]
    jumps = [(int(to, 16), at) for at, text in lines for to in re.findall(r"\t(?:b\.|cb|tb).*?\b([0-9a-f]+) <", text)]
    loops = [(first, last) for first, last in jumps if first <= last]
    for first, last in loops:
        if not any(first <= other[0] and other[1] <= last for other in loops if other != (first, last)):
            body = "\n".join(text for place, text in lines if first <= place <= last)
            if VECTOR.search(body) and (found := SINGLE.search(body)):
                wrong.append(f"{name[1]}: {found[0].strip()} in the loop at {first:x}")
    if SINGLE.search(function) and not VECTOR.search(function):
        wrong.append(f"{name[1]}: no vectors")
print(*wrong, f"{kernels} kernels, {len(wrong)} loops that convert single lanes", sep="\n")
sys.exit(bool(wrong) or kernels < 30)
