#!/usr/bin/env bash
# Builds everything into build/mingw-release, or only the targets named: build.sh [TARGET...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/install_packages.sh build test
cmake --preset mingw-release
cmake --build --preset mingw-release ${1:+--target "$@"}
