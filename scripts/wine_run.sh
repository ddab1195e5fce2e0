#!/usr/bin/env bash
# Runs a Windows program under Wine: wine_run.sh PROGRAM.exe [ARGUMENT...]
# Without a program it only prepares the prefix, which takes some seconds the first time.
# The Wine prefix is private to the project; KVX_WINEPREFIX moves it elsewhere.
set -euo pipefail
# Wine's server makes the files of all programs, with the rights that the one who happened to start it gives. A web
# server must be able to read them.
umask 022
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX=${KVX_WINEPREFIX:-$root/build/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
export WINEARCH=win64
# Wine takes arguments and file names in the locale's character set.
case ${LC_ALL:-${LC_CTYPE:-${LANG:-}}} in
  *[Uu][Tt][Ff]*8) ;;
  *) export LC_ALL=C.UTF-8 ;;
esac
wine=("$(command -v /usr/lib/wine/wine64 || command -v wine64 || command -v wine)")
# Debian's wine64 has a fixed address and no preloader, so that a heap at a random place now and then takes the page that
# Wine needs at 0x7ffe0000: one start in some thousands would end at once, with 1 and without a word.
! setarch -R true 2>/dev/null || wine=(setarch -R "${wine[@]}")

# One prefix is made once, whoever comes first.
if [ ! -e "$WINEPREFIX/.ready" ]; then
  mkdir -p "$WINEPREFIX"
  exec 9>"$WINEPREFIX/.lock"
  flock 9
  if [ ! -e "$WINEPREFIX/.ready" ]; then
    "${wine[@]}" wineboot --init >/dev/null 2>&1 9>&-
    "${wine[@]}" winecfg -v win10 >/dev/null 2>&1 9>&-
    # A program that crashes ends, instead of waiting for somebody to read a dialog.
    "${wine[@]}" reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1 9>&-
    touch "$WINEPREFIX/.ready"
  fi
  exec 9>&-
fi
[ $# -gt 0 ] || exit 0
# A server that stays for a minute makes the next program start in a moment. The first program starts Wine's services,
# which keep its standard error open for that minute, and whoever reads that waits: so the first one is a program that
# nobody reads.
if ! wineserver -k0 2>/dev/null; then
  wineserver -p60 2>/dev/null || true
  "${wine[@]}" cmd /c exit </dev/null >/dev/null 2>&1 || true
fi
exec "${wine[@]}" "$@"
