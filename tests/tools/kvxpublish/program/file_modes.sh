#!/usr/bin/env bash
# file_modes.sh BUILD_FOLDER WORK_FOLDER
# New files have the rights that the user's umask leaves them, and a private key is for nobody else whatever it is.
set -euo pipefail
export KVX_BUILD=$1
work=$2
kvxpublish=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../../.." && pwd)/scripts/kvxpublish
rm -rf "$work"; mkdir -p "$work/game"; cd "$work"
printf 'game' >game/game.exe

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

for mask in 002 022 077; do
  mkdir $mask
  (
    umask $mask
    "$kvxpublish" keygen --out $mask/keys >/dev/null 2>&1
    "$kvxpublish" pack game --out $mask/site --channel live --version 1 --exe game.exe --unsigned >/dev/null 2>&1
  )
  expect "$(printf %o $((0777 & ~0$mask)))" $mask/site $mask/site/files $mask/site/history $mask/keys
  expect "$(printf %o $((0666 & ~0$mask)))" $mask/site/manifest.json $mask/site/files/* $mask/keys/public_key.pem
  expect 600 $mask/keys/private_key.pem
done

# A folder that is there keeps its rights, and one that was made for nothing goes.
mkdir -m 755 open
"$kvxpublish" keygen --out open >/dev/null 2>&1
expect 755 open
expect 600 open/private_key.pem
if "$kvxpublish" keygen --out=new/one --name nobody 2>/dev/null; then failures=1; fi
[ ! -e new ] || failures=1
exit $failures
