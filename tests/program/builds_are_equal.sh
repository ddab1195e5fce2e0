#!/usr/bin/env bash
# builds_are_equal.sh SOURCE WORK: the two builds of build_twice.sh have the same bytes.
set -euo pipefail
cd "$2"
cmp first.exe second.exe
