#!/usr/bin/env python3
"""Applies small deliberate faults to copies of the sources, one at a time, and runs the tests against each.

usage: mutations.py <build folder with the tests' programs> <work folder> [words of a fault's description]

The faults stand in mutations.txt beside this file. Prints which test caught each, and the number of caught and made
faults at the end. Fails when a fault survives, or when its place in the sources is not found any more.
"""

import concurrent.futures
import dataclasses
import os
import pathlib
import queue
import re
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
TIMEOUT_SECONDS = 600
DOES_NOT_COMPILE = "does not compile"  # Such a fault proves nothing about the tests.


@dataclasses.dataclass
class Edit:
    file: str
    old: str = ""
    new: str = ""


@dataclasses.dataclass
class Fault:
    description: str
    edits: list[Edit]


def read_faults(path):
    """Each fault is a description and, for one or more files, the text to replace ("-") and its replacement ("+")."""
    faults = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        key, text = line[:1], line[2:]
        if line.startswith("fault: "):
            faults.append(Fault(line[7:], []))
        elif line.startswith("file: "):
            faults[-1].edits.append(Edit(line[6:]))
        elif key == "-":
            faults[-1].edits[-1].old += text + "\n"
        elif key == "+":
            faults[-1].edits[-1].new += text + "\n"
        elif line and key != "#":
            sys.exit(f"{path}:{number}: neither fault, file, - nor +: {line}")
    for fault in faults:
        for edit in fault.edits:
            # What is replaced is part of a line, so the last line's end does not belong to it.
            edit.old, edit.new = edit.old.removesuffix("\n"), edit.new.removesuffix("\n")
    return faults


def mutate(text, edit, fault):
    if text.count(edit.old) != 1:
        sys.exit(f"'{fault.description}': found {text.count(edit.old)} times instead of once in {edit.file}:\n"
                 f"{edit.old}")
    return text.replace(edit.old, edit.new)


def related_tests(files):
    """A GoogleTest filter of the test file that mirrors the changed sources; everything for what all sources share."""
    suites = []
    for file in files:
        test = SOURCE / "tests" / (pathlib.Path(file).stem + "_test.cpp")
        if not test.exists():
            return "*"
        suites += re.findall(r"^(?:TYPED_)?TEST(?:_F)?\((\w+),", test.read_text(), re.MULTILINE)
    return ":".join(f"{suite}.*:{suite}/*" for suite in sorted(set(suites)))


class Worker:
    """A copy of the sources with a build of the dispatched and one of the baseline library."""

    def __init__(self, folder, programs):
        self.source = folder / "source"
        self.builds = {"dispatched": folder / "dispatched", "baseline": folder / "baseline"}
        self.programs = programs
        for part in ("CMakeLists.txt", "cmake", "include", "src"):
            target = self.source / part
            target.parent.mkdir(parents=True, exist_ok=True)
            copy = shutil.copytree if (SOURCE / part).is_dir() else shutil.copy
            copy(SOURCE / part, target)
        for name, build in self.builds.items():
            simd = "ON" if name == "dispatched" else "OFF"
            # Little optimisation compiles fast; how results depend on it is for the digests to show.
            subprocess.run(
                ["cmake", "-S", self.source, "-B", build, "-G", "Ninja", "-DKORVA_BUILD_TESTS=OFF",
                 "-DKORVA_INSTALL=OFF", f"-DKORVA_SIMD={simd}", "-DCMAKE_BUILD_TYPE=Fast", "-DCMAKE_CXX_FLAGS=-O1"],
                check=True, capture_output=True)

    def run(self, build, *command):
        """The output of a failed command, or None."""
        environment = dict(os.environ, LD_LIBRARY_PATH=str(build))
        try:
            done = subprocess.run(command, env=environment, timeout=TIMEOUT_SECONDS, text=True, errors="replace",
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        except subprocess.TimeoutExpired:
            return "no end"
        if done.returncode == 0:
            return None
        return done.stdout + f"\nexit status {done.returncode}"

    def failing_test(self, output):
        test = re.search(r"gtest_filter=(\S+)|\[  FAILED  \] (\S+)", output)
        if test:
            return (test.group(1) or test.group(2)).rstrip(",")
        return output.strip().splitlines()[-1]

    def caught_by(self, files):
        """The first test that fails on the sources as they are now, or None."""
        related = related_tests(files)
        tests = str(self.programs / "korva_tests")
        stages = [related] if related == "*" else [related, f"-{related}"]
        for name, build in self.builds.items():
            problem = self.run(build, "cmake", "--build", str(build))
            if problem:
                return f"{DOES_NOT_COMPILE}: {problem}"
            for stage in stages:
                problem = self.run(build, tests, f"--gtest_filter={stage}", "--gtest_fail_fast", "--gtest_brief=1")
                if problem:
                    return f"{name}: {self.failing_test(problem)}"
            library = str(build / "libkorva_reference_api.so.1.0")
            checks = [
                [str(SOURCE / "tests/check_library.sh"), library],
                [str(self.programs / "korva_threads_test")],
                # A processor without AVX, on some of each routine's cases: the emulation is slow.
                ["qemu-x86_64", "-cpu", "Nehalem", str(self.programs / "korva_threads_test")],
            ]
            for check in checks:
                problem = self.run(build, *check)
                if problem:
                    return f"{name}: {pathlib.Path(check[0]).name}: {self.failing_test(problem)}"
        return None

    def try_fault(self, fault):
        originals = {edit.file: (self.source / edit.file).read_text() for edit in fault.edits}
        try:
            for edit in fault.edits:
                path = self.source / edit.file
                path.write_text(mutate(path.read_text(), edit, fault))
            return self.caught_by(originals)
        finally:
            for file, text in originals.items():
                (self.source / file).write_text(text)


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    programs = pathlib.Path(sys.argv[1]).resolve() / "tests"
    work = pathlib.Path(sys.argv[2]).resolve()
    words = " ".join(sys.argv[3:])

    faults = [fault for fault in read_faults(HERE / "mutations.txt") if words in fault.description]
    for fault in faults:
        for edit in fault.edits:
            mutate((SOURCE / edit.file).read_text(), edit, fault)

    shutil.rmtree(work, ignore_errors=True)
    count = os.cpu_count() or 1
    workers = queue.Queue()
    with concurrent.futures.ThreadPoolExecutor(count) as pool:
        for worker in pool.map(lambda k: Worker(work / str(k), programs), range(count)):
            workers.put(worker)

        worker = workers.get()
        problem = worker.caught_by(["src/ref_utilities.cpp"])
        if problem:
            sys.exit(f"The tests fail without any fault: {problem}")
        workers.put(worker)

        def attempt(fault):
            own = workers.get()
            try:
                return own.try_fault(fault)
            finally:
                workers.put(own)

        survivors = []
        for fault, verdict in zip(faults, pool.map(attempt, faults)):
            place = ", ".join(pathlib.Path(edit.file).name for edit in fault.edits)
            caught = verdict and not verdict.startswith(DOES_NOT_COMPILE)
            print(f"{'caught  ' if caught else 'SURVIVED'}  {place}: {fault.description}  ({verdict})", flush=True)
            if not caught:
                survivors.append(fault.description)

    print(f"{len(faults) - len(survivors)} of {len(faults)} deliberate faults caught")
    for survivor in survivors:
        print(f"survived: {survivor}")
    sys.exit(1 if survivors else 0)


if __name__ == "__main__":
    main()
