#!/usr/bin/env bash
# Builds the example hosts and takes three synthetic scenes through them; results/index.html shows what comes of it.
#
#   demo.sh [--update-docs | --check | --keep-frames | --photo PICTURE]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

# shellcheck source=scripts/prerequisites.sh
. scripts/prerequisites.sh
require_packages cmake g++ make libcli11-dev python3 python3-numpy python3-matplotlib

build=build/demo
log=build/demo.log
mkdir -p build
printf 'Building the library and the example hosts ... '
if ! { cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DKORVA_BUILD_EXAMPLES=ON -DKORVA_BUILD_TESTS=OFF &&
  cmake --build "$build" -j "$(nproc)"; } >"$log" 2>&1; then
  echo 'failed:'
  tail -n 30 "$log" >&2
  exit 1
fi
echo 'done'

update_docs=
if [ "${1:-}" = --update-docs ]; then
  update_docs=yes
  shift
fi
# Debian's Python has Debian's NumPy; another one may stand before it on the path.
python=/usr/bin/python3
[ -x "$python" ] || python=python3
export PYTHONPATH=$PWD/python KORVA_REFERENCE_LIBRARY=$PWD/$build/libkorva_reference_api.so.1.0 PYTHONDONTWRITEBYTECODE=1
"$python" examples/demo --hosts "$build/examples" "$@"

# The pictures in the README are these very results, with fewer colours.
if [ -n "$update_docs" ]; then
  for host in snapshot_mosaic line_scan rgbx; do
    "$python" -c 'import sys; from matplotlib.pyplot import imread, imsave
imsave(sys.argv[2], (imread(sys.argv[1])[..., :3] * 31).round() / 31)' "results/$host/overview.png" "docs/images/$host.png"
  done
  echo 'docs/images holds the new overviews.'
fi
