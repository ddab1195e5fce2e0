#!/usr/bin/env bash
# build_twice.sh SOURCE WORK: builds the launcher from two copies of the source in folders of different names and depth,
# the first with the two documented commands and nothing else. Leaves WORK/first.exe and WORK/second.exe.
set -euo pipefail
source=$1
work=$2
# A cache would give both builds the same objects.
unset CMAKE_CXX_COMPILER_LAUNCHER
export CCACHE_DISABLE=1

copy_source() {
  mkdir -p "$1"
  tar -C "$source" --exclude=./build --exclude=./.git -cf - . | tar -C "$1" -xf -
}

rm -rf "$work"
copy_source "$work/a"
cd "$work/a"
cmake --preset mingw-release -B "$work/first-build"
cmake --build "$work/first-build" --target KVXLauncher
cp "$work/first-build/KVXLauncher.exe" "$work/first.exe"

copy_source "$work/second/place/of-the-source"
cd "$work/second/place/of-the-source"
cmake --preset mingw-release -B out -DKVX_BUILD_TESTS=OFF
cmake --build out --target KVXLauncher
cp out/KVXLauncher.exe "$work/second.exe"
