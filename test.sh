#!/usr/bin/env bash
# Proves the library: builds it in several ways, runs every test and prints one line per step.
set -euo pipefail
cd "$(dirname "$0")"
# shellcheck source=scripts/prerequisites.sh
. scripts/prerequisites.sh

usage() {
  cat <<'USAGE'
Usage: ./test.sh [--deep] [STEP]...
Runs the quick steps, with --deep all of them, or the named ones. Full output lands in build/logs.
Quick: release clang asan tsan install python scripts reference
Deep:  huge digests valgrind msan interface coverage tidy random peers mutations (these build on release)
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
  [[ $selected == *" $name "* ]] || return 0
  # In the background, because errexit does not work inside a condition.
  (set -x; "step_$name") 3>&1 >"$log" 2>&1 &
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

# Copies lines to the log and, indented, to the terminal, above the step's own line.
show() {
  { set +x; } 2>/dev/null
  local line
  while IFS= read -r line; do
    printf '%s\n' "$line"
    printf '    %s\n' "$line" >&3
  done
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

step_scripts() {
  git ls-files -z '*.sh' .ci/run | xargs -0 shellcheck --shell=bash --external-sources
  python3 tests/deep/mutations.py --places
}

step_reference() { scripts/reference.sh; }

step_huge() {
  build release korva_tests
  for folder in build/release build/release/baseline; do
    LD_LIBRARY_PATH=$folder build/release/tests/korva_tests --gtest_filter='Lengthy*'
  done
}

step_digests() {
  build release korva_digests
  build aarch64 korva_digests
  tests/deep/digests.sh build/release/tests/deep/korva_digests build/aarch64/tests/deep/korva_digests build/digests | show
}

step_valgrind() {
  build release korva_digests
  build clang korva_reference_api
  # The vector copies that g++ makes hold a form of vmovq that valgrind 3.19 does not know; clang's do not.
  for folder in build/release/baseline build/clang; do
    LD_LIBRARY_PATH=$folder valgrind -q --error-exitcode=9 --leak-check=full build/release/tests/deep/korva_digests |
      diff tests/deep/digests.txt -
  done
}

step_msan() {
  mkdir -p build/msan
  # In one program: clang does not link its sanitizers into shared libraries, and Debian's GoogleTest is without them.
  clang++ -std=c++20 -O1 -g1 -fsanitize=memory -fsanitize-memory-track-origins -ffp-contract=off -Wno-psabi \
    -Iinclude -Itests src/*.cpp tests/deep/digests.cpp tests/support/{inputs,plain_definitions}.cpp \
    -o build/msan/digests
  build/msan/digests | diff tests/deep/digests.txt -
}

step_interface() {
  tests/deep/reproducible.sh build/reproducible | tee $logs/hashes.txt
  grep -E '^[0-9a-f]{64} ' $logs/hashes.txt | show
}

step_coverage() {
  build coverage korva_tests
  find build/coverage -name '*.gcda' -delete
  ctest --preset coverage -j "$jobs" -L '^korva_tests$'
  gcovr --root . --filter src/ build/coverage --txt $logs/coverage-lines.txt
  gcovr --root . --filter src/ build/coverage --txt $logs/coverage-branches.txt --branches --print-summary |
    grep -E '^(lines|branches)' | show
}

step_tidy() {
  build clang korva_reference_api
  printf '%s\0' src/*.cpp | xargs -0 -n 1 -P "$jobs" clang-tidy -p build/clang --quiet
}

step_random() {
  build release
  # The seed stands in the report of a failing case, with the command that runs it again.
  for _ in 1 2 3; do
    KORVA_SEED=$SRANDOM ctest --preset release -j "$jobs" -L '^korva_(tests|tests_baseline|threads_test)$'
  done
}

step_peers() { python/run_tests.sh --deep build/release/libkorva_reference_api.so.1.0; }

step_mutations() {
  build release
  python3 tests/deep/mutations.py build/release build/mutations | tee $logs/mutants.txt
  sed -n '/^[0-9]* of /,$p' $logs/mutants.txt | show
}

quick='release clang asan tsan install python scripts reference'
deep='huge digests valgrind msan interface coverage tidy random peers mutations'
selected=
for argument in "$@"; do
  case $argument in
    -h | --help) usage; exit ;;
    --deep) selected+=" $quick $deep" ;;
    *)
      [[ " $quick $deep " == *" $argument "* ]] || { usage >&2; exit 2; }
      selected+=" $argument"
      ;;
  esac
done
selected=" ${selected:-$quick} "

# shellcheck disable=SC2046  # a package name each
require_packages cmake ninja-build g++ clang libgtest-dev libcli11-dev python3-matplotlib pkg-config shellcheck doxygen git \
  $(cat python/packages.txt)
for name in $deep; do
  [[ $selected == *" $name "* ]] || continue
  # shellcheck disable=SC2046
  require_packages qemu-user g++-aarch64-linux-gnu googletest valgrind abigail-tools gcovr clang-tidy \
    $(cat python/packages-deep.txt)
  break
done

jobs=$(nproc)
mkdir -p $logs
step release 'g++: dispatched and baseline library, interface, loading'
step clang 'clang: the same'
step asan 'AddressSanitizer, UndefinedBehaviorSanitizer'
step tsan 'ThreadSanitizer: eight threads on shared inputs'
step install 'moved installation: find_package and pkg-config, C and C++ hosts'
step python 'the Python package on the release build'
step scripts 'shellcheck of all scripts, the places of the deliberate faults'
step reference 'every function of the header documented'
step huge 'runs of more than 2^32 samples, to their last one'
step digests 'one digest of each routine over compilers, levels, processors'
step valgrind 'valgrind: every routine, baseline and vector copies'
step msan 'MemorySanitizer: every routine'
step interface 'functions and types of release 1.0, same file from two folders'
step coverage 'coverage of src/ without vector copies'
step tidy 'clang-tidy of src/'
step random 'random cases with three fresh seeds'
step peers 'the Python package with large data and its peers'
step mutations 'deliberate faults are caught'

echo "$passed passed, $failed failed"
[ $failed -eq 0 ]
