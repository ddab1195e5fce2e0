#!/usr/bin/env bash
# Formats all C++ files in place.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/install_packages.sh lint
git ls-files -z --cached --others --exclude-standard '*.h' '*.cpp' | xargs -0 clang-format -i
