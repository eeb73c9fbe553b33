#!/usr/bin/env bash
# Installs a built library, shared or static, moves the installation and builds hosts against it in the ways that hosts
# use. Usage: run.sh <build folder> <work folder>
set -euo pipefail

source=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$source/../.." && pwd)
build=$1
mkdir -p "$2"
work=$(cd "$2" && pwd)
moved=$work/moved
warnings=(-Wall -Wextra -Wpedantic -Wcast-qual -Werror)

# expect <output> <command>...: the command must succeed and print exactly this.
expect() {
  local expected=$1 found
  shift
  found=$("$@")
  [ "$found" = "$expected" ] || { echo "$*: expected '$expected', found '$found'" >&2; exit 1; }
}

rm -rf "${work:?}"/*
cmake --install "$build" --prefix "$work/prefix"
mv "$work/prefix" "$moved"
library=$(find "$moved" -name libkorva_reference_api.so.1.0 -o -name libkorva_reference_api.a)
libraries=$(dirname "$library")
version=$(sed -n 's/^Version: //p' "$libraries/pkgconfig/korva_reference_api.pc")

echo "The file tells its release; no file of the installation names a folder of the build or of the first prefix."
expect "korva_reference_api release $version" grep -aom 1 'korva_reference_api release [0-9.]*' "$library"
if grep -rF -e "$work/prefix" -e "$(cd "$build" && pwd)" "$moved"; then exit 1; fi

echo "find_package, and not with another major version."
hosts=$work/find_package
cmake -S "$source" -B "$hosts" -DCMAKE_PREFIX_PATH="$moved" -DCMAKE_C_FLAGS="${warnings[*]}" \
  -DCMAKE_CXX_FLAGS="${warnings[*]}"
cmake --build "$hosts"
expect "$version: 5 6 9 10" "$hosts/c_host"
expect "5 6 9 10" "$hosts/const_host"
expect "5 6 9 10" "$hosts/cpp_host"
if cmake -S "$source" -B "$work/other" -DCMAKE_PREFIX_PATH="$moved" -DKORVA_VERSION=2.0 >"$work/other.log" 2>&1; then
  exit 1
fi
grep -F 'compatible with requested version "2.0"' "$work/other.log"

echo "pkg-config, in C alone and in C++."
export PKG_CONFIG_PATH=$libraries/pkgconfig
static=()
[[ $library == *.so* ]] || static=(--static)
read -ra flags <<<"$(pkg-config "${static[@]}" --cflags --libs korva_reference_api)"
gcc -std=c99 "${warnings[@]}" "$source/c_host.c" -o "$work/c_host" "${flags[@]}"
g++ -std=c++11 "${warnings[@]}" "$source/cpp_host.cpp" -o "$work/cpp_host" "${flags[@]}"
expect "$version: 5 6 9 10" env LD_LIBRARY_PATH="$libraries" "$work/c_host"
expect "5 6 9 10" env LD_LIBRARY_PATH="$libraries" "$work/cpp_host"

echo "The host program, its command line and what it prints as they stand in the README."
mkdir "$work/readme"
awk '/^```/ {inside = !inside && $0 == "```cpp" && !seen++; next} inside' "$root/README.md" >"$work/readme/host.cpp"
command=$(grep -m 1 '^g++ host.cpp' "$root/README.md")
(cd "$work/readme" && eval "$command" && LD_LIBRARY_PATH=$libraries ./host >printed)
grep -xF -f "$work/readme/printed" "$root/README.md"

if [[ $library == *.a ]]; then
  echo "A static library has the symbols of the shared one, and hides the others."
  expect "$(sed -n 's/^ *\([A-Z_].*\);/\1/p' "$root/src/korva_reference_api.map" | LC_ALL=C sort)" \
    bash -c "nm -g --defined-only -f posix '$library' | sed -n 's/ T .*//p' | LC_ALL=C sort"
  exit
fi

echo "The file alone beside a host is enough to run it."
mkdir "$work/alone"
cp "$library" "$work/c_host" "$work/alone"
expect "$version: 5 6 9 10" env LD_LIBRARY_PATH="$work/alone" "$work/alone/c_host"

echo "Kernels are optimised in every build type of a host that has the project as a part, unless it asks otherwise."
for type in "" Debug MinSizeRel RelWithDebInfo; do
  cmake -S "$source" -B "$work/part" -DKORVA_SOURCE="$root" -DCMAKE_BUILD_TYPE=$type -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
  levels=$(sed -n '/command.*korva_reference_api.dir/ s/.* \(-O[^ ]*\) .*/\1/p' "$work/part/compile_commands.json" | uniq)
  expect "-O3" echo "$levels"
done
