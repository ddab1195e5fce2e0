#!/usr/bin/env bash
# Runs a command beside two disks of its own: small_disk.sh LAUNCHER COMMAND [ARGUMENT...]
# One is a file system of 8 MB in memory, on which no file may grow beyond 4 MB; the other holds the launcher and cannot
# be written. The command finds their folders, as Windows paths, in KVX_SMALL_DISK and KVX_READ_ONLY_DISK. Ends with the
# command's exit code; the disks are gone afterwards.
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

launcher=$1
shift
work=$(mktemp -d)
disk=$work/disk
read_only=$work/read-only
mkdir "$disk" "$read_only"
# shellcheck disable=SC2317  # the trap calls it
finish() {
  # Lazily, because a game that a test started may just be ending.
  local mounted
  for mounted in "$disk" "$read_only"; do
    if mountpoint -q "$mounted"; then umount -l "$mounted"; fi
  done
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 130' INT TERM
mount_disk() {
  if ! mount "$@"; then
    echo "small_disk.sh: cannot mount a disk: mount $*" >&2
    exit 1
  fi
}
mount_disk -t tmpfs -o size=8m tmpfs "$disk"
mount_disk -t tmpfs -o size=8m tmpfs "$read_only"
cp "$launcher" "$read_only/KVXLauncher.exe"
mount_disk -o remount,ro "$read_only"

# Wine's server may write larger files, so it comes first.
"$(dirname "${BASH_SOURCE[0]}")/../../scripts/wine_run.sh" cmd /c exit </dev/null >/dev/null 2>&1
export KVX_SMALL_DISK="Z:${disk//\//\\}"
export KVX_READ_ONLY_DISK="Z:${read_only//\//\\}"
trap '' XFSZ
ulimit -f 4096
status=0
"$@" || status=$?
exit "$status"
