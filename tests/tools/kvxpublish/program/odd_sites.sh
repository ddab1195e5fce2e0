#!/usr/bin/env bash
# odd_sites.sh BUILD_FOLDER WORK_FOLDER
# What only a file system of Linux can have or do to a site: links, names in several spellings, locks and signals.
set -euo pipefail
export KVX_BUILD=$1
work=$2
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../../.." && pwd)
kvxpublish=$root/scripts/kvxpublish
rm -rf "$work"; mkdir -p "$work/game"; cd "$work"
printf 'game' >game/game.exe

fail() {
  echo "odd_sites.sh: $*" >&2
  cat out.txt >&2
  exit 1
}
pack() { "$kvxpublish" pack game --exe game.exe --key "$root/keys/development/primary.pem" "$@" >out.txt 2>&1; }

# expect CODE PATTERN ARGUMENT...
expect() {
  local code=$1 pattern=$2 status=0
  shift 2
  "$kvxpublish" "$@" >out.txt 2>&1 || status=$?
  [ $status = "$code" ] || fail "$*: exit code $status, expected $code"
  grep -q "$pattern" out.txt || fail "$*: expected \"$pattern\""
}

pack --out site --channel live --version 1
printf 'for testers' >game/game.exe
pack --out site --channel beta --version 2

# A channel that is served through a link keeps its content.
mv site/beta elsewhere
ln -s ../elsewhere site/beta
mv site/history/beta kept
ln -s ../../kept site/history/beta
expect 4 'there is nothing to delete$' prune site --keep 1 --yes
expect 0 '^content_files=1$' verify site --channel beta --full

# A spelling that nobody is served under, but that may be a channel's on another system, stops it.
rm site/beta
mv elsewhere site/Beta
expect 1 'site/Beta: a channel.s folder must be called "beta" here; rename it, or move it out of the site$' \
  prune site --keep 1 --yes
mv site/Beta site/beta
rm site/history/beta
mv kept site/history/Beta
expect 1 'site/history/Beta: a channel.s folder must be called "beta" here' prune site --keep 1 --yes
mv site/history/Beta site/history/beta
expect 0 '^content_files=1$' verify site --channel beta --full

# The lock is one of the file system; one that was left behind is nobody's.
: >site/kvxpublish.lock
sign=(sign site --key "$root/keys/development/primary.pem")
expect 0 '^serial=1$' "${sign[@]}"
exec 9>site/kvxpublish.lock
flock 9
expect 1 'site: another kvxpublish is working on this site; try again when it has ended$' "${sign[@]}"
exec 9>&-
expect 0 '^serial=1$' "${sign[@]}"
[ ! -e site/kvxpublish.lock ] || fail "the lock stays"

# A signal that asks to stop leaves the site as it was.
find site -type f | sort | xargs sha256sum >before.txt
truncate -s 20G game/large.bin
for signal in INT TERM HUP; do
  pack --out site --channel live --version 3 &
  running=$!
  until compgen -G 'site/content-*.tmp/*' >/dev/null; do
    kill -0 $running 2>/dev/null || break
    sleep 0.05
  done
  pkill -$signal -P $running -x kvxpublish || kill -$signal $running
  status=0
  wait $running || status=$?
  [ $status = 1 ] || fail "SIG$signal: exit code $status, expected 1"
  grep -q 'stopped; nothing was changed$' out.txt || fail "SIG$signal: no reason"
  find site -type f | sort | xargs sha256sum | diff before.txt - >>out.txt || fail "SIG$signal: the site has changed"
  [ -z "$(find site -name '*.tmp')" ] || fail "SIG$signal: something is left over"
done
