#!/usr/bin/env python3
"""Applies the deliberate faults of mutations.txt to copies of the sources, one at a time, and runs the tests on each.

Prints which test caught a fault. Fails when one survives, does not compile or has lost its place in the sources.
"""

import argparse
import concurrent.futures
import os
import pathlib
import queue
import re
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
LIBRARY = "libkorva_reference_api.so.1.0"
TIMEOUT_SECONDS = 600


class Fault:
    def __init__(self, file, filters, line):
        self.description, old, self.new = (re.split(" @@ ?", line) + ["", ""])[:3]
        self.file, self.filters = file, filters
        self.place = re.compile(r"\s+".join(map(re.escape, old.split())) or "$^")
        self.name = f"{pathlib.Path(file).name}: {self.description}"

    def times_found(self):
        return len(self.place.findall((SOURCE / self.file).read_text()))


def own_tests(file):
    """A GoogleTest filter of the suites in the test file that mirrors a source file."""
    test = SOURCE / "tests" / f"{pathlib.Path(file).stem}_test.cpp"
    suites = re.findall(r"^(?:TYPED_)?TEST(?:_F|_P)?\((\w+),", test.read_text(), re.MULTILINE)
    return ":".join(f"{suite}.*:{suite}/*" for suite in sorted(set(suites)))


def read_faults(lines):
    for line in lines:
        if heading := re.match(r"\[(.*)\]\s*(.*)", line):
            file = heading[1]
            filters = heading[2] or own_tests(file)
        elif line and not line.startswith("#"):
            yield Fault(file, filters, line)


class Worker:
    """A copy of the sources with a build of every copy of the library that the tests' programs have beside them."""

    def __init__(self, folder, tested):
        self.source, self.build, self.programs = folder / "source", folder / "build", tested / "tests"
        self.copies = [copy for copy in ("", "avx2", "baseline") if (tested / copy / LIBRARY).exists()]
        self.source.mkdir(parents=True)
        for part in ("CMakeLists.txt", "cmake", "tests"):
            (self.source / part).symlink_to(SOURCE / part)
        for part in ("include", "src"):
            shutil.copytree(SOURCE / part, self.source / part)
        # Little optimisation compiles fast; how results depend on it is for the many builds to show.
        subprocess.run(["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja", "-DKORVA_BUILD_TESTS=ON",
                        "-DKORVA_OPTIMIZE=OFF", "-DCMAKE_BUILD_TYPE=Fast", "-DCMAKE_CXX_FLAGS=-O1"], check=True, capture_output=True)

    def failure(self, copy, *command):
        """What a failed command says last, the failed test if there is one; nothing if it succeeds."""
        environment = dict(os.environ, LD_LIBRARY_PATH=str(self.build / copy))
        try:
            done = subprocess.run(command, env=environment, timeout=TIMEOUT_SECONDS, text=True, errors="replace",
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        except subprocess.TimeoutExpired:
            return "no end"
        if done.returncode == 0:
            return None
        test = re.search(r"gtest_filter=(\S+)|\[  FAILED  \] ([^\s,]+)", done.stdout)
        return (test[1] or test[2]) if test else f"status {done.returncode} {done.stdout.strip()[-200:]}"

    def checks(self, copy, filters):
        tests = [self.programs / "korva_tests", "--gtest_fail_fast", "--gtest_brief=1"]
        threads = ["env", "KORVA_THREADS=4", "KORVA_EVERY=60", *tests, "--gtest_filter=-HugeRuns*:Lengthy*"]
        yield [*tests, f"--gtest_filter={filters}"]
        yield [*tests, f"--gtest_filter=-{filters}:Lengthy*"]
        yield [SOURCE / "tests/check_library.sh", self.build / copy / LIBRARY]
        yield threads
        # A processor without AVX, on some of each routine's cases: the emulation is slow.
        yield ["env", "KORVA_EVERY=400", "qemu-x86_64", "-cpu", "Nehalem", *tests, "--gtest_filter=-*HighBits:Lengthy*"]

    def verdict(self, filters):
        """What becomes of the sources as they are now, and by what."""
        for copy in self.copies:
            target = "_".join(["korva_reference_api", *filter(None, [copy])])
            if problem := self.failure(copy, "cmake", "--build", self.build, "--target", target, "-j2"):
                return "not compiled", problem
            for check in self.checks(copy, filters):
                if problem := self.failure(copy, *map(str, check)):
                    return "caught", f"{copy or 'dispatched'}, {pathlib.Path(check[0]).name}: {problem}"
        return "SURVIVED", ""

    def try_fault(self, fault):
        if (found := fault.times_found()) != 1:
            return "PLACE LOST", f"found {found} times"
        path = self.source / fault.file
        original = path.read_text()
        try:
            path.write_text(fault.place.sub(lambda _: fault.new, original))
            return self.verdict(fault.filters)
        finally:
            path.write_text(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("tested", nargs="?", type=pathlib.Path, default=SOURCE / "build/release",
                        help="build folder with the tests' programs")
    parser.add_argument("work", nargs="?", type=pathlib.Path, default=SOURCE / "build/mutations",
                        help="folder for the copies, emptied before")
    parser.add_argument("--only", default="", metavar="REGEX", help="faults with this in their file's name or line")
    parser.add_argument("--places", action="store_true", help="only look for the faults' places")
    options = parser.parse_args()
    faults = [fault for fault in read_faults((HERE / "mutations.txt").read_text().splitlines())
              if re.search(options.only, fault.name)]
    if options.places:
        lost = [fault.name for fault in faults if fault.times_found() != 1]
        sys.exit("\n".join(["Faults whose place is not found once:", *lost]) if lost else 0)

    shutil.rmtree(options.work, ignore_errors=True)
    count = os.cpu_count() or 1
    workers, open_ones = queue.Queue(), []

    def attempt(fault):
        worker = workers.get()
        try:
            return worker.try_fault(fault)
        finally:
            workers.put(worker)

    with concurrent.futures.ThreadPoolExecutor(count) as pool:
        for worker in pool.map(lambda k: Worker(options.work.resolve() / str(k), options.tested.resolve()), range(count)):
            workers.put(worker)
        if (verdict := workers.queue[0].verdict(own_tests("src/ref_utilities.cpp")))[0] != "SURVIVED":
            sys.exit(f"The tests fail without any fault: {verdict}")
        for fault, (verdict, by) in zip(faults, pool.map(attempt, faults)):
            print(f"{verdict:12}  {fault.name}  ({by})", flush=True)
            if verdict != "caught":
                open_ones.append(f"{verdict}: {fault.name}")
    print(f"{len(faults) - len(open_ones)} of {len(faults)} deliberate faults caught", *open_ones, sep="\n")
    sys.exit(bool(open_ones) or not faults)


if __name__ == "__main__":
    main()
