#!/usr/bin/env bash
# The checks that need no run of the program: formatting, clang-tidy, and a second compiler, whose build that traps
# undefined behaviour passes the unit tests. Each finding is an error.
#   lint.sh [format] [build] [tidy] [unit]     (by default all of them, in this order)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/install_packages.sh build test lint
[ $# -gt 0 ] || set -- format build tidy unit
build=build/mingw-clang-ubtrap

sources() { git ls-files -z --cached --others --exclude-standard "$@"; }
step() { printf '== %s\n' "$*"; }

check_format() {
  step "clang-format"
  sources '*.h' '*.cpp' | xargs -0 clang-format --dry-run -Werror
}

build_with_clang() {
  step "clang build"
  cmake --preset mingw-clang-ubtrap >/dev/null
  cmake --build "$build"
}

tidy() {  # tidy CHECKS: over the files whose names come in
  # The count of what it passed over in other people's headers is no finding.
  xargs -0 -P "$(nproc)" -n 3 clang-tidy --quiet --checks="$1" -p "$build" \
    2> >(grep -vE '^[0-9]+ warnings? generated' >&2)
}

check_tidy() {
  step "clang-tidy"
  cmake --preset mingw-clang-ubtrap >/dev/null
  sources '*.cpp' ':!tests' | tidy ''
  # The static analyzer follows GoogleTest's macros down every path, which takes longer than all else together.
  sources 'tests/*.cpp' | tidy '-clang-analyzer-*'
}

run_unit_tests() {
  step "unit tests of the clang build"
  scripts/run_ctest.sh mingw-clang-ubtrap -L '^unit$'
}

for name in "$@"; do
  case $name in
    format) check_format ;;
    build) build_with_clang ;;
    tidy) check_tidy ;;
    unit) run_unit_tests ;;
    *) echo "lint.sh: no such check: $name" >&2; exit 2 ;;
  esac
done
step "no findings"
