#!/usr/bin/env bash
# Builds all and runs every test: test.sh [CTEST_ARGUMENT...], for example test.sh -R manifest
# Ends with CTest's summary and its exit code.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/timed.sh
timed "build" scripts/build.sh
echo "== tests of what also compiles for this machine"
scripts/run_ctest.sh native-release "$@"
echo "== tests"
exec scripts/run_ctest.sh mingw-release "$@"
