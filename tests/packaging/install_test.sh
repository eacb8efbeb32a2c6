#!/usr/bin/env bash
# Installs a build into a fresh prefix and builds a C launcher against it, once through the CMake
# package and once through pkg-config; each loads the installed plug-in.
set -euo pipefail
build=$1 consumer=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

quietly() { "$@" >"$work/log" || { cat "$work/log"; exit 1; }; }
quietly cmake --install "$build" --prefix "$work/prefix"
quietly cmake -G Ninja -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix"
quietly cmake --build "$work/cmake"
"$work/cmake/consumer"

# The file names the prefix of the configure step, so it is told the one used here.
pc=$(dirname "$(find "$work/prefix" -name quillon-tv-plugin.pc)")
pkg() { PKG_CONFIG_PATH=$pc pkg-config --define-variable=prefix="$work/prefix" "$@" quillon-tv-plugin; }
# shellcheck disable=SC2046
cc "$consumer/consumer.c" -o "$work/consumer" $(pkg --cflags) \
  -DPLUGIN_FILE="\"$(pkg --variable=plugin)\"" -ldl
"$work/consumer"
"$work/prefix/bin/quillon" --version
