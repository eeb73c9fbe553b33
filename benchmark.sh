#!/usr/bin/env bash
# Builds and runs the benchmarks, one thread on one processor, and prints the tables.
set -euo pipefail
cd "$(dirname "$0")"
# shellcheck source=scripts/prerequisites.sh
. scripts/prerequisites.sh

usage() {
  cat <<'USAGE'
Usage: ./benchmark.sh [options]
  --filter REGEX   only the rows whose name matches, e.g. --filter Median2D
  --scaling        ns per sample from 64 x 64 to 8192 x 8192, odd widths and narrow images
  --quick          one short repetition: checks that everything runs and compares, measures little
  --no-peers       do without OpenCV, OpenBLAS and Eigen
  --update-docs    put the tables into docs/performance.md, the short one into README.md, and draw its chart
USAGE
}

filter=. peers=ON quick='' program=() repetitions=7 seconds=0.02 update=()
while [ $# -gt 0 ]; do
  case $1 in
    --filter)
      [ $# -gt 1 ] || { usage >&2; exit 2; }
      filter=$2
      shift
      ;;
    --scaling) program=(--scaling) repetitions=3 ;;
    --quick) quick=1 repetitions=1 seconds=0.001 ;;
    --no-peers) peers=OFF ;;
    --update-docs) update=(--update) ;;
    -h | --help)
      usage
      exit
      ;;
    *)
      usage >&2
      exit 2
      ;;
  esac
  shift
done

if [ ${#update[@]} -gt 0 ] && [ "$filter$peers$quick" != .ON ]; then
  echo "--update-docs goes with a full run: no --filter, --quick or --no-peers." >&2
  exit 2
fi

packages=(cmake g++ ninja-build libbenchmark-dev python3)
[ $peers = OFF ] || packages+=(libopencv-imgproc-dev libopenblas-dev libeigen3-dev)
[ ${#update[@]} -eq 0 ] || packages+=(python3-matplotlib)
require_packages "${packages[@]}"

build=build/benchmark
cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DKORVA_BUILD_TESTS=OFF -DKORVA_BUILD_BENCHMARKS=ON \
  -DKORVA_BENCHMARK_PEERS=$peers >/dev/null
cmake --build $build >$build/build.txt || { cat $build/build.txt >&2; exit 1; }

# One processor, the one that was idle the longest during a second.
pin=()
idlest=$({ cat /proc/stat; sleep 1; cat /proc/stat; } | awk '
  /^cpu[0-9]/ && $1 in before { if ($5 - before[$1] >= most) { most = $5 - before[$1]; idlest = substr($1, 4) } }
  /^cpu[0-9]/ { before[$1] = $5 }
  END { print idlest }')
if taskset -c "$idlest" true 2>/dev/null; then
  pin=(taskset -c "$idlest")
fi
cpu=$(awk -F ': ' '/^cpu family/ { family = $2 } /^model\t/ { model = $2 } /^model name/ { name = $2 }
  /^$/ { exit } END { if (name) printf "%s (family %s model %s)", name, family, model }' /proc/cpuinfo)

# measure <program> [<variable>=<value>...]
results=()
measure() {
  results+=("$build/$1.json")
  env OPENBLAS_NUM_THREADS=1 "${@:2}" "${pin[@]}" "$build/benchmarks/$1" "${program[@]}" \
    --benchmark_filter="$filter|^limit/" --benchmark_repetitions=$repetitions --benchmark_min_time=$seconds \
    --benchmark_enable_random_interleaving=true --benchmark_context=cpu="${cpu:-unknown processor}" \
    --benchmark_out="$build/$1.json" --benchmark_out_format=json >$build/results.txt 2>&1 ||
    { tail -n 20 $build/results.txt >&2; exit 1; }
}

echo "Measuring, about 10 minutes for all rows, and as long again for each narrower kind of vectors." >&2
# OpenBLAS does not know processors newer than itself and takes narrower kernels for them than they could run.
if grep -qw avx512_vbmi2 /proc/cpuinfo; then
  measure korva_benchmark OPENBLAS_CORETYPE=SkylakeX
  # The scaling run is about sizes, not about vectors.
  [ ${#program[@]} -gt 0 ] || measure korva_benchmark_avx2 OPENBLAS_CORETYPE=Haswell OPENCV_CPU_DISABLE=AVX512-SKX
elif grep -qw avx2 /proc/cpuinfo; then
  measure korva_benchmark OPENBLAS_CORETYPE=Haswell
else
  measure korva_benchmark
fi

echo
# Debian's Python, which has its Matplotlib.
/usr/bin/python3 benchmarks/table.py "${results[@]}" "${update[@]}"
