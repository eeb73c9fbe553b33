#!/usr/bin/env bash
# Builds the library from two copies of the source in folders of different names, compares the files byte for byte, and
# compares the functions and types of one of them with the stored ones of release 1.0.
#
# Usage: reproducible.sh <work folder>
#
# A release that changes the interface on purpose stores its own description:
#   reproducible.sh build/reproducible; cp build/reproducible/abi.xml tests/deep/abi-<version>.xml
set -euo pipefail

source=$(cd "$(dirname "$0")/../.." && pwd)
mkdir -p "$1"
work=$(cd "$1" && pwd)
rm -rf "${work:?}"/*

mkdir -p "$work/first" "$work/second/at/another"
cp -r "$source"/{CMakeLists.txt,cmake,include,src} "$work/first"
cp -r "$work/first" "$work/second/at/another/depth"
for folder in "$work/first" "$work/second/at/another/depth"; do
  cmake -S "$folder" -B "$folder/build" -G Ninja -DKORVA_BUILD_TESTS=OFF \
    -DCMAKE_CXX_FLAGS="-g -ffile-prefix-map=$folder=."
  cmake --build "$folder/build"
done
first=$work/first/build/libkorva_reference_api.so.1.0
second=$work/second/at/another/depth/build/libkorva_reference_api.so.1.0
sha256sum "$first" "$second"
cmp "$first" "$second"

abidw --no-corpus-path --no-comp-dir-path --no-show-locs --exported-interfaces-only --drop-undefined-syms \
  --drop-private-types --headers-dir "$source/include" --out-file "$work/abi.xml" "$first"
abidiff "$source/tests/deep/abi-1.0.xml" "$work/abi.xml"
