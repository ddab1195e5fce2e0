#!/usr/bin/env bash
# Runs a command beside a small disk of its own: small_disk.sh COMMAND [ARGUMENT...]
# The disk is a file system of 8 MB in memory, on which no file may grow beyond 4 MB. The command finds its folder, as a
# Windows path, in KVX_SMALL_DISK. Ends with the command's exit code; the disk is gone afterwards.
#
# Mounting takes root, or a user who may make a mount namespace; Wine must see the mount, so in such a namespace the
# command gets a Wine prefix of its own.
set -euo pipefail
if [ "$(id -u)" -ne 0 ]; then
  if ! unshare -rm true 2>/dev/null; then
    echo "small_disk.sh: neither root nor allowed to make a mount namespace (unshare -rm)" >&2
    exit 1
  fi
  root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
  export KVX_WINEPREFIX=${KVX_WINEPREFIX:-$root/build/wineprefix}_small_disk
  exec unshare -rm "${BASH_SOURCE[0]}" "$@"
fi

work=$(mktemp -d)
disk=$work/disk
mkdir "$disk"
# shellcheck disable=SC2317  # the trap calls it
finish() {
  # Lazily, because a game that a test started may just be ending.
  if mountpoint -q "$disk"; then umount -l "$disk"; fi
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 130' INT TERM
if ! mount -t tmpfs -o size=8m tmpfs "$disk"; then
  echo "small_disk.sh: cannot mount a disk in $disk" >&2
  exit 1
fi

# Wine's server may write larger files, so it comes first.
"$(dirname "${BASH_SOURCE[0]}")/../../scripts/wine_run.sh" cmd /c exit </dev/null >/dev/null 2>&1
export KVX_SMALL_DISK="Z:${disk//\//\\}"
trap '' XFSZ
ulimit -f 4096
status=0
"$@" || status=$?
exit "$status"
