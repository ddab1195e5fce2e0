#!/usr/bin/env bash
# The checks beside the tests: formatting, clang-tidy, a second compiler, whose build that traps undefined behaviour
# passes the unit tests, and sanitizers, under which what also compiles for this machine passes its own. Each finding is
# an error.
#   lint.sh [format] [build] [unit] [sanitize] [tidy]     (by default all of them, in this order)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/timed.sh
scripts/install_packages.sh build test lint
[ $# -gt 0 ] || set -- format build unit sanitize tidy
build=build/mingw-clang-ubtrap

check_format() {
  git ls-files -z --cached --others --exclude-standard '*.h' '*.cpp' | xargs -0 clang-format --dry-run -Werror
}

configure() { cmake --preset mingw-clang-ubtrap >/dev/null; }

build_with_clang() {
  configure
  cmake --build "$build" --target KVXLauncher kvxpublish trust_ca sample_game unit_tests
}

# With a prefix of their own, so that other tests may run at the same time.
run_unit_tests() { KVX_WINEPREFIX=$PWD/$build/wineprefix scripts/run_ctest.sh mingw-clang-ubtrap -L '^unit$'; }

run_sanitized_tests() {
  cmake --preset native-sanitize >/dev/null
  cmake --build --preset native-sanitize
  scripts/run_ctest.sh native-sanitize
}

check_tidy() {
  configure
  cmake --preset native-sanitize >/dev/null
  scripts/tidy.py
}

for name in "$@"; do
  case $name in
    format) timed "clang-format" check_format ;;
    build) timed "clang build" build_with_clang ;;
    unit) timed "unit tests of the clang build" run_unit_tests ;;
    sanitize) timed "tests under sanitizers" run_sanitized_tests ;;
    tidy) timed "clang-tidy" check_tidy ;;
    *) echo "lint.sh: no such check: $name" >&2; exit 2 ;;
  esac
done
echo "== no findings"
