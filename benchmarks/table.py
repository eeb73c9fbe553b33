"""Turns the benchmarks' JSON into Markdown and a chart: python3 table.py results.json [results.json] [--update]"""

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
    "conversions": "float ↔ double",
    "bytes": "bandwidth",
}

LEGEND = (
    "Frames of 2048 × 1088 where no other size is said, medians of processor time on one core. Cold: other work between "
    "calls has pushed the frame out of the caches. SIMD off: the same library without vector copies. Of limit: share of "
    "what the machine could do at most with these vectors, without fusing. Odd size: time per sample at 2047 × 1087 "
    "over that at 2048 × 1088. memcpy is the same call in all columns. ~: the middle half of the repetitions spans more "
    "than a fifth.")

# What the README shows, each beside a peer: one or two routines of each family.
HIGHLIGHTS = {
    ("CG_SSM_GetBandImage_uint16", "4 x 4 cell"): "band image of a 4 × 4 mosaic, uint16",
    ("RC_ComputeReflectance_uint16", ""): "reflectance, uint16",
    ("DM_ApplyDemosaicingBilinear_uint16", ""): "bilinear demosaicing, uint16",
    ("SC_ApplySpectralCorrection_BSQ_uint16", "16 to 16 bands"): "spectra of 16 bands, uint16",
    ("SC_ApplySpectralCorrection_BIP_float", "150 to 100 bands"): "spectra, 150 to 100 bands, float",
    ("MF_Median2D_3x3_uint16", ""): "3 × 3 median, uint16",
    ("MF_Median2D_5x5_float", ""): "5 × 5 median, float",
    ("ApplyKernel7x7_float", ""): "7 × 7 kernel, float",
    ("RGBToYCbCr_float", ""): "RGB to YCbCr, float",
    ("RGBX_DemosaicFrame_float", ""): "RGBX frame to four bands, float",
    ("RGBX_ComputeNewWLI_float", ""): "new WLI from RGBX, float",
}
PEERS = ("OpenCV", "OpenBLAS", "Eigen")
CHART = "docs/images/speed.svg"


class Results:
    """Medians over the repetitions of each benchmark, in processor time."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            content = json.load(file)
        self.context = content["context"]
        self.vectors = self.context["vectors"]
        self.failures = {}
        self.runs = {}
        times = collections.defaultdict(list)
        for run in content["benchmarks"]:
            if run.get("error_occurred"):
                self.failures[run["run_name"]] = run["error_message"]
            elif run["run_type"] == "iteration":
                # Cold rows time the call alone.
                time = run["real_time" if "manual_time" in run["run_name"] else "cpu_time"]
                times[run["run_name"]].append(time * NANOSECONDS[run["time_unit"]])
                self.runs[run["run_name"]] = run
        self.times = {name: statistics.median(values) for name, values in times.items()}
        self.noisy = {name for name, values in times.items() if spread(values) > 0.2}
        self.rates = collections.defaultdict(dict)
        for name, time in self.times.items():
            if name.startswith("limit/"):
                resource, _, footprint = name[len("limit/"):].partition("/")
                self.rates[resource][int(footprint or 0)] = self.runs[name]["operations"] / time

    def rows(self):
        """Groups of a routine's forms: {(routine, variant, slot): {form: benchmark name}}; none of a wrong result."""
        rows = collections.defaultdict(dict)
        failed = {(name.split("/")[0], name.split("/")[1]) for name in self.failures}
        for name in sorted(self.times, key=lambda name: self.runs[name]["family_index"]):
            if not name.startswith("limit/"):
                routine, variant, slot, form = name.split("/")[:4]
                if (routine, variant) not in failed:
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
            rate = (self.bandwidth(amount * run["samples"]) if resource == "bytes" else
                    self.rates[resource].get(0))
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
    """What the tables say of one row."""

    def __init__(self, results, forms):
        ours = forms["ours"]
        run = results.runs[ours]
        time = lambda form: results.times[forms[form]] if form in forms else None
        ratio = lambda form: time(form) / time("ours") if form in forms else None
        limit, self.limited_by = results.limit(run)
        self.milliseconds = time("ours") / 1e6
        self.per_sample = time("ours") / run["samples"]
        self.plain, self.baseline = ratio("plain"), ratio("baseline")
        # The fastest of the peers.
        peer = min((form for form in forms if form.startswith("peer")), key=time, default="")
        self.peer = ratio(peer)
        name, note = results.runs[forms[peer]]["label"].split(";") if peer else ("", "")
        self.peer_name = name + (f" ({note})" if note else "")
        self.of_limit = limit / self.per_sample if limit else None
        self.noise = " ~" if ours in results.noisy else ""


def by_routine(results):
    """Each routine's figures by slot."""
    slots = collections.defaultdict(dict)
    for (routine, variant, slot), forms in results.rows().items():
        if "ours" in forms:
            slots[routine.removeprefix(PREFIX), variant][slot] = Figures(results, forms)
    return slots


def long_table(results):
    """One line per routine: the sensor frame, and how the other sizes compare."""
    rows = []
    for routine, sizes in by_routine(results).items():
        main = sizes.get("frame") or sizes.get("one")
        if not main:
            continue
        cold, cache, odd = sizes.get("cold"), sizes.get("cache"), sizes.get("odd")
        rows.append([shown(*routine), number(main.per_sample) + main.noise, number(main.peer),
                     number(cold.peer) if cold else "", number(cache.peer) if cache else "", number(main.plain),
                     number(main.baseline), number(main.of_limit), number(cache.of_limit) if cache else "",
                     main.limited_by, number(odd.per_sample / main.per_sample) if odd else "", main.peer_name])
    peers = ", ".join(f"{name} {results.context[name]}" for name in PEERS if name in results.context)
    return f"With {results.vectors}; {peers}:\n\n" + markdown(
        ["routine", "ns/sample", "peer ÷ ours", "cold", "512 × 512", "plain ÷ ours", "SIMD off ÷ ours", "of limit",
         "512 × 512", "limit", "odd size", "peer"], rows)


def highlights(runs):
    """The README's routines that ran: {(routine, variant): {vectors: figures of the frame}}."""
    found = collections.defaultdict(dict)
    for results in runs:
        slots = by_routine(results)
        for routine in HIGHLIGHTS:
            sizes = slots.get(routine, {})
            if "frame" in sizes or "one" in sizes:
                found[routine][results.vectors] = sizes.get("frame") or sizes["one"]
    return {routine: figures for routine, figures in found.items() if all(row.peer for row in figures.values())}


def short_table(runs):
    vectors = [results.vectors for results in runs]
    rows = [[HIGHLIGHTS[routine], *(number(figures[name].peer) for name in vectors), figures[vectors[0]].peer_name,
             *(number(figures[name].per_sample) for name in vectors)]
            for routine, figures in highlights(runs).items()]
    return markdown(["times as fast as the peer", *vectors, "peer", *(f"ns/sample, {name}" for name in vectors)], rows)


def draw_chart(runs, path):
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams.update({"svg.hashsalt": "korva", "svg.fonttype": "none"})  # a small file, equal for equal figures
    from matplotlib import pyplot

    rows = highlights(runs)
    copies = [results.vectors for results in runs]
    figure, axes = pyplot.subplots(figsize=(9, 0.5 * len(rows) + 1.4), layout="constrained")
    height = 0.8 / len(copies)
    for place, (name, colour) in enumerate(zip(copies, ("#1f5a8c", "#8fb8d8"))):
        bars = axes.barh([line + place * height for line in range(len(rows))],
                         [figures[name].peer - 1 for figures in rows.values()], height, left=1, color=colour, label=name)
        axes.bar_label(bars, [number(figures[name].peer) for figures in rows.values()], padding=3, fontsize=8)
    labels = [f"{HIGHLIGHTS[routine]}\n{figures[copies[0]].peer_name.partition(' (')[0]}"
              for routine, figures in rows.items()]
    axes.set_yticks([line + 0.4 - height / 2 for line in range(len(rows))], labels, fontsize=8)
    axes.invert_yaxis()
    axes.set_xscale("log", base=2)
    axes.xaxis.set_major_formatter(lambda value, _: f"{value:g}")
    axes.axvline(1, color="black", linewidth=0.8)
    axes.margins(x=0.1)
    axes.set_xlabel("peer's time ÷ ours, one thread, frames of 2048 × 1088: right of 1 we are faster")
    axes.legend(loc="lower right")
    axes.spines[["top", "right"]].set_visible(False)
    figure.savefig(path, metadata={"Date": None})


def road_table(runs):
    roads = collections.defaultdict(list)
    for results in runs:
        for routine, sizes in by_routine(results).items():
            if "road" in sizes:
                roads[routine].append(sizes["road"])
    rows = [[f"{routine}, {variant}".replace(" x ", " × "), *(f"{row.milliseconds:.1f}{row.noise}" for row in figures),
             number(figures[0].plain), number(figures[0].baseline)] for (routine, variant), figures in roads.items()]
    header = ["2048 × 1088", *(f"ms/frame, {results.vectors}" for results in runs), "plain ÷ ours", "SIMD off ÷ ours"]
    return markdown(header, rows) if rows else ""


def scaling_table(results):
    routines = by_routine(results)
    sizes = list({slot: None for found in routines.values() for slot in found})

    def order(size):
        """Squares, then rows of odd and page-sized lengths, then narrow images."""
        width, height = map(int, size.split("x"))
        return (0 if width == height else 1 if width > 64 else 2), width

    sizes.sort(key=order)
    header = ["ns/sample"] + [shown(*routine) for routine in routines]
    rows = [[size.replace("x", " × ")] + [number(found[size].per_sample) + found[size].noise if size in found else ""
                                          for found in routines.values()] for size in sizes]
    return markdown(header, rows)


def caption(results):
    return f"{results.context.get('cpu', '')}, {results.context['compiler']}, {results.context['date'][:10]}."


def limits_line(runs):
    parts = []
    for results in runs:
        rate = lambda resource, digits=0: f"{results.rates[resource][0]:.{digits}f}"
        if results.rates["doubleOperations"]:
            parts.append(
                f"with {results.vectors} {rate('doubleOperations')} double multiplications and additions, "
                f"{rate('divisions', 1)} divisions, {rate('minMaxUint16')} uint16 or {rate('minMaxFloat')} float min/max, "
                f"{rate('conversions')} conversions between float and double per ns")
    if runs[0].rates["memcpy"]:
        rates = ", ".join(f"{runs[0].bandwidth(mebi << 20):.0f} bytes/ns in {mebi} MiB" for mebi in (1, 16, 256))
        parts.append("copies at " + rates)
    return f"Measured limits of this machine: {'; '.join(parts)}." if parts else ""


def replace_section(path, section, text):
    """Puts the text between the file's two marker comments."""
    begin, end = (f"<!-- {section}:{place} -->" for place in ("begin", "end"))
    with open(path, encoding="utf-8") as file:
        before, found, rest = file.read().partition(begin)
    _, found_end, after = rest.partition(end)
    if not found or not found_end:
        sys.exit(f"{path} lacks the lines {begin} and {end}")
    with open(path, "w", encoding="utf-8") as file:
        file.write(f"{before}{begin}\n{text}\n{end}{after}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("results", nargs="+", help="one file for each program; the first for the widest vectors")
    parser.add_argument("--update", action="store_true", help="put the tables and the chart into the documents")
    options = parser.parse_args()
    runs = [Results(path) for path in options.results]
    failures = [f"{name}: {message}" for results in runs for name, message in results.failures.items()]
    for failure in failures:
        print(failure, file=sys.stderr)
    if not runs[0].rows():
        sys.exit("No rows: does the filter match any?")

    scaling = any(slot[0].isdigit() for _, _, slot in runs[0].rows())
    tables = [scaling_table(runs[0])] if scaling else [*map(long_table, runs), LEGEND, road_table(runs)]
    text = "\n\n".join(part for part in [caption(runs[0]), *tables, limits_line(runs)] if part)
    print(text)
    if options.update and not failures:
        replace_section("docs/performance.md", "scaling" if scaling else "benchmark", text)
    if options.update and not failures and not scaling:
        draw_chart(runs, CHART)
        picture = f"![How many times as fast as its peer each routine is]({CHART})"
        replace_section("README.md", "benchmark", "\n\n".join(
            [picture, short_table(runs), road_table(runs), caption(runs[0])]))
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
