#!/usr/bin/env bash
# exit_codes.sh BUILD_FOLDER WORK_FOLDER
# The finished publisher's tool: its exit code, and which of its two streams speaks.
set -euo pipefail
export KVX_BUILD=$1
work=$2
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
rm -rf "$work"; mkdir -p "$work/game/sub dir" "$work/bad/Saved"; cd "$work"
printf 'game' >game/game.exe
printf 'ü' >"game/sub dir/名前.txt"
printf 'x' >bad/Saved/x

failures=0
expect() {  # expect CODE STREAM PATTERN ARGUMENT...: the stream matches, the other is empty
  local code=$1 stream=$2 pattern=$3 actual=0 other
  shift 3
  "$root/scripts/kvxpublish" "$@" >out.txt 2>err.txt || actual=$?
  [ "$stream" = out ] && other=err || other=out
  if [ "$actual" != "$code" ] || ! grep -qP "$pattern" "$stream.txt" || [ -s "$other.txt" ]; then
    echo "kvxpublish $*: exit code $actual, expected $code with \"$pattern\" on std$stream alone" >&2
    cat out.txt err.txt >&2
    failures=1
  fi
}

key=$root/keys/development/primary.pem
pack=(--channel live --version 1 --exe game.exe)
expect 0 out '^Usage: kvxpublish ' --help
expect 0 out '^  kvxpublish pack .*--key primary.pem$' pack --help
expect 0 out '^  kvxpublish sign site --key primary.pem$' sign --help
expect 0 out '^serial=1$' pack game --out "the site" "${pack[@]}" --key "$key" --arg=--full --arg '/one two'
expect 0 out '^key=1ef5b9d93b368184$' sign "the site" --key "$key"
expect 1 err '^kvxpublish: .*none: there is no such folder$' pack none --out site "${pack[@]}"
expect 2 err '^kvxpublish: A subcommand is required'
expect 2 err '^kvxpublish: --out is required' pack game "${pack[@]}"
expect 2 err '^kvxpublish: --key: 1 required PEM missing' sign "the site" --key=
expect 2 err '^kvxpublish: --key: the path is empty' sign "the site" --key ''
expect 3 err "rejected path \"Saved/x\": user data folder 'Saved' is never managed$" pack bad --out site "${pack[@]}"
expect 6 err 'game\\game.exe: the key is not a PEM private key$' sign "the site" --key game/game.exe

grep -q '"path": "sub dir/名前.txt"' "the site/manifest.json"
grep -q '"/one two"' "the site/manifest.json"
[ ! -e site ]
exit $failures
