#!/usr/bin/env bash
# Builds the library in one way and runs the tests on it, some of the cases where the processor is emulated.
# Usage: check_build.sh <work folder> <compiler> <KORVA_SIMD> <x86-64|nehalem|aarch64> <flags>...
set -euo pipefail

build=$1 compiler=$2 level=$3 processor=$4 flags="${*:5}"
options=(-DCMAKE_CXX_COMPILER="$compiler") programs=build/release/tests run=() every=4 left_out='Lengthy*'
# qemu refuses a system call for more bytes than there are.
[ "$processor" = x86-64 ] || { left_out+=:RawFiles.CountsKeepTheirHighBits && every=100; }
# Without optimisation every variable lies on the stack.
[[ $flags != *-O0* ]] || export KORVA_ANY_STACK=1
case $processor in
  nehalem)
    # Without AVX, so the copies that are chosen at run time must stay unused.
    run=(qemu-x86_64 -cpu Nehalem)
    ;;
  aarch64)
    options=(-DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/aarch64-linux-gnu.cmake")
    [ "$compiler" = g++ ] || options=(-DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=aarch64
      -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_COMPILER_TARGET=aarch64-linux-gnu)
    programs=build/aarch64/tests run=(qemu-aarch64 -L /usr/aarch64-linux-gnu)
    ;;
esac

rm -rf "$build"
# A build type of its own name adds no flags to those given.
cmake -S . -B "$build" -G Ninja "${options[@]}" -DCMAKE_BUILD_TYPE=Plain -DCMAKE_CXX_FLAGS="$flags" \
  -DKORVA_SIMD="$level" -DKORVA_OPTIMIZE=OFF -DKORVA_BUILD_TESTS=OFF
cmake --build "$build" -j 1
export LD_LIBRARY_PATH=$build KORVA_EVERY=$every
"${run[@]}" "$programs/korva_tests" --gtest_brief=1 --gtest_filter="-$left_out"
rm -rf "$build"
