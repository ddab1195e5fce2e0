#!/usr/bin/env bash
# Runs the tests of a build that is there already: run_ctest.sh PRESET [CTEST_ARGUMENT...]
# Those of a build for Windows run under Wine, on a display of their own.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
if [[ ${1:-} == native-* ]]; then
  preset=$1
  shift
  exec ctest --preset "$preset" --parallel "$(nproc)" "$@"
fi
if [ "${1:-}" != --inner ]; then
  exec scripts/with_display.sh scripts/run_ctest.sh --inner "$@"
fi
preset=$2
shift 2
# CTest lists the tests of each program first, and does not wait as long as a new prefix and its services take.
scripts/wine_run.sh cmd /c exit
# The desktop's own program lives while there are windows, and keeps the output open of the test that happens to start it.
scripts/wine_run.sh explorer /desktop </dev/null >/dev/null 2>&1 &
[ -n "${KVX_VECTORS:-}" ] || echo "KVX_VECTORS is not set: tests with published vectors are skipped"
# Most tests of the whole program wait more than they work.
exec ctest --preset "$preset" --parallel "${KVX_TEST_JOBS:-$(($(nproc) * 2))}" "$@"
