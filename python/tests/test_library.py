"""The shared library is found as described, and declared and documented as its header has it."""

import ctypes.util
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import korva_reference as korva
from korva_reference._library import ENVIRONMENT_VARIABLE, FILE_NAME, SIGNATURES

ROOT = Path(__file__).parents[2]
PACKAGE = Path(korva.__file__).parent


def last_line(code, **environment):
    """What Python says last when it runs code in another process with this environment."""
    clean = {key: value for key, value in os.environ.items() if key != ENVIRONMENT_VARIABLE}
    result = subprocess.run([sys.executable, "-c", code], env={**clean, **environment}, capture_output=True, text=True)
    return (result.stdout + result.stderr).strip().splitlines()[-1]


CALL = "import korva_reference; print(korva_reference.filter_position(4, 6))"


def test_library_is_loaded_at_the_first_call_from_where_it_is_named():
    path = str(PACKAGE.parent)
    named = {ENVIRONMENT_VARIABLE: os.environ[ENVIRONMENT_VARIABLE], "PYTHONPATH": path}
    assert last_line(CALL, **named) == "(1, 2)"
    found = str(Path(os.environ[ENVIRONMENT_VARIABLE]).resolve().parent)
    assert last_line(CALL, PYTHONPATH=path, LD_LIBRARY_PATH=found) == "(1, 2)"
    assert last_line("import korva_reference; print('ok')", **{**named, ENVIRONMENT_VARIABLE: "/nowhere.so"}) == "ok"


def test_missing_or_wrong_library_is_one_clear_line(tmp_path):
    path = str(PACKAGE.parent)
    message = last_line(CALL, PYTHONPATH=path, **{ENVIRONMENT_VARIABLE: "/nowhere.so"})
    assert message == "OSError: korva_reference: shared library not found, looked for /nowhere.so"
    message = last_line(CALL, PYTHONPATH=path, **{ENVIRONMENT_VARIABLE: ctypes.util.find_library("c")})
    assert "is not this package's library, it has no KORVA_Ref_" in message
    (tmp_path / "broken.so").write_text("nothing")
    message = last_line(CALL, PYTHONPATH=path, **{ENVIRONMENT_VARIABLE: str(tmp_path / "broken.so")})
    assert message.startswith("OSError: korva_reference: shared library not found") and "file too short" in message
    message = last_line(CALL, PYTHONPATH=path)
    if "(1, 2)" not in message:
        assert f"looked for {PACKAGE}/{FILE_NAME}, " in message and ENVIRONMENT_VARIABLE in message


def test_release_is_the_files_own_and_another_one_is_refused(tmp_path):
    named = Path(os.environ[ENVIRONMENT_VARIABLE]).resolve()
    assert korva.loaded_library() == (str(named), korva.__version__)
    old = f"release {korva.__version__}".encode()
    (tmp_path / "newer.so").write_bytes(named.read_bytes().replace(old, b"release 9.9.9"))
    message = last_line(CALL, PYTHONPATH=str(PACKAGE.parent), **{ENVIRONMENT_VARIABLE: str(tmp_path / "newer.so")})
    assert f"newer.so is release 9.9.9, this package is {korva.__version__}" in message
    bare = {ENVIRONMENT_VARIABLE: FILE_NAME, "LD_LIBRARY_PATH": str(named.parent), "PYTHONPATH": str(PACKAGE.parent)}
    assert last_line("import korva_reference as k; print(k.loaded_library().path)", **bare) == str(named)


@pytest.mark.skipif(not (ROOT / "include").exists(), reason="runs in the source tree")
def test_signatures_are_those_of_the_header():
    header = re.sub(r"/\*.*?\*/", " ", (ROOT / "include/korva_reference_api.h").read_text(), flags=re.DOTALL)
    header = re.sub(r"^#.*$", " ", header[: header.index("#ifdef __cplusplus\n} ")], flags=re.MULTILINE)
    letters = {"unsigned long": "L", "unsigned int": "I", "unsigned short": "H", "float": "f", "double": "d",
               "NewWLIBuffers": "B", "void": "v"}

    def letter(declaration):
        name = re.sub(r"\b(const|KORVA_INNER_CONST)\b", "", declaration)
        return "p" if "*" in name else letters[" ".join(name.split())]

    declared = {}
    for result, name, arguments in re.findall(r"KORVA_API\s+(.*?)(KORVA_Ref_\w+)\((.*?)\);", header, flags=re.DOTALL):
        types = [argument.rsplit(None, 1)[0] if "*" not in argument else argument for argument in arguments.split(",")]
        declared[name] = f"{letter(result)}:{''.join(map(letter, types))}"
    assert len(declared) == 61 and declared == SIGNATURES


@pytest.mark.skipif(not (ROOT / "docs/python.md").exists(), reason="runs in the source tree")
def test_every_function_is_in_the_documented_table_and_calls_what_it_says():
    table = dict(re.findall(r"^\| `(KORVA_Ref_\w+)` \| (.*?) \|$", (ROOT / "docs/python.md").read_text(), re.MULTILINE))
    assert set(table) == set(SIGNATURES)
    for name, python in table.items():
        function, target = re.match(r"`([\w.]+)`|NumPy owns ", python).group(1), korva
        for part in function.split(".") if function else ():
            target = getattr(target, part)
        assert not function or name in target.__doc__, f"{function} does not say that it calls {name}"
