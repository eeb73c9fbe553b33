#!/usr/bin/env bash
# Checks what a built library shows to the dynamic linker: its exports, imports, needed libraries and name; and that the
# header, which is the list of all functions, the library's symbol map and the plain definitions name the same ones.
# Usage: check_library.sh <library file>
set -euo pipefail
export LC_ALL=C

library=${1:?usage: check_library.sh <library file>}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
header=$root/include/korva_reference_api.h
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

exported=$(nm --dynamic --defined-only --format=posix "$library" | cut -d' ' -f1)
compare "exported symbols" "$(grep -oE '^ +\w+;' "$root/src/korva_reference_api.map" | tr -d ' ;' | sort)" \
  "$(sort <<<"$exported")"

declared=$(sed -n 's/^KORVA_API .*\(KORVA_Ref_[A-Za-z0-9_]*\)(.*/\1/p' "$header")
compare "functions of the header and exported ones" "$(c++filt <<<"$exported" | sed 's/(.*//' | sort)" \
  "$(sort <<<"$declared")"
compare "processing routines and plain definitions" \
  "$(grep -vE 'Array|Buffer_|Buffers_|RawData' <<<"$declared" | grep -E '_[a-z0-9]+$|DM_' | sed 's/KORVA_Ref_//' | sort)" \
  "$(grep -oE 'routine\(\w+,' "$root/tests/support/plain_definitions.h" | sed 's/routine(//; s/,//' | sort)"
compare "functions without a comment" "" "$(awk '/^KORVA_API/ && last !~ /\*\/$/; {last = $0}' "$header")"

# The memory and file functions of the C library, and what every start-up object refers to.
allowed='malloc|free|memcpy|memmove|memset|strlen|fopen|fread|fwrite|fclose'
startup='__cxa_finalize|__gmon_start__|_ITM_deregisterTMCloneTable|_ITM_registerTMCloneTable'
foreign=$(nm --dynamic --undefined-only --format=posix "$library" | cut -d' ' -f1 | sed 's/@.*//' |
  grep -Evx "$allowed|$startup" | sort || true)
compare "imported symbols" "" "$foreign"

compare "needed libraries" "libc.so.6" "$(dynamic_entries NEEDED)"
compare "shared object names" "libkorva_reference_api.so.1.0" "$(dynamic_entries SONAME)"

# Writable or thread-local data would be state, but for what the compilers' start-up code keeps.
compilers='completed\.[0-9]+|__dso_handle|__TMC_END__|__cpu_model|__cpu_features2|[$]d|\.data|\.bss'
state=$(objdump --syms "$library" | awk '/ \.t?(bss|data)(\.[^\t]*)?\t/ {print $NF}' |
  grep -Evx "$compilers" | sort || true)
compare "writable data objects" "" "$state"

exit "$((failures > 0))"
