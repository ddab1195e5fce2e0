#!/usr/bin/env bash
# build_settings.sh SOURCE WORK: KVX_VERSION, KVX_BASE_URL and KVX_PUBLIC_KEYS of a publisher's build reach the program.
# Builds on in the second folder of build_twice.sh.
set -euo pipefail
work=$2
cd "$work/second/place/of-the-source"
unset CMAKE_CXX_COMPILER_LAUNCHER

point() { printf "$1%.0s" $(seq 64); }
printf 'primary 0011223344556677 %s\nbackup 8899aabbccddeeff %s\n' "$(point a5)" "$(point 5c)" >"$work/own_keys.txt"
cmake --preset mingw-release -B out -DKVX_BUILD_TESTS=OFF -DKVX_VERSION=2.51.7 -DKVX_PUBLISHER_BUILD=ON \
  -DKVX_BASE_URL=https://own.example/patch/ -DKVX_PUBLIC_KEYS="$work/own_keys.txt"
cmake --build out --target KVXLauncher

failures=0
count() {  # count EXPECTED WHAT PATTERN: occurrences of a Perl pattern in the program
  local found
  found=$(perl -0777 -ne "\$n = () = /$3/g; print \$n" out/KVXLauncher.exe)
  if [ "$found" != "$1" ]; then
    echo "$2: found $found times, expected $1" >&2
    failures=1
  fi
}
count 1 "version marker" 'KVXLAUNCHER-VERSION:2\.51\.7;'
count 1 "default marker" 'KVXLAUNCHER-VERSION:'
# FileVersion and ProductVersion as UTF-16 texts, and the four numbers twice in the fixed part.
count 2 "texts of the version record" '2\0\.\x005\x001\0\.\x007\0\0\0'
count 1 "numbers of the version record" '\xBD\x04\xEF\xFE\0\0\x01\0(?:\x33\0\x02\0\0\0\x07\0){2}'
count 1 "base URL" 'h\0t\0t\0p\0s\0:\0\/\0\/\0o\0w\0n\0\.\0e\0x\0a\0m\0p\0l\0e\0\/\0p\0a\0t\0c\0h\0\/\0\0\0'
count 0 "placeholder URL" 'u\0p\0d\0a\0t\0e\0\.\0k\0v\0x\0'
count 1 "version of the application manifest" 'name="KVX\.Launcher" version="2\.51\.7\.0"'
count 1 "primary key" '\x00\x11\x22\x33\x44\x55\x66\x77\xA5{64}'
count 1 "backup key" '\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF\x5C{64}'

# Whatever the URL holds, it reaches the program as it is.
cmake -B out -DKVX_PUBLISHER_BUILD=OFF "-DKVX_BASE_URL=https://öwn.example/\"; x\\n%20\${HOME}@KVX_VERSION@?/"
cmake --build out --target KVXLauncher
wide() { printf '%s' "$1" | iconv -f UTF-8 -t UTF-16LE | od -An -v -tx1 | tr -d '\n' | sed 's/ /\\x/g'; }
count 1 "base URL with quotes and the like" "$(wide 'https://öwn.example/"; x\n%20${HOME}@KVX_VERSION@?/')\\0\\0"
exit $failures
