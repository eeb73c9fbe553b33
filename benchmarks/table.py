"""Turns the benchmark's JSON into Markdown: python3 table.py results.json [--summary] [--readme README.md]"""

import argparse
import bisect
import collections
import json
import math
import statistics
import sys

PREFIX = "KORVA_Ref_"
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
RESOURCES = {
    "doubleOperations": "multiply, add",
    "divisions": "divide",
    "minMaxUint16": "min, max",
    "minMaxFloat": "min, max",
    "bytes": "bandwidth",
}

SUMMARY_LEGEND = (
    "Frames of 2048 × 1088 where no other size is said, medians of processor time on one core. Odd size: time per "
    "sample at 2047 × 1087 over that at 2048 × 1088. memcpy is the same call in all columns. ~: the middle half of "
    "the repetitions spans more than a fifth.")


class Results:
    """Medians over the repetitions of each benchmark, in processor time."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            content = json.load(file)
        self.context = content["context"]
        self.failures = {}
        self.runs = {}
        times = collections.defaultdict(list)
        for run in content["benchmarks"]:
            if run.get("error_occurred"):
                self.failures[run["run_name"]] = run["error_message"]
            elif run["run_type"] == "iteration":
                times[run["run_name"]].append(run["cpu_time"] * NANOSECONDS[run["time_unit"]])
                self.runs[run["run_name"]] = run
        self.times = {name: statistics.median(values) for name, values in times.items()}
        self.noisy = {name for name, values in times.items() if spread(values) > 0.2}
        self.rates = collections.defaultdict(dict)
        for name, time in self.times.items():
            if name.startswith("limit/"):
                resource, _, footprint = name[len("limit/"):].partition("/")
                self.rates[resource][int(footprint or 0)] = self.runs[name]["operations"] / time

    def rows(self):
        """Groups of a routine's forms: {(routine, variant, slot): {form: benchmark name}}; none with a wrong result."""
        rows = collections.defaultdict(dict)
        failed = {tuple(name.split("/")[:3]) for name in self.failures}
        for name in sorted(self.times, key=lambda name: self.runs[name]["family_index"]):
            if not name.startswith("limit/"):
                routine, variant, slot, form = name.split("/")
                if (routine, variant, slot) not in failed:
                    rows[routine, variant, slot][form] = name
        return rows

    def bandwidth(self, footprint):
        """Bytes per nanosecond of the faster copy, interpolated between the measured footprints."""
        copies = [self.rates[name] for name in ("memcpy", "vector copy") if name in self.rates]
        if not copies:
            return None
        sizes = sorted(copies[0])
        best = [max(copy[size] for copy in copies) for size in sizes]
        right = bisect.bisect(sizes, footprint)
        if right in (0, len(sizes)):
            return best[min(right, len(sizes) - 1)]
        low, high = sizes[right - 1], sizes[right]
        share = math.log(footprint / low) / math.log(high / low)
        return best[right - 1] * (1 - share) + best[right] * share

    def limit(self, run):
        """The least nanoseconds per sample that the machine's rates allow, and what it is that limits."""
        best = (0, "")
        for resource, words in RESOURCES.items():
            amount = run.get(resource)
            if not amount:
                continue
            rate = self.bandwidth(amount * run["samples"]) if resource == "bytes" else self.rates[resource].get(0)
            if rate is None:
                return None, ""
            best = max(best, (amount / rate, words))
        return best if best[0] else (None, "")


def spread(values):
    """The middle half's width as a share of the median."""
    if len(values) < 4:
        return 0
    low, middle, high = statistics.quantiles(values, n=4)
    return (high - low) / middle


def number(value):
    """Two significant digits, or all of an integer part that has more."""
    if value is None:
        return ""
    return f"{value:.{max(0, 1 - math.floor(math.log10(value)))}f}" if value < 10 else f"{value:.0f}"


def shown(name, variant):
    return f"`{name.removeprefix(PREFIX)}` {variant}".strip().replace(" x ", " × ")


def markdown(header, rows):
    table = [header, *rows]
    widths = [max(3, *(len(row[column]) for row in table)) for column in range(len(header))]
    line = lambda cells: "| " + " | ".join(cell.ljust(width) for cell, width in zip(cells, widths)) + " |"
    return "\n".join([line(header), line(["-" * width for width in widths]), *map(line, rows)])


class Figures:
    """What the table says of one row."""

    def __init__(self, results, forms):
        ours = forms["ours"]
        run = results.runs[ours]
        time = lambda form: results.times[forms[form]] if form in forms else None
        ratio = lambda form: time(form) / time("ours") if form in forms else None
        limit, self.limited_by = results.limit(run)
        self.milliseconds = time("ours") / 1e6
        self.per_sample = time("ours") / run["samples"]
        self.peer, self.plain, self.baseline = ratio("peer"), ratio("plain"), ratio("baseline")
        self.of_limit = limit / self.per_sample if limit else None
        self.size, name, note = run["label"].replace(" x ", " × ").split(";")
        self.peer_name = (name + (f" ({note})" if note else "")) if "peer" in forms else ""
        self.noise = " ~" if ours in results.noisy else ""


def full_table(results):
    rows = []
    for (routine, variant, slot), forms in results.rows().items():
        if slot == "road" or "ours" not in forms:
            continue
        row = Figures(results, forms)
        rows.append([shown(routine, variant), row.size, number(row.per_sample) + row.noise, number(row.peer),
                     number(row.plain), number(row.baseline), number(row.of_limit), row.limited_by, row.peer_name])
    return markdown(["routine", "size", "ns/sample", "peer ÷ ours", "plain ÷ ours", "SIMD off ÷ ours", "of limit",
                     "limit", "peer"], rows)


def summary_table(results):
    """One line per routine: the sensor frame, and how the other sizes compare."""
    slots = collections.defaultdict(dict)
    for (routine, variant, slot), forms in results.rows().items():
        if slot != "road" and "ours" in forms:
            slots[routine, variant][slot] = Figures(results, forms)
    rows = []
    for (routine, variant), sizes in slots.items():
        main = sizes.get("frame") or sizes.get("one")
        if not main:
            continue
        cache, odd = sizes.get("cache"), sizes.get("odd")
        rows.append([shown(routine, variant), number(main.per_sample) + main.noise, number(main.peer),
                     number(cache.peer) if cache else "", number(main.plain), number(main.baseline),
                     number(main.of_limit), number(cache.of_limit) if cache else "", main.limited_by,
                     number(odd.per_sample / main.per_sample) if odd else "", main.peer_name])
    return markdown(["routine", "ns/sample", "peer ÷ ours", "at 512 × 512", "plain ÷ ours", "SIMD off ÷ ours",
                     "of limit", "at 512 × 512", "limit", "odd size", "peer"], rows) + f"\n\n{SUMMARY_LEGEND}"


def road_table(results):
    rows = []
    for (routine, variant, slot), forms in results.rows().items():
        if slot == "road" and "ours" in forms:
            row = Figures(results, forms)
            rows.append([f"{routine}, {variant}", f"{row.milliseconds:.1f}{row.noise}", number(row.plain),
                         number(row.baseline)])
    return markdown(["2048 × 1088", "ms/frame", "plain ÷ ours", "SIMD off ÷ ours"], rows) if rows else ""


def scaling_table(results):
    by_routine = collections.defaultdict(dict)
    sizes = []
    for (routine, variant, slot), forms in results.rows().items():
        by_routine[routine, variant][slot] = Figures(results, forms)
        if slot not in sizes:
            sizes.append(slot)

    def order(size):
        """Squares, then rows of odd and page-sized lengths, then narrow images."""
        width, height = map(int, size.split("x"))
        return (0 if width == height else 1 if width > 64 else 2), width

    sizes.sort(key=order)
    header = ["ns/sample"] + [shown(*routine) for routine in by_routine]
    rows = [[size.replace("x", " × ")] + [number(found[size].per_sample) + found[size].noise if size in found else ""
                                          for found in by_routine.values()] for size in sizes]
    return markdown(header, rows)


def caption(results):
    context = results.context
    parts = [context.get("cpu", ""), context["compiler"]]
    parts += [f"{name} {context[name]}" for name in ("OpenCV", "OpenBLAS") if name in context]
    return ", ".join(part for part in parts + [context["date"][:10]] if part) + "."


def limits_line(results):
    rate = lambda resource: results.rates[resource].get(0)
    parts = []
    if rate("doubleOperations"):
        parts = [f"{rate('doubleOperations'):.0f} double multiplications and additions, {rate('divisions'):.1f} "
                 f"divisions, {rate('minMaxUint16'):.0f} uint16 or {rate('minMaxFloat'):.0f} float min/max per ns"]
    if results.rates["memcpy"]:
        rates = ", ".join(f"{results.bandwidth(mebi << 20):.0f} bytes/ns in {mebi} MiB" for mebi in (1, 16, 256))
        parts.append("copies at " + rates)
    return f"Measured limits of this machine: {'; '.join(parts)}." if parts else ""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("results")
    parser.add_argument("--summary", action="store_true", help="one line per routine")
    parser.add_argument("--readme", help="file that receives the summary between its two marker comments")
    options = parser.parse_args()
    results = Results(options.results)
    for name, message in results.failures.items():
        print(f"{name}: {message}", file=sys.stderr)
    if not results.rows():
        sys.exit("No rows: does the filter match any?")

    scaling = any(slot[0].isdigit() for _, _, slot in results.rows())
    tables = [scaling_table(results)] if scaling else [
        summary_table(results) if options.summary or options.readme else full_table(results), road_table(results)]
    text = "\n\n".join(part for part in [caption(results), *tables, limits_line(results)] if part)
    if options.readme and not results.failures:
        begin, end = (f"<!-- {'scaling' if scaling else 'benchmark'}:{place} -->" for place in ("begin", "end"))
        with open(options.readme, encoding="utf-8") as file:
            before, found, rest = file.read().partition(begin)
        _, found_end, after = rest.partition(end)
        if not found or not found_end:
            sys.exit(f"{options.readme} lacks the lines {begin} and {end}")
        with open(options.readme, "w", encoding="utf-8") as file:
            file.write(f"{before}{begin}\n{text}\n{end}{after}")
    else:
        print(text)
    sys.exit(1 if results.failures else 0)


if __name__ == "__main__":
    main()
