#!/usr/bin/env bash
# Checks what a built library shows to the dynamic linker: its exports, imports, needed libraries and name.
# Usage: check_library.sh <library file>
set -euo pipefail
export LC_ALL=C

library=${1:?usage: check_library.sh <library file>}
expected_exports=$(dirname "${BASH_SOURCE[0]}")/exported_symbols.txt
failures=0

# Prints the lines that differ between an expected and a found list, if any.
compare() {
  local what=$1 expected=$2 found=$3
  if ! diff <(printf '%s\n' "$expected") <(printf '%s\n' "$found") >/dev/null; then
    echo "$library: $what differ (< expected, > found):"
    diff <(printf '%s\n' "$expected") <(printf '%s\n' "$found") | grep '^[<>]' || true
    failures=$((failures + 1))
  fi
}

dynamic_entries() {
  readelf --dynamic --wide "$library" | sed -n "s/.*($1).*\[\(.*\)\]/\1/p"
}

exports=$(nm --dynamic --defined-only --format=posix "$library" | cut -d' ' -f1 | sort)
compare "exported symbols" "$(sort "$expected_exports")" "$exports"

# The memory and file functions of the C library, and what every start-up object refers to.
allowed='malloc|free|memcpy|memmove|memset|strlen|fopen|fread|fwrite|fclose'
startup='__cxa_finalize|__gmon_start__|_ITM_deregisterTMCloneTable|_ITM_registerTMCloneTable'
foreign=$(nm --dynamic --undefined-only --format=posix "$library" | cut -d' ' -f1 | sed 's/@.*//' |
  grep -Evx "$allowed|$startup" | sort || true)
compare "imported symbols" "" "$foreign"

compare "needed libraries" "libc.so.6" "$(dynamic_entries NEEDED)"
compare "shared object names" "libkorva_reference_api.so.1.0" "$(dynamic_entries SONAME)"

data=$(nm --dynamic --format=posix "$library" | awk '$2 ~ /^[BbDdRr]$/ {print $1}')
compare "exported data objects" "" "$data"

# Writable or thread-local data would be state, but for what the compilers' start-up code keeps.
compilers='completed\.[0-9]+|__dso_handle|__TMC_END__|__cpu_model|__cpu_features2|[$]d|\.data|\.bss'
state=$(objdump --syms "$library" | awk '/ \.t?(bss|data)(\.[^\t]*)?\t/ {print $NF}' |
  grep -Evx "$compilers" | sort || true)
compare "writable data objects" "" "$state"

exit "$((failures > 0))"
