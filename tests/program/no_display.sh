#!/usr/bin/env bash
# no_display.sh SOURCE WORK PROGRAM: where no window can be created, the launcher ends with 99 and has written nothing.
# In a Wine prefix of its own, because the windows of a running one would need no new display.
set -euo pipefail
work=$2.no-display
export KVX_WINEPREFIX=$work/wineprefix
unset DISPLAY WAYLAND_DISPLAY
mkdir -p "$work"
rm -rf "$work/KVX"
mkdir "$work/KVX"
cp "$3" "$work/KVX/KVXLauncher.exe"

code=0
"$1/scripts/wine_run.sh" "$work/KVX/KVXLauncher.exe" --unattended --no-launch --base-url=http://127.0.0.1:9/ || code=$?
WINEPREFIX=$KVX_WINEPREFIX wineserver -k || true
found=$(ls -A "$work/KVX")
if [ "$code" != 99 ] || [ "$found" != KVXLauncher.exe ]; then
  printf 'exit code %s, expected 99; the folder holds:\n%s\n' "$code" "$found" >&2
  exit 1
fi
