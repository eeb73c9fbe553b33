#!/usr/bin/env bash
# Makes a clean Debian with nothing but a compiler, CMake and Python, and takes every way in there from the source
# archive, without a network. Usage: clean_root.sh <build folder> <work folder>
set -euo pipefail

build=$1
mkdir -p "$2"
work=$(cd "$2" && pwd)
if [ "$(id -u)" -ne 0 ]; then
  echo "skipped: only root makes a clean root" >&2
  exit 77
fi

rm -rf "${work:?}"/*
(cd "$build" && cpack --config CPackSourceConfig.cmake -B "$work")
mmdebstrap --quiet --variant=minbase \
  --include=g++,make,cmake,pkg-config,file,dpkg-dev,python3-{venv,pip,numpy,skbuild,build} \
  "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$work/root"
mkdir "$work/root/sources"
tar --extract --strip-components 1 --directory "$work/root/sources" --file "$work"/*.tar.xz
unshare --net --mount chroot "$work/root" env --ignore-environment PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
  HOME=/root LC_ALL=C.UTF-8 CMAKE_BUILD_PARALLEL_LEVEL="$(nproc)" \
  bash -c "cd /sources && tests/install/ways_in.sh"
lintian --allow-root --fail-on error "$work"/root/sources/build/*.deb
rm -rf "$work/root"
