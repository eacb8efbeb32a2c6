#!/usr/bin/env bash
# Builds the plug-in alone, against a library that stands for the device's own, without presets and,
# because nobody runs it, without optimisation.
set -euo pipefail
source=$1 platform=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cp "$platform" "$work/libdevice.so"
cmake -S "$source" -B "$work/build" -DQUILLON_BUILD_WORKSTATION=OFF "${launcher[@]}" \
  -DCMAKE_BUILD_TYPE=None -DQUILLON_PLATFORM_LIBRARIES="$work/libdevice.so" >"$work/log" &&
  cmake --build "$work/build" --parallel 2 --target quillon-tv-plugin >>"$work/log" ||
  { cat "$work/log"; exit 1; }

plugin=$work/build/lib/libquillon-tv-plugin.so
nm -D --undefined-only "$plugin" >"$work/undefined"
grep -qw __dlog_print "$work/undefined"
[[ ! -e $work/build/bin/quillon ]]

# Without a platform the configure step says what is missing.
if cmake -S "$source" -B "$work/none" -DQUILLON_BUILD_WORKSTATION=OFF >"$work/log" 2>&1; then
  echo "configuring without any platform should fail"
  exit 1
fi
grep -q QUILLON_PLATFORM_LIBRARIES "$work/log"
