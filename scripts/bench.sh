#!/usr/bin/env bash
# How fast the launcher is, as ratios to the least that the system's own calls allow.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD

rows=(repair-small repair-large install-small install-large install-mixed start start-whole manifest)

usage() {
  cat <<USAGE
usage: bench.sh [--rounds N] [--folder DIR] [ROW...]

Builds what it measures and prints one table. docs/performance.md says how to read it.

  --rounds N    rounds of every row, each with all contenders in turn (default 5)
  --folder DIR  where the files are made, installed and checked (default build/bench); the disk below it counts
  ROW           only these rows: ${rows[*]}
USAGE
}

rounds=5
folder=$root/build/bench
wanted=()
while [ $# -gt 0 ]; do
  case $1 in
    --help | -h) usage; exit 0 ;;
    --rounds | --folder)
      [ $# -ge 2 ] || { echo "bench.sh: $1 needs a value" >&2; exit 2; }
      if [ "$1" = --rounds ]; then rounds=$2; else folder=$(realpath -ms -- "$2"); fi
      shift ;;
    *)
      [[ " ${rows[*]} " = *" $1 "* ]] || { echo "bench.sh: no such row or option: $1 (see --help)" >&2; exit 2; }
      wanted+=("$1") ;;
  esac
  shift
done
[[ $rounds =~ ^[1-9][0-9]?$ ]] || { echo "bench.sh: --rounds takes a number from 1 to 99, not $rounds" >&2; exit 2; }
[ ${#wanted[@]} -gt 0 ] || wanted=("${rows[@]}")

build=$root/build/mingw-release
PATH=$PATH:/usr/sbin
server=''
table=$(mktemp)
errors=$(mktemp)
# shellcheck disable=SC2317  # the trap calls it
finish() {
  [ -z "$server" ] || kill "$server" 2>/dev/null || true
  rm -rf "$table" "$errors" "$folder/installed" "$folder/times"
}
trap finish EXIT
trap 'print_table; exit 130' INT TERM  # what was measured so far

say() { printf '%s\n' "$*" >&2; }
fail() { say "bench.sh: $*"; exit 1; }

# ---- What is installed ----------------------------------------------------------------------------------------------

random_files() {  # random_files FOLDER COUNT BYTES: a hundred in each folder, as games have them
  local work=$1.tmp index=0 file
  rm -rf "$work" && mkdir -p "$work"
  (cd "$work" && head -c $(($2 * $3)) /dev/urandom | split -a 6 -d -b "$3" - piece)
  for file in "$work"/piece*; do
    [ $((index % 100)) -ne 0 ] || mkdir -p "$1/part$((index / 100))"
    mv "$file" "$1/part$((index / 100))/"
    index=$((index + 1))
  done
  rmdir "$work"
}

make_files() {  # make_files SET
  case $1 in
    small) random_files "$folder/small/game/data" 2000 16384 ;;
    large) random_files "$folder/large/game/data" 8 67108864 ;;
    many) random_files "$folder/many/game/data" 10000 64 ;;
    mixed)
      random_files "$folder/mixed/game/large" 6 20000000
      random_files "$folder/mixed/game/medium" 200 300000
      random_files "$folder/mixed/game/small" 1000 4096 ;;
  esac
}

# The list that bare_calls reads, and what curl, sha256sum and aria2c need, out of one "sha256sum" of the game.
make_lists() {  # make_lists SET
  (cd "$folder/$1/game" && find . -type f -printf '%P\n' | sort | xargs -d '\n' sha256sum) >"$folder/$1/sums"
  (cd "$folder/$1/game" && find . -type f -printf '%P %s\n' | sort) | awk '
    NR == FNR { size[$1] = $2; next }
    { path = $2; gsub("/", "\\", path); print $1, size[$2], path }' - "$folder/$1/sums" >"$folder/$1/list"
  awk -v url="$url/$1/files/" '{ print "url = \"" url $1 "\"\noutput = \"" $2 "\"" }' "$folder/$1/sums" \
    >"$folder/$1/curl"
  awk -v url="$url/$1/files/" '{ print url $1 "\n out=" $2 "\n checksum=sha-256=" $1 }' "$folder/$1/sums" \
    >"$folder/$1/aria2"
}

make_set() {  # make_set SET: once, and again after it was not finished
  if [ ! -e "$folder/$1/made" ]; then
    say "making the files and the release \"$1\""
    rm -rf "${folder:?}/$1" && mkdir -p "$folder/$1"
    make_files "$1"
    scripts/kvxpublish pack "$folder/$1/game" --out "$folder/$1/site" --channel live --version 1.0 --serial 1 \
      --exe "$(cd "$folder/$1/game" && find . -type f | sort | head -n 1 | cut -c3-)" \
      --key keys/development/primary.pem >"$errors" 2>&1 || { cat "$errors" >&2; fail "the release cannot be packed"; }
    touch "$folder/$1/made"
  fi
  make_lists "$1"
}

# ---- The server -----------------------------------------------------------------------------------------------------

port_is_open() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

start_server() {
  local port
  mkdir -p "$folder/nginx"
  for _ in $(seq 20); do
    port=$((20000 + RANDOM % 20000))
    ! port_is_open $port || continue
    cat >"$folder/nginx/nginx.conf" <<CONF
daemon off;
worker_processes 1;
pid nginx.pid;
error_log stderr error;
events { worker_connections 64; }
http {
  access_log off;
  client_body_temp_path body;
  proxy_temp_path proxy;
  fastcgi_temp_path fastcgi;
  uwsgi_temp_path uwsgi;
  scgi_temp_path scgi;
  sendfile on;
  gzip off;
  types { }
  default_type application/octet-stream;
  server {
    listen 127.0.0.1:$port;
    location ~ ^/(\w+)/(.*)$ { alias $folder/\$1/site/\$2; }
  }
}
CONF
    rm -f "$folder/nginx/nginx.pid"
    nginx -p "$folder/nginx" -e stderr -c "$folder/nginx/nginx.conf" 2>"$errors" &
    server=$!
    for _ in $(seq 200); do
      kill -0 "$server" 2>/dev/null || break
      # Whatever else listens there keeps nginx from writing its pid file.
      if [ -s "$folder/nginx/nginx.pid" ] && port_is_open $port; then
        url=http://127.0.0.1:$port
        return
      fi
      sleep 0.05
    done
    kill "$server" 2>/dev/null || true
    wait "$server" 2>/dev/null || true
    server=''
  done
  cat "$errors" >&2
  fail "nginx does not start"
}

# ---- Contenders: each prints the seconds that its work took ------------------------------------------------------------

windows_path() { printf 'Z:%s' "${1//\//\\}"; }
wine() { scripts/wine_run.sh "$build/bench/$1.exe" "${@:2}" 2>>"$errors"; }
timed() {  # timed COMMAND...
  local begin=$EPOCHREALTIME
  "$@" >>"$errors" 2>&1 || return 1
  awk "BEGIN { print $EPOCHREALTIME - $begin }"
}

# shellcheck disable=SC2317  # called by their names
{
in_folder() { (cd "$folder/installed" && "$@"); }
check_sums() { in_folder sha256sum --quiet -c "$folder/$1/sums"; }
curl_and_check() { in_folder curl -sS -f -Z --parallel-max 3 --create-dirs -K "$folder/$1/curl" && check_sums "$1"; }
fetch_with_aria2() { in_folder aria2c -q -j 3 -x 1 --file-allocation=none -i "$folder/$1/aria2"; }

launcher_install() { wine launcher_run install "$installed" "$url/$1/"; }
bare_install() { wine bare_calls install "$folder/$1/list" "$installed" "$url/$1/files/"; }
curl_install() { timed curl_and_check "$1"; }
aria2_install() { timed fetch_with_aria2 "$1"; }
launcher_repair() { wine launcher_run repair "$installed" "$url/$1/"; }
bare_repair() { wine bare_calls hash "$folder/$1/list" "$installed"; }
curl_repair() { timed check_sums "$1"; }
launcher_start() { wine launcher_run check "$installed"; }
bare_start() { wine bare_calls attributes "$folder/$1/list" "$installed"; }
launcher_start-whole() { wine launcher_run start "$installed" "$url/$1/"; }
bare_start-whole() { bare_start "$1"; }
}

empty_folder() { rm -rf "$folder/installed" && mkdir "$folder/installed"; }

# The files are there already, and the launcher takes note of them.
install_copies() {  # install_copies SET
  empty_folder
  cp -r "$folder/$1/game/." "$folder/installed"
  launcher_start-whole "$1" >/dev/null || { cat "$errors" >&2; fail "the files do not count as installed"; }
}

measure() {  # measure WORK CONTENDER SET
  [ "$1" != install ] || empty_folder
  sync  # so that nobody waits for what another has written
  : >"$errors"
  "$2_$1" "$3" >"$folder/seconds" || { cat "$errors" >&2; fail "$2 failed at $1 of \"$3\""; }
  cat "$folder/seconds" >>"$folder/times/$2"
}

# ---- Rows -----------------------------------------------------------------------------------------------------------

# The ratios of a row: each round's contender to the same round's bare calls, and of these the middle, the lowest and
# the highest.
ratios() {  # ratios CONTENDER
  [ -e "$folder/times/$1" ] || { echo "- - -"; return; }
  paste "$folder/times/$1" "$folder/times/bare" | awk '{ print $1 / $2 }' | sort -n | awk '
    { ratio[NR] = $1 }
    END { printf "%.2f %.2f %.2f\n", (ratio[int((NR + 1) / 2)] + ratio[int(NR / 2) + 1]) / 2, ratio[1], ratio[NR] }'
}

row() {  # row TITLE GOAL WORK SET CONTENDER...
  local title=$1 goal=$2 work=$3 set=$4 round contender middle lowest highest others=()
  shift 4
  make_set "$set"
  rm -rf "$folder/times" && mkdir "$folder/times"
  [ "$work" = install ] || install_copies "$set"
  for round in $(seq "$rounds"); do
    say "$title: round $round of $rounds"
    for contender in "$@"; do measure "$work" "$contender" "$set"; done
    set -- "${@:2}" "$1"  # nobody is always first
  done
  for contender in curl aria2; do
    read -r middle _ < <(ratios $contender)
    others+=("$middle")
  done
  read -r middle lowest highest < <(ratios launcher)
  printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$title" "$middle" "$lowest" "$highest" "$goal" "${others[@]}" \
    "$(sort -n "$folder/times/bare" | head -n 1)" >>"$table"
}

measure_row() {
  case $1 in
    repair-small) row "--repair, 2,000 files of 16 KB" 1.5 repair small launcher bare curl ;;
    repair-large) row "--repair, 8 files of 64 MB" 1.03 repair large launcher bare curl ;;
    install-small) row "first install, 2,000 files of 16 KB" 1.15 install small launcher bare curl aria2 ;;
    install-large) row "first install, 8 files of 64 MB" 1.04 install large launcher bare curl aria2 ;;
    install-mixed) row "first install, 6 of 20 MB, 200 of 300 KB, 1,000 of 4 KB" 1.15 install mixed launcher bare curl aria2 ;;
    start) row "check of a start without news, 10,000 files" 1.1 start many launcher bare ;;
    start-whole) row "such a start as a whole, from lock to result" - start-whole many launcher bare ;;
    manifest)
      say "manifest"
      scripts/wine_run.sh "$build/bench/manifest_speed.exe" 2>"$errors" |
        awk -F '\t' '{ sub(/\r$/, ""); print $1 "\t" $2 "\t\t\t" $3 "\t\t\t" }' >>"$table" ||
        { cat "$errors" >&2; fail "manifest_speed failed"; } ;;
  esac
}

print_table() {
  printf '%-58s %8s  %-13s %6s %8s %8s %9s\n' "" ratio "rounds" goal curl aria2c bare
  awk -F '\t' '{
    printf "%-58s %8s  %-13s %6s %8s %8s %9s\n", $1, $2, $3 == "" ? "" : $3 " to " $4, $5, $6, $7,
           $8 == "" ? "" : sprintf("%.3f s", $8)
  }' "$table"
}

# ---- The run --------------------------------------------------------------------------------------------------------

scripts/install_packages.sh build test bench
targets=(launcher_run bare_calls)
[[ " ${wanted[*]} " != *' manifest '* ]] || targets+=(manifest_speed)
scripts/build.sh "${targets[@]}" >"$errors" 2>&1 || { cat "$errors" >&2; fail "the build failed"; }
mkdir -p "$folder"
installed=$(windows_path "$folder/installed")
start_server
scripts/wine_run.sh cmd /c exit
for name in "${wanted[@]}"; do measure_row "$name"; done
print_table
