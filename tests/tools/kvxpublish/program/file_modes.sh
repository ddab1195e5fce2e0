#!/usr/bin/env bash
# file_modes.sh BUILD_FOLDER WORK_FOLDER
# What the tool writes under Wine can be read by a web server, and a private key by nobody else, whichever command comes
# first and whatever rights new files of that person have: the first one starts Wine's server, which makes the files of
# those that follow.
set -euo pipefail
export KVX_BUILD=$1
work=$2
kvxpublish=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../../.." && pwd)/scripts/kvxpublish
export KVX_WINEPREFIX=$work/wineprefix
export WINEPREFIX=$KVX_WINEPREFIX
trap 'wineserver -k 2>/dev/null || true' EXIT
mkdir -p "$work"; cd "$work"
rm -rf key-first pack-first
mkdir -p game
printf 'game' >game/game.exe

make_keys() { (umask 077 && "$kvxpublish" keygen --out "$1/keys/primary" >/dev/null 2>&1); }
pack() {
  (umask 002 && "$kvxpublish" pack game --out "$1/site" --channel live --version 1 --exe game.exe --unsigned \
    >/dev/null 2>&1)
}

failures=0
expect() {  # expect MODE FILE...
  local mode=$1 file
  shift
  for file in "$@"; do
    [ "$(stat -c %a "$file")" = "$mode" ] && continue
    echo "$file has the mode $(stat -c %a "$file"), expected $mode" >&2
    failures=1
  done
}

for first in key-first pack-first; do
  wineserver -k 2>/dev/null || true
  wineserver -w 2>/dev/null || true
  mkdir $first
  if [ $first = key-first ]; then make_keys $first; fi
  pack $first
  [ $first = key-first ] || make_keys $first
  expect 755 $first/site $first/site/files $first/site/history
  expect 644 $first/site/manifest.json $first/site/files/*
  expect 700 $first/keys/primary
  expect 600 $first/keys/primary/private_key.pem
done

# A folder that is there keeps its rights, and one that was made for nothing goes.
mkdir -m 755 key-first/open
"$kvxpublish" keygen --out key-first/open >/dev/null 2>&1
expect 755 key-first/open
expect 600 key-first/open/private_key.pem
if "$kvxpublish" keygen --out=key-first/new/one --name nobody 2>/dev/null; then failures=1; fi
[ ! -e key-first/new ] || failures=1
exit $failures
