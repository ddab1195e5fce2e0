#!/usr/bin/env bash
# exit_codes.sh BUILD_FOLDER WORK_FOLDER
# The finished publisher's tool: its exit code, and which of its two streams speaks.
set -euo pipefail
export KVX_BUILD=$1
work=$2
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../../.." && pwd)
rm -rf "$work"; mkdir -p "$work/game/sub dir" "$work/bad/Saved"; cd "$work"
printf 'game' >game/game.exe
printf 'ü' >"game/sub dir/名前.txt"
printf 'x' >bad/Saved/x

failures=0
# expect CODE STREAM PATTERN ARGUMENT...: the stream matches. The other is empty; after success standard error may have
# notes and the next step.
expect() {
  local code=$1 stream=$2 pattern=$3 actual=0
  shift 3
  "$root/scripts/kvxpublish" "$@" >out.txt 2>err.txt || actual=$?
  if [ "$stream" = out ]; then grep -vE '^(note|next): ' err.txt >other.txt || true; else cp out.txt other.txt; fi
  if [ "$actual" != "$code" ] || ! grep -qaP "$pattern" "$stream.txt" || [ -s other.txt ]; then
    echo "kvxpublish $*: exit code $actual, expected $code with \"$pattern\" on std$stream alone" >&2
    cat out.txt err.txt >&2
    failures=1
  fi
}

key=$root/keys/development/primary.pem
pack=(--channel live --version 1 --exe game.exe)
expect 0 out '^Usage: kvxpublish ' --help
for command in keygen pubkey pack sign digest attach; do
  expect 0 out "^  kvxpublish $command " "$command" --help
done
expect 0 out '^serial=1$' pack game --out "the site" "${pack[@]}" --key "$key" --arg=--full --arg '/one two'
expect 0 out '^key=1ef5b9d93b368184$' sign "the site" --key "$key"
expect 0 out '^\{"channel":"live","serial":1,"key":"1ef5b9d93b368184"\}$' sign "the site" --key "$key" --json
expect 0 out '^sha256=[0-9a-f]{64}$' digest "the site" --out digest.bin
expect 0 out '^public_line=backup [0-9a-f]{16} [0-9a-f]{128}$' keygen --out keys --name backup
expect 0 out '^identifier=1ef5b9d93b368184$' pubkey "$key"
tail -c +17 "the site/manifest.sig" >signature.bin
expect 0 out '^key_name=primary$' attach "the site" --signature signature.bin
expect 0 out '^key_name=primary$' attach "the site" --signature signature.bin \
  --public-keys "$root/keys/development/public_keys.txt"
expect 1 err '^kvxpublish: .*none: there is no such folder$' pack none --out site "${pack[@]}" --unsigned
expect 1 err '^kvxpublish: .*private_key.pem: is there already' keygen --out keys
expect 2 err '^kvxpublish: A subcommand is required'
expect 2 err '^kvxpublish: --out is required' pack game "${pack[@]}"
expect 2 err '^kvxpublish: --key: the path is empty' sign "the site" --key=
expect 2 err '^kvxpublish: --key: the path is empty' sign "the site" --key ''
for place in user@host:/srv/www host:site s3://bucket/patch https://updates.example.org/patch/; do
  elsewhere="\"$place\" is on another machine, and this takes a path on this one; make the site in a folder here and copy"
  expect 2 err "^kvxpublish: --out: $elsewhere" pack game --out "$place" "${pack[@]}" --key "$key"
  expect 2 err "^kvxpublish: --to: $elsewhere" publish "the site" --to "$place"
  expect 2 err "^kvxpublish: SITE: $elsewhere" sign "$place" --key "$key"
  [ ! -e "${place%%/*}" ]
done
expect 2 err '^kvxpublish: SITE: "user@host:/srv/www" is on another machine' verify user@host:/srv/www
expect 3 err "rejected path \"Saved/x\": user data folder 'Saved' is never managed$" \
  pack bad --out site "${pack[@]}" --unsigned
expect 4 err '^kvxpublish: .*manifest.json: has the same content already, as serial 1$' \
  pack game --out "the site" "${pack[@]}" --key "$key" --arg=--full --arg '/one two' --previous "the site"
printf 'Größe' >notes.txt
expect 0 out '^serial=2$' \
  pack game --out "the site" "${pack[@]}" --unsigned --notes notes.txt --exclude='*.tmp' --previous "the site"
expect 6 err 'manifest.sig: there is no signature, .*, or take it as it is with --trust-unsigned-previous$' \
  pack game --out "the site" "${pack[@]}" --key "$key" --previous "the site"
expect 4 err '^kvxpublish: .*manifest.json: has the same content already, as serial 2$' pack game --out "the site" \
  "${pack[@]}" --trust-unsigned-previous --unsigned --notes notes.txt --exclude='*.tmp' --previous "the site"
expect 5 err '^kvxpublish: serial 1 is not larger than 2, which .*manifest.json has' \
  pack game --out "the site" "${pack[@]}" --unsigned --serial 1
expect 6 err "^kvxpublish: $PWD/game/game.exe: the key is not a PEM private key\$" sign "the site" --key game/game.exe

# Links, to files and to folders.
mkdir linked
printf 'game' >linked/game.exe
ln -s /etc/hostname linked/name.txt
expect 3 err "^kvxpublish: $PWD/linked/name.txt: is a link; put the file itself in its place\$" \
  pack linked --out site "${pack[@]}" --unsigned
rm linked/name.txt
ln -s /etc linked/folder
expect 3 err "^kvxpublish: $PWD/linked/folder: is a link; put the file itself in its place\$" \
  pack linked --out site "${pack[@]}" --unsigned
# What is left out is no matter, and neither is a folder of the game that is itself a link.
expect 0 out '^files=1$' pack linked --out "left out" "${pack[@]}" --unsigned --exclude FOLD?R
expect 0 out '^files=1$' pack linked --out "left out" "${pack[@]}" --unsigned --exclude='/f*/'
expect 3 err "^kvxpublish: $PWD/linked/folder: is a link; " pack linked --out site "${pack[@]}" --unsigned --exclude='**/x/*'
ln -s game "game link"
expect 0 out '^files=2$' pack "game link" --out "left out" "${pack[@]}" --unsigned
# Names that no file on Windows has.
for name in 'a\b' $'a\nb' 'a:b' $'a\xFFb'; do
  mkdir -p strange/sub
  printf 'game' >strange/game.exe
  printf 'x' >"strange/sub/$name"
  expect 3 err '(?s)(launchers would refuse this release: rejected path |: the name is not valid Unicode)' \
    pack strange --out site "${pack[@]}" --unsigned
  expect 0 out '^files=1$' pack strange --out "left out" "${pack[@]}" --unsigned --exclude sub
  rm -r strange
done

grep -q '"path": "sub dir/名前.txt"' "the site/manifest.json"
grep -q '"notes": "Größe"' "the site/manifest.json"
grep -q '"/one two"' "the site/history/live/1.json"
[ ! -e site ]

# What a failure says in JSON; its text is on standard error too.
if "$root/scripts/kvxpublish" sign "the site" --key none.pem --json >out.txt 2>err.txt; then failures=1; fi
grep -qxF "{\"error\":\"$PWD/none.pem: there is no such key file\",\"code\":6}" out.txt || failures=1

# Paths are full in what it reports, and may come after "--".
expect 0 out "^manifest=$PWD/the site/manifest.json\$" digest -- "the site"
"$root/scripts/kvxpublish" digest "the site" --json >out.txt 2>err.txt
grep -qF "\"manifest\":\"$PWD/the site/manifest.json\"" out.txt || failures=1
grep -q 'kvxpublish attach "the site" ' err.txt || failures=1

# serve starts a server and ends it with itself; programs of these names stand in for the real ones.
mkdir -p programs
for name in nginx openssl; do
  printf '#!/bin/sh\necho "%s $*" >>calls.txt\n' $name >programs/$name
  chmod +x programs/$name
done
echo 'echo $$ >nginx.pid; exec sleep 600' >>programs/nginx
echo 'touch authority.pem server.pem server.key' >>programs/openssl
PATH=$PWD/programs:$PATH "$root/scripts/kvxpublish" serve "the site" --folder server --json >out.txt 2>err.txt &
serving=$!
for _ in $(seq 600); do [ ! -s server/nginx.pid ] || break; sleep 0.1; done
kill -INT $serving
wait $serving || failures=1
grep -q ',"started":true}$' out.txt || failures=1
[ "$(grep -c ^openssl server/calls.txt)" = 3 ] || failures=1
if kill -0 "$(cat server/nginx.pid)" 2>/dev/null; then failures=1; fi
expect 0 out '^started=no$' serve "the site" --no-start

# No colours where nobody sees them.
if LC_ALL=C grep -q $'\x1b' err.txt; then failures=1; fi
exit $failures
