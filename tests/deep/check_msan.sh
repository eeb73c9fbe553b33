#!/usr/bin/env bash
# Runs the tests with the library under clang's MemorySanitizer, in one program: clang does not link its sanitizers into
# shared libraries. The tests and GoogleTest take all they read for initialised, and all they write becomes it.
# Usage: check_msan.sh <work folder>
set -euo pipefail

googletest=/usr/src/googletest/googletest
rm -rf "$1"
mkdir -p "$1"
echo 'src:*' >"$1/ignored.txt"
compile() {
  printf '%s\0' "${@:2}" | xargs -0 -P "$(nproc)" -I{} bash -c "clang++ -std=c++20 -O1 -g1 -fsanitize=memory \
    -fsanitize-memory-track-origins -ffp-contract=off -Wno-psabi -Iinclude -Itests -I$googletest $1 -c {} -o $folder/\$(basename {}).o"
}
folder=$1
compile '' src/*.cpp
compile "-fsanitize-ignorelist=$folder/ignored.txt" tests/*_test.cpp tests/support/*.cpp $googletest/src/gtest{-all,_main}.cc
clang++ -fsanitize=memory "$folder"/*.o -o "$folder/tests"
# strlen is given names that the C++ library wrote.
MSAN_OPTIONS=intercept_strlen=0 KORVA_EVERY=20 "$folder/tests" --gtest_brief=1 --gtest_filter='-Lengthy*'
