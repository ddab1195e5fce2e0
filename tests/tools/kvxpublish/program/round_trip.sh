#!/usr/bin/env bash
# round_trip.sh BUILD_FOLDER LAUNCHER WORK_FOLDER
# From the publisher's tool to the players and back: releases on two channels, a promotion, a change to the backup key
# with a signature from outside, a rollback and a pruning. After each, what the server hands out verifies, and real
# launchers bring their folders to exactly what was packed.
# KVX_WINEPREFIX is the prefix in which the server's authority becomes trusted.
set -euo pipefail
export KVX_BUILD=$1
launcher=$2
work=$3
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../../.." && pwd)
kvxpublish=$root/scripts/kvxpublish
keys=$root/keys/development
PATH=$PATH:/usr/sbin
rm -rf "$work"; mkdir -p "$work"; cd "$work"

server=
# shellcheck disable=SC2317  # the trap calls it
finish() {
  [ -n "$server" ] || return 0
  kill "$server" 2>/dev/null || true
  wait "$server" 2>/dev/null || true
}
trap finish EXIT
step() { printf '\n== %s\n' "$*"; }
fail() {
  printf 'round_trip.sh: %s\n' "$*" >&2
  exit 1
}

# ---- The games -------------------------------------------------------------------------------------------------------

random_file() { mkdir -p "$(dirname "$2")"; head -c "$1" /dev/urandom >"$2"; }

make_games() {
  local i
  mkdir -p game-1.0
  printf 'the game 1.0' >game-1.0/game.exe
  : >"game-1.0/empty file"
  for i in $(seq 30); do random_file $((i * 1000 + 1)) "game-1.0/data/piece $i.bin"; done
  random_file 3000000 game-1.0/data/world.pak
  cp game-1.0/data/world.pak "game-1.0/data/same content.pak"
  random_file 5000 "game-1.0/Übersetzungen/日本語/テキスト 1.dat"

  cp -a game-1.0 game-1.1
  printf 'the game 1.1' >game-1.1/game.exe
  random_file 2500000 game-1.1/data/world.pak
  random_file 700 game-1.1/only-in-1.1/new.bin
  rm "game-1.1/data/piece 3.bin" "game-1.1/Übersetzungen/日本語/テキスト 1.dat"

  cp -a game-1.0 game-1.2
  printf 'the game 1.2' >game-1.2/game.exe
  random_file 900 game-1.2/only-in-1.2/new.bin
  rm "game-1.2/data/piece 5.bin" "game-1.2/empty file"
  find . -type d -empty -delete
}

# ---- The publisher ---------------------------------------------------------------------------------------------------

pack() {  # pack VERSION CHANNEL OPTION...
  "$kvxpublish" pack "game-$1" --out site --channel "$2" --version "$1" --exe game.exe --arg=-x "${@:3}"
}
publish() { "$kvxpublish" publish site --to "web root" --channel "$1" --public-keys "$keys/public_keys.txt"; }

refused() {  # refused CODE COMMAND...
  local code=0
  "${@:2}" || code=$?
  [ $code = "$1" ] || fail "${*:2} should end with code $1, not $code"
}

verify() {  # verify CHANNEL VERSION SERIAL KEY
  local report
  report=$("$kvxpublish" verify "$url" --channel "$1" --full --public-keys "$keys/public_keys.txt")
  printf '%s\n' "$report"
  [[ $report = "channel=$1"$'\n'"version=$2"$'\n'"serial=$3"$'\n'*$'\n'"key_name=$4"$'\n'*"checked=digests" ]] ||
    fail "verify should tell of version $2, serial $3 and the key $4"
}

port_is_open() { (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; }

start_server() {
  local deadline
  for _ in $(seq 10); do
    port=$((10000 + RANDOM % 10000))
    ! port_is_open || continue
    "$kvxpublish" serve "web root" --port "$port" &
    server=$!
    deadline=$((SECONDS + 60))
    # Whatever else listens there keeps the server from writing its pid file.
    until [ -s "web root-server/nginx.pid" ] && port_is_open; do
      kill -0 "$server" 2>/dev/null || continue 2  # the port was taken meanwhile
      [ $SECONDS -lt $deadline ] || fail "the server did not start"
      sleep 0.05
    done
    url=https://localhost:$port/patch/
    return
  done
  fail "the server did not start: $(tail -n 3 "web root-server/error.log")"
}

# ---- The players -----------------------------------------------------------------------------------------------------

play() {  # play FOLDER CHANNEL VERSION: the launcher ends well, and the folder is the game that was packed
  local code=0
  mkdir -p "$1"
  [ -e "$1/KVXLauncher.exe" ] || cp "$launcher" "$1/KVXLauncher.exe"
  "$root/scripts/wine_run.sh" "$1/KVXLauncher.exe" "--base-url=$url" "--channel=$2" --unattended --hidden --no-launch ||
    code=$?
  if [ $code != 0 ]; then
    tail -n 20 "$1/.kvx_patch/launcher.log" >&2 || true
    fail "the launcher in $1 ended with code $code"
  fi
  find "$1" -type d -empty -not -path '*/.kvx_patch*' -delete  # launchers leave them
  diff -r --brief --exclude=KVXLauncher.exe --exclude=.kvx_patch "game-$3" "$1" || fail "$1 is not release $3"
  echo "$1 is release $3 of $2"
}

# ---- The story -------------------------------------------------------------------------------------------------------

make_games

step "1.0 on test"
pack 1.0 test --key "$keys/primary.pem"
publish test
start_server
"$root/scripts/wine_run.sh" "${launcher%/*}/trust_ca.exe" "Z:$PWD/web root-server/authority.pem"
export SSL_CERT_FILE="$PWD/web root-server/authority.pem"
verify test 1.0 1 primary
play tester test 1.0

step "1.0 goes to live"
"$kvxpublish" promote --from test --to live --to-dir site --key "$keys/primary.pem" \
  --public-keys "$keys/public_keys.txt"
publish live
verify live 1.0 1 primary
play player live 1.0
cp -a player "player who skips"

step "1.1 on test"
pack 1.1 test --previous site --public-keys "$keys/public_keys.txt" --key "$keys/primary.pem"
publish test
verify test 1.1 2 primary
play tester test 1.1

step "1.2 on live, signed outside with the backup key"
pack 1.2 live --previous "$url" --public-keys "$keys/public_keys.txt" --unsigned
refused 6 publish live
"$kvxpublish" digest site --channel live --out digest.bin
openssl pkeyutl -sign -inkey "$keys/backup.pem" -in digest.bin -out signature.der
"$kvxpublish" attach site --channel live --signature signature.der --public-keys "$keys/public_keys.txt"
publish live
verify live 1.2 2 backup
play player live 1.2

step "live goes back to 1.0"
"$kvxpublish" rollback "web root" --to 1.0 --channel live --key "$keys/backup.pem" \
  --public-keys "$keys/public_keys.txt"
verify live 1.0 3 backup
play player live 1.0
refused 5 publish live

step "1.1 goes to live"
"$kvxpublish" promote --from test --to live --to-dir "web root" --key "$keys/backup.pem" \
  --public-keys "$keys/public_keys.txt"
verify live 1.1 4 backup
play player live 1.1
play "player who skips" live 1.1

step "the rest goes"
"$kvxpublish" prune "web root" --keep 1 --yes
verify live 1.1 4 backup
verify test 1.1 2 primary
play "new player" live 1.1
play tester live 1.1

step "all releases arrived as they were packed"
