#!/usr/bin/env bash
# Tests the Python package against a library file.
#
#   run_tests.sh [--deep] <libkorva_reference_api.so.1.0>
#
# Needs the packages of packages.txt; --deep also runs the slow tests and needs those of packages-deep.txt.
set -euo pipefail

deep=(-m "not deep")
if [ "${1:-}" = --deep ]; then
  deep=()
  shift
fi
if [ $# -ne 1 ] || [ ! -f "$1" ]; then
  echo "usage: run_tests.sh [--deep] <library file>; found: ${*:-nothing}" >&2
  exit 2
fi
KORVA_REFERENCE_LIBRARY=$(realpath "$1")
export KORVA_REFERENCE_LIBRARY

cd "$(dirname "$0")"
# Debian's Python has Debian's NumPy; another one may stand before it on the path.
python=/usr/bin/python3
[ -x "$python" ] || python=python3
# Nothing is written into the tree, and one thread per process is enough for whatever NumPy multiplies.
export PYTHONPATH=$PWD PYTHONDONTWRITEBYTECODE=1 OPENBLAS_NUM_THREADS=1 MPLBACKEND=Agg
exec "$python" -m pytest -q -p no:cacheprovider "${deep[@]}"
