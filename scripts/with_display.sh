#!/usr/bin/env bash
# Runs a command with a display of its own, an Xvfb with a small window manager: with_display.sh COMMAND [ARGUMENT...]
set -euo pipefail
number=$(mktemp)
xvfb=''
manager=''
stop() {
  [ -z "$manager" ] || kill "$manager" 2>/dev/null || true
  [ -z "$xvfb" ] || kill "$xvfb" 2>/dev/null || true
  rm -f "$number"
}
trap stop EXIT
trap 'exit 130' INT TERM

# The server picks a free number, and writes it when it takes connections.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 3>"$number" &
xvfb=$!
for _ in $(seq 300); do
  [ -s "$number" ] && break
  kill -0 "$xvfb" 2>/dev/null || break
  sleep 0.1
done
if [ ! -s "$number" ]; then
  echo "with_display.sh: Xvfb did not start" >&2
  exit 1
fi
DISPLAY=:$(tr -d '[:space:]' <"$number")
export DISPLAY
openbox >/dev/null 2>&1 &
manager=$!

status=0
"$@" || status=$?
exit "$status"
