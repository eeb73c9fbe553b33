#!/usr/bin/env bash
# Proves the library: builds it in several ways, runs every test and prints one line per step.
set -euo pipefail
cd "$(dirname "$0")"
# shellcheck source=scripts/prerequisites.sh
. scripts/prerequisites.sh

usage() {
  cat <<'USAGE'
Usage: ./test.sh [STEP]...
Runs all steps, or the named ones. Full output lands in build/logs.
Steps: release clang asan tsan install python scripts reference
USAGE
}

logs=build/logs passed=0 failed=0

# Prints the numbers of passed and failed tests that CTest and pytest reported in a log.
count_tests() {
  awk '/ tests failed out of / { failed += $4; passed += $NF - $4 }
       /^[0-9]+ (passed|failed).* in [0-9.]+s/ { for (i = 2; i < NF; i++) count[$i] = $(i - 1) }
       END { print passed + count["passed"] + count["passed,"], failed + count["failed"] + count["failed,"] }' "$1"
}

# step <name> <what it proves>: runs the function of that name quietly and reports its tests and its time.
step() {
  local name=$1 what=$2 log=$logs/$1.txt started=$SECONDS good bad verdict=ok
  [[ " $selected " == *" $name "* ]] || return 0
  # In the background, because errexit does not work inside a condition.
  (set -x; "step_$name") >"$log" 2>&1 &
  wait $! || verdict=FAILED
  read -r good bad <<<"$(count_tests "$log")"
  # A step without tests of its own counts as one, and so does the failure of anything but a test.
  [ $verdict = FAILED ] || [ "$good" -gt 0 ] || good=1
  [ $verdict = ok ] || [ "$bad" -gt 0 ] || bad=1
  passed=$((passed + good)) failed=$((failed + bad))
  printf '%-10s %-66s %4s tests %4s s  %s\n' "$name" "$what" $((good + bad)) $((SECONDS - started)) "$verdict"
  [ $verdict = ok ] || { echo "--- the end of $log:"; tail -n 40 "$log"; }
}

# build <preset> [target]: all targets, or one.
build() {
  cmake --preset "$1"
  cmake --build --preset "$1" -j "$jobs" ${2:+--target "$2"}
}

step_release() {
  build release
  ctest --preset release -j "$jobs"
}

step_clang() {
  build clang
  ctest --preset clang -j "$jobs"
}

step_asan() {
  build asan korva_tests
  ctest --preset asan -j "$jobs" -L '^korva_tests$'
}

step_tsan() {
  build tsan korva_threads_test
  # The runtime of g++ 12 does not know the address layouts of newer kernels.
  local fixed_addresses=(setarch --addr-no-randomize)
  "${fixed_addresses[@]}" true || fixed_addresses=()
  "${fixed_addresses[@]}" ctest --preset tsan
}

step_install() { tests/install/run.sh build/release build/install; }

step_python() { python/run_tests.sh build/release/libkorva_reference_api.so.1.0; }

step_scripts() { git ls-files -z '*.sh' .ci/run | xargs -0 shellcheck --shell=bash --external-sources; }

step_reference() { scripts/reference.sh; }

steps='release clang asan tsan install python scripts reference'
for argument in "$@"; do
  case $argument in
    -h | --help) usage; exit ;;
  esac
  [[ " $steps " == *" $argument "* ]] || { usage >&2; exit 2; }
done
selected=${*:-$steps}

# shellcheck disable=SC2046  # a package name each
require_packages cmake ninja-build g++ clang libgtest-dev pkg-config shellcheck doxygen git $(cat python/packages.txt)

jobs=$(nproc)
mkdir -p $logs
step release 'g++: dispatched and baseline library, interface, loading'
step clang 'clang: the same'
step asan 'AddressSanitizer, UndefinedBehaviorSanitizer'
step tsan 'ThreadSanitizer: eight threads on shared inputs'
step install 'moved installation: find_package and pkg-config, C and C++ hosts'
step python 'the Python package on the release build'
step scripts 'shellcheck of all scripts'
step reference 'every function of the header documented'

echo "$passed passed, $failed failed"
[ $failed -eq 0 ]
