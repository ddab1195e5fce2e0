#!/usr/bin/env bash
# Installs what the other scripts need and this Debian lacks, and says so:
#   install_packages.sh [build] [tool] [test] [demo] [lint] [bench]     (by default all but bench)
# Needs root or sudo only when something is missing.
set -euo pipefail

build=(g++-mingw-w64-x86-64-posix mingw-w64-x86-64-dev cmake ninja-build ccache)
# What judges bytes, and the publisher's tool, also compile for this machine.
tool=(g++ cmake ninja-build ccache pkg-config libssl-dev libcurl4-openssl-dev libutf8proc-dev libcli11-dev nlohmann-json3-dev)
# GoogleTest comes as source.
test=("${tool[@]}" googletest wine wine64 xvfb openbox fonts-liberation nginx-light openssl
      git python3)
demo=("${test[@]}" xdotool imagemagick)
lint=("${tool[@]}" googletest wine wine64 xvfb openbox fonts-liberation clang clang-tidy-22 clang-format
      git python3 lld libclang-rt-14-dev)

# What the programs of bench/ are held against.
bench=(rapidjson-dev curl aria2)

[ $# -gt 0 ] || set -- build test demo lint
wanted=()
for group in "$@"; do
  case $group in
    build) wanted+=("${build[@]}") ;;
    tool) wanted+=("${tool[@]}") ;;
    test) wanted+=("${test[@]}") ;;
    demo) wanted+=("${demo[@]}") ;;
    lint) wanted+=("${lint[@]}") ;;
    bench) wanted+=("${bench[@]}") ;;
    *) echo "install_packages.sh: no such group: $group" >&2; exit 2 ;;
  esac
done

missing=()
for package in $(printf '%s\n' "${wanted[@]}" | sort -u); do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "Installing missing packages: ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "install_packages.sh: neither root nor sudo; as root run: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -y -o Dpkg::Use-Pty=0)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
install() { "${apt[@]}" install --no-install-recommends "${missing[@]}" >"$log" 2>&1; }
# Lists that are missing or out of date are fetched; those that serve are left alone.
if ! install; then
  "${apt[@]}" update >/dev/null || true
  if ! install; then
    tail -20 "$log" >&2
    echo "install_packages.sh: apt-get could not install: ${missing[*]}" >&2
    exit 1
  fi
fi
