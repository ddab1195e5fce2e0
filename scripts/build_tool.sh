#!/usr/bin/env bash
# Builds the publisher's tool for this machine: build/native-release/kvxpublish
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/install_packages.sh tool
[ -e build/native-release/build.ninja ] || cmake --preset native-release
cmake --build --preset native-release --target kvxpublish
