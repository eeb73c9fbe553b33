#!/usr/bin/env bash
# Builds the library in many ways, takes the digests of each build and compares them with the stored ones, which come
# from the plain definitions. Prints the table of builds.
#
# Usage: digests.sh <digest program for this processor> <the same for 64-bit ARM> <work folder>
#
# After a change of the cases or of a plain definition, the stored file is renewed with:
#   LD_LIBRARY_PATH=build/release build/release/tests/deep/korva_digests --plain >tests/deep/digests.txt
set -euo pipefail

source=$(cd "$(dirname "$0")/../.." && pwd)
expected=$source/tests/deep/digests.txt
native=$(realpath "$1") arm=$(realpath "$2")
mkdir -p "$3"
work=$(cd "$3" && pwd)

# One line a build: compiler, KORVA_SIMD, processor, and what stands in CMAKE_CXX_FLAGS.
builds() {
  local compiler level simd
  for compiler in g++ clang++; do
    for level in -O0 -O1 -O2 -O3; do
      for simd in ON OFF; do echo "$compiler $simd x86-64 $level"; done
    done
    echo "$compiler ON x86-64 -O2 -march=native -ffast-math"
    echo "$compiler ON x86-64 -Ofast -march=haswell -ffp-contract=fast"
    echo "$compiler OFF x86-64 -O3 -march=haswell -funsafe-math-optimizations"
    for level in -O0 -O1 -O2 -O3; do echo "$compiler ON aarch64 $level"; done
    echo "$compiler ON aarch64 -O3 -ffast-math -ffp-contract=fast"
    # Without AVX, so the copies that are chosen at run time must stay unused.
    echo "$compiler ON nehalem -O3"
  done
}

# check_build <number> <compiler> <simd> <processor> <flags>: writes the build's line of the table.
check_build() {
  local number=$1 compiler=$2 simd=$3 processor=$4 flags="${*:5}" build verdict
  build=$work/$number
  local options=(-DCMAKE_CXX_COMPILER="$compiler") run=(env LD_LIBRARY_PATH="$build" "$native")
  case $processor in
    nehalem) run=(qemu-x86_64 -cpu Nehalem -E LD_LIBRARY_PATH="$build" "$native") ;;
    aarch64)
      options=(-DCMAKE_TOOLCHAIN_FILE="$source/cmake/aarch64-linux-gnu.cmake")
      [ "$compiler" = g++ ] || options=(-DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=aarch64
        -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_COMPILER_TARGET=aarch64-linux-gnu
        -DCMAKE_C_COMPILER=clang -DCMAKE_C_COMPILER_TARGET=aarch64-linux-gnu)
      run=(qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH="$build" "$arm")
      ;;
  esac
  # A build type of its own name adds no flags to those given.
  if cmake -S "$work/source" -B "$build" -G Ninja "${options[@]}" -DCMAKE_BUILD_TYPE=Plain -DCMAKE_CXX_FLAGS="$flags" \
    -DKORVA_SIMD="$simd" -DKORVA_OPTIMIZE=OFF -DKORVA_BUILD_TESTS=OFF >"$build.log" 2>&1 &&
    cmake --build "$build" -j 1 >>"$build.log" 2>&1 && "${run[@]}" >"$build.digests" 2>>"$build.log"; then
    verdict=$({ diff "$expected" "$build.digests" || true; } | sed -n 's/^> [0-9a-f]*  /differs: /p' | paste -sd ' ')
  else
    verdict="failed: $(tail -n 1 "$build.log")"
  fi
  printf '%-8s %-9s %-9s %-42s %s\n' "$compiler" "$processor" "$([ "$simd" = ON ] && echo vector || echo baseline)" \
    "$flags" "${verdict:-equal}" >"$build.line"
  rm -rf "$build"
}

rm -rf "${work:?}"/*
# All builds take the same source, whatever happens to the tree meanwhile.
mkdir "$work/source"
cp -r "$source"/{CMakeLists.txt,cmake,include,src} "$work/source"
for plain in "env LD_LIBRARY_PATH=${native%/tests/*} $native" \
  "qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=${arm%/tests/*} $arm"; do
  # shellcheck disable=SC2086  # a command and its arguments
  $plain --plain | diff "$expected" - || { echo "The plain definitions give other digests than the stored ones."; exit 1; }
done

number=100
while read -r -a build; do
  while [ "$(jobs -pr | wc -l)" -ge "$(nproc)" ]; do wait -n; done
  number=$((number + 1))
  check_build $number "${build[@]}" &
done < <(builds)
wait

cat "$work"/*.line
total=$(cat "$work"/*.line | wc -l)
equal=$(cat "$work"/*.line | grep -c ' equal$' || true)
echo "$equal of $total builds equal the plain definitions in all $(wc -l <"$expected") routines"
[ "$equal" -eq "$total" ]
