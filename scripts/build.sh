#!/usr/bin/env bash
# Builds everything into build/mingw-release, or only the targets named: build.sh [TARGET...]
# Of the packages, the launcher alone (build.sh KVXLauncher) needs only the compiler's.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
groups=(build test)
[ "$*" != KVXLauncher ] || groups=(build)
scripts/install_packages.sh "${groups[@]}"
cmake --preset mingw-release
cmake --build --preset mingw-release ${1:+--target "$@"}
