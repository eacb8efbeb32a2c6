#!/usr/bin/env bash
# Builds the plug-in alone, without presets, against a library that stands for the device's own.
#
#   device_build_test.sh <source tree> <library> <option of CMake>...
#
# Beside the build that it belongs to and with options like its own, so that the compiler cache has
# the objects: what is looked at is the build without a workstation, not its code.
set -euo pipefail
cd "$1"
platform=$2
shift 2
mkdir -p build
work=$(mktemp -d "$PWD/build/device-build.XXXXXX")
trap 'rm -rf "$work"' EXIT

source scripts/compiler-cache
cp "$platform" "$work/libdevice.so"
quietly() { "$@" >"$work/log" || { cat "$work/log"; exit 1; }; }
quietly cmake -G Ninja -S . -B "$work" -DQUILLON_BUILD_WORKSTATION=OFF "${compiler_cache[@]}" \
  "$@" -DQUILLON_PLATFORM_LIBRARIES="$work/libdevice.so"
quietly cmake --build "$work" --parallel 2 --target quillon-tv-plugin

plugin=$work/lib/libquillon-tv-plugin.so
nm -D --undefined-only "$plugin" >"$work/undefined"
grep -qw __dlog_print "$work/undefined"
[[ ! -e $work/bin/quillon ]]

# Without a platform the configure step says what is missing.
if cmake -G Ninja -S . -B "$work/none" -DQUILLON_BUILD_WORKSTATION=OFF >"$work/log" 2>&1; then
  echo "configuring without any platform should fail"
  exit 1
fi
grep -q QUILLON_PLATFORM_LIBRARIES "$work/log"
