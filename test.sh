#!/usr/bin/env bash
# Proves the library: CTest runs the steps that tests/steps/CMakeLists.txt describes.
set -euo pipefail
cd "$(dirname "$0")"
# shellcheck source=scripts/prerequisites.sh
. scripts/prerequisites.sh
require_packages cmake make

cmake -S tests/steps -B build/steps -G 'Unix Makefiles' >/dev/null
steps=(-L quick) names=()
for argument in "$@"; do
  case $argument in
    -h | --help)
      echo 'Usage: ./test.sh [--deep] [STEP]...'
      echo 'Runs the quick steps, with --deep all of them, or the named ones:'
      for label in quick deep; do
        echo "$label:"
        ctest --test-dir build/steps -N -L $label -FA . | sed -n 's/.*Test *#[0-9]*: /  /p'
      done
      exit
      ;;
    --deep) steps=() ;;
    *) names+=("$argument") ;;
  esac
done
[ ${#names[@]} -eq 0 ] || steps=(-R "^($(IFS='|' && echo "${names[*]}"))(:|$)")

# For the builds and the tests within a step.
CMAKE_BUILD_PARALLEL_LEVEL=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL CTEST_PARALLEL_LEVEL=$CMAKE_BUILD_PARALLEL_LEVEL
status=0
ctest --test-dir build/steps "${steps[@]}" -j "$(nproc)" --no-tests=error --output-on-failure --no-label-summary \
  --output-log build/steps/log.txt || status=$?
grep ' tests passed, ' build/steps/log.txt || true
exit "$status"
