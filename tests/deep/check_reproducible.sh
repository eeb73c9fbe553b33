#!/usr/bin/env bash
# Builds the library from two copies of the source in folders of different names and compares the files byte for byte.
# Usage: check_reproducible.sh <work folder>
set -euo pipefail

rm -rf "$1"
for folder in "$1/first" "$1/second/at/another/depth"; do
  mkdir -p "$folder"
  cp -r CMakeLists.txt cmake include src README.md CHANGELOG.md "$folder"
  cmake -S "$folder" -B "$folder/build" -G Ninja -DKORVA_BUILD_TESTS=OFF \
    -DCMAKE_CXX_FLAGS="-g -ffile-prefix-map=$(realpath "$folder")=."
  cmake --build "$folder/build"
done
sha256sum "$1"/*/build/*.so.1.0 "$1"/*/*/*/*/build/*.so.1.0
cmp "$1"/first/build/*.so.1.0 "$1"/second/at/another/depth/build/*.so.1.0
