#!/usr/bin/env bash
# Makes the reference of the public header: build/reference/html/index.html. Fails when a function is not documented.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/prerequisites.sh
. scripts/prerequisites.sh
require_packages doxygen

version_part() { sed -n "s/^#define KORVA_REFERENCE_API_VERSION_$1 //p" include/korva_reference_api.h; }
KORVA_VERSION=$(version_part MAJOR).$(version_part MINOR).$(version_part PATCH)
export KORVA_VERSION
mkdir -p build/reference
doxygen docs/Doxyfile
echo "build/reference/html/index.html"
