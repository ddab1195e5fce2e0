#!/usr/bin/env bash
# Builds everything: for Windows into build/mingw-release, and what also compiles for this machine into
# build/native-release. With targets, only these and only for Windows: build.sh [TARGET...]
# Of the packages, the launcher alone (build.sh KVXLauncher) needs only the compiler's.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
groups=(build test)
[ "$*" != KVXLauncher ] || groups=(build)
scripts/install_packages.sh "${groups[@]}"
cmake --preset mingw-release
cmake --build --preset mingw-release ${1:+--target "$@"}
[ $# = 0 ] || exit 0
cmake --preset native-release
cmake --build --preset native-release
