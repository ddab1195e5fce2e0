#!/usr/bin/env bash
# without_packages.sh SOURCE WORK: where the packages of the tools and tests are missing, the launcher is configured and can
# be built; a build of all and a run of the tests fail and name the packages.
set -euo pipefail
source=$1
work=$2.packages
rm -rf "$work"; mkdir -p "$work"
cd "$source"
missing="needs the Debian packages libcli11-dev nlohmann-json3-dev googletest"

fail() { printf '%s\n' "$@" >&2; exit 1; }
fails() {  # fails COMMAND...: and names the packages
  local output
  ! output=$("$@" 2>&1 | tr -s ' \n' ' '; exit "${PIPESTATUS[0]}") || fail "went through: $*"
  [[ $output = *"$missing"* ]] || fail "$*: expected \"$missing\" in:" "$output"
}

cmake --preset mingw-release -B "$work/build" -DKVX_PACKAGES_ROOT="$work/none" >/dev/null
# build_twice.sh builds it in earnest.
steps=$(cmake --build "$work/build" --target KVXLauncher -- -n)
[[ $steps = *"Linking CXX executable KVXLauncher.exe"* ]] || fail "KVXLauncher is not linked:" "$steps"
fails cmake --build "$work/build" --target missing_packages
steps=$(cmake --build "$work/build" -- -n -v)
[[ $steps = *"$missing"* ]] || fail "a build of all does not say what is missing:" "$steps"
fails ctest --test-dir "$work/build" --output-on-failure
