#!/usr/bin/env bash
# Every test that edge_cases.tsv names exists in the build: edge_cases_exist.sh BUILD_FOLDER
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# CTest knows scripts and the tests that run one by one, and has the programs list what is in the suites.
known=$(
  ctest --test-dir "$1" -N | sed -n 's/ *# GetParam.*//; s/^ *Test *#[0-9]*: //p'
  cat "$1"/test_lists/*.txt | tr -d '\r' | awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }'
)
rows=0 missing=0
while IFS=$'\t' read -r file test behaviour rest; do
  rows=$((rows + 1))
  if [ -z "$file" ] || [ -z "$test" ] || [ -z "$behaviour" ] || [ -n "$rest" ]; then
    echo "row $rows has not three fields: $file | $test | $behaviour"
    missing=$((missing + 1))
  elif [ ! -e "$here/../$file" ]; then
    echo "row $rows names a file that is not there: $file"
    missing=$((missing + 1))
  # A name stands alone, or after its program's name and a dot; a parameterised test adds its number.
  elif ! grep -qE "(^|[./])${test//./\\.}(/|\$)" <<<"$known"; then
    echo "row $rows names a test that is not there: $test"
    missing=$((missing + 1))
  fi
done < <(grep -v '^#' "$here/edge_cases.tsv")
[ "$rows" -gt 0 ] || { echo "edge_cases.tsv is empty"; exit 1; }
echo "$rows rows, $missing wrong"
[ "$missing" -eq 0 ]
