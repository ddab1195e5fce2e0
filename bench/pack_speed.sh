#!/usr/bin/env bash
# How fast kvxpublish packs, beside sha256sum over the same files: pack_speed.sh [FILES] [MEGABYTES]
# Makes a game of so many files (20,000) and megabytes (2,000) of random bytes in a temporary folder, and prints ratios:
# a first pack (read, hash, copy), sha256sum with one and with all cores, cp, and a pack when the content is there already.
# All of them read from the system's cache, as the files have just been written; what had to come from the disk all the
# same, and what went onto it meanwhile, is told beside each.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
files=${1:-20000}
megabytes=${2:-2000}
case $files$megabytes in
  *[!0-9]*) echo "usage: pack_speed.sh [FILES] [MEGABYTES]" >&2; exit 2 ;;
esac
scripts/build_tool.sh >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "making $files files, $megabytes MB"
bytes=$((megabytes * 1000000 / files))
head -c $((files * bytes)) /dev/urandom >"$work/all"
mkdir "$work/game"
(cd "$work/game" && split -a 6 -d -b "$bytes" ../all file)
rm "$work/all"
# A folder for each hundred, as games have them.
(cd "$work/game" && for first in file*00; do
  mkdir "in_${first%00}"
  mv "${first%00}"?? "in_${first%00}"
done)

disk_kilobytes() { awk '$1 == "pgpgin" { read = $2 } $1 == "pgpgout" { written = $2 } END { print read, written }' /proc/vmstat; }

measure() {  # measure COMMAND...: prints the seconds that it takes, the megabytes that the disk reads and that it writes
  local begin end read written read_after written_after
  sync  # so that nobody waits for what another has written
  read -r read written < <(disk_kilobytes)
  begin=$(date +%s.%N)
  "$@" >"$work/output" 2>&1 || { cat "$work/output" >&2; exit 1; }
  end=$(date +%s.%N)
  read -r read_after written_after < <(disk_kilobytes)
  echo "$(awk "BEGIN { print $end - $begin }") $(((read_after - read) / 1000)) $(((written_after - written) / 1000))"
}
# shellcheck disable=SC2317  # called through measure
sha256_one_core() { find "$work/game" -type f -print0 | xargs -0 sha256sum; }
# shellcheck disable=SC2317
sha256_all_cores() { find "$work/game" -type f -print0 | xargs -0 -P "$(nproc)" -n 500 sha256sum; }
# shellcheck disable=SC2317
copy() { cp -r "$work/game" "$work/copy"; }
# shellcheck disable=SC2317
pack() {
  scripts/kvxpublish pack "$work/game" --out "$work/site" --channel live --version 1.0 --serial "$1" \
    --exe "$(cd "$work/game" && find . -type f | sort | head -n 1 | cut -c3-)" --key keys/development/primary.pem
}

one=$(measure sha256_one_core)
all=$(measure sha256_all_cores)
copied=$(measure copy)
first=$(measure pack 1)
again=$(measure pack 2)
row() {  # row NAME SECONDS READ WRITTEN
  printf '%-44s %8.2f s %8.2f %9d MB %9d MB\n' "$1" "$2" "$(awk "BEGIN { print $2 / ${all%% *} }")" "$3" "$4"
}
printf '%-44s %10s %8s %12s %12s\n' "" time ratio "disk reads" "disk writes"
# shellcheck disable=SC2086  # three numbers each
{
  row "sha256sum, all cores" $all
  row "sha256sum, one core" $one
  row "cp -r" $copied
  row "kvxpublish pack, first" $first
  row "kvxpublish pack, content already there" $again
}
