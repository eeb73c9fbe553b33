#!/usr/bin/env bash
# Every way in, as a new user takes it, on a machine with a compiler, CMake and Python and without a network: the sources
# lie in the current folder, and what is installed goes to the machine's own folders. Run by clean_root.sh.
set -euo pipefail

numbers="5 6 9 10" system_library=/usr/local/lib/libkorva_reference_api.so.1.0
way() { printf '\n== %s\n' "$1"; }

# prints <output> <command>...
prints() {
  local found
  found=$("${@:2}")
  # shellcheck disable=SC2053  # a pattern
  [[ $found == $1 ]] || { echo "${*:2}: expected '$1', found '$found'" >&2; exit 1; }
}

# The lines of the first block of code below a heading of a document.
lines_of() { awk -v heading="$1" '$0 == heading {below = 1} /^```/ {if (inside) exit; inside = below; next} inside' "$2"; }

# What a call from Python prints, with the file that the function came from.
call() { (cd / && python3 -c 'import korva_reference as k; print(*k.filter_position(4, 6), k.loaded_library().path)'); }

way "the line of the README, without GoogleTest; then hosts of the installation"
line=$(grep -m 1 '^cmake -S . -B build' README.md)
eval "$line" | tee plain.log
[ "$(grep -c GoogleTest plain.log)" = 1 ]
tests/install/run.sh build /tmp/shared
gcc tests/install/c_host.c -o /tmp/c_host -lkorva_reference_api
ldconfig
prints "* $numbers" /tmp/c_host

way "a static library"
cmake -S . -B static -DBUILD_SHARED_LIBS=OFF
cmake --build static
tests/install/run.sh static /tmp/static

way "a part of a host without a build type, which is installed and moved"
cmake -S tests/install -B /tmp/part -DKORVA_SOURCE="$PWD"
cmake --build /tmp/part
cmake --install /tmp/part --prefix /tmp/host
mv /tmp/host /tmp/moved
prints "* $numbers" /tmp/moved/bin/c_host
prints "$numbers" /tmp/moved/bin/cpp_host

way "Python: the lines of the document"
sources=$PWD
eval "$(lines_of '## Install' docs/python.md)"
prints "1 2 $sources/venv/*" call
prints "1 2 $system_library" env KORVA_REFERENCE_LIBRARY=libkorva_reference_api.so.1.0 bash -c "$(declare -f call); call"
deactivate

way "Python: a source distribution, away from the sources, in Debian's own Python"
python3 -m build --no-isolation --sdist python
export PIP_BREAK_SYSTEM_PACKAGES=1
cp python/dist/*.tar.gz /tmp
(cd /tmp && pip install --no-build-isolation ./korva-reference-*.tar.gz)
prints "1 2 /usr/local/lib/python3*/dist-packages/*" call

way "Python: what is missing is said"
build_wheel() { pip wheel --no-deps --no-cache-dir --no-build-isolation --wheel-dir /tmp /tmp/korva-reference-*.tar.gz; }
mv /usr/bin/cmake /tmp
if build_wheel &>missing.log; then exit 1; fi
mv /tmp/cmake /usr/bin
grep "CMake executable is cmake" missing.log
if CXX=no-compiler build_wheel &>missing.log; then exit 1; fi
grep "requires a compiler" missing.log

way "Debian packages, and nothing left of them"
find /usr/local -name '*korva_reference_api*' -prune -not -path '*/python3*' -exec rm -r {} +
ldconfig
eval "$(grep -m 1 '^cmake .*cpack' README.md)"
dpkg --install build/*.deb
gcc tests/install/c_host.c -o /tmp/c_host -lkorva_reference_api
# shellcheck disable=SC2046  # several words
g++ tests/install/cpp_host.cpp -o /tmp/cpp_host $(pkg-config --cflags --libs korva_reference_api)
prints "* $numbers" /tmp/c_host
prints "$numbers" /tmp/cpp_host
cmake -S tests/install -B /tmp/found
dpkg --purge libkorva-reference-api-dev libkorva-reference-api1.0
if find /usr -name '*korva[_-]reference*' | grep -v /python3; then exit 1; fi
