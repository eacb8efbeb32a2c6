#!/usr/bin/env bash
# Installs a build into a fresh folder, moves it, and builds what launcher authors write: a small
# consumer in C, and the two launchers of examples/ as they are installed. Each is built through the
# CMake package and through pkg-config. launchers_test.sh runs the launchers.
#
#   install_test.sh <build> <consumer> <folder to make>
set -euo pipefail
build=$1 consumer=$2 tree=$3
rm -rf "$tree"
mkdir -p "$tree"
work=$(mktemp -d "$tree/work.XXXXXX")
trap 'rm -rf "$work"' EXIT
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }

# The folder is neither the prefix of the configure step nor that of the installation.
quietly cmake --install "$build" --prefix "$work/installed"
prefix=$tree/prefix
mv "$work/installed" "$prefix"
examples=$(find "$prefix" -type d -name examples)
mkdir "$prefix/launchers"

echo "== the CMake package"
for project in "$consumer" "$examples"; do
  name=$(basename "$project")
  quietly cmake -G Ninja -S "$project" -B "$work/cmake/$name" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=ON
  quietly cmake --build "$work/cmake/$name"
done
"$work/cmake/consumer/consumer"
cp "$work"/cmake/examples/launcher-{c,cxx} "$prefix/launchers"

echo "== pkg-config"
pc=$(find "$prefix" -name quillon-tv-plugin.pc)
pkg() { PKG_CONFIG_PATH=$(dirname "$pc") pkg-config "$@" quillon-tv-plugin; }
if grep "$work\|$build" "$pc"; then
  echo "the pkg-config file names a folder of this build"
  exit 1
fi
read -ra flags < <(pkg --cflags)
read -ra linking < <(pkg --libs)
cc "$consumer/consumer.c" -o "$work/consumer" "${flags[@]}" \
  -DPLUGIN_FILE="\"$(pkg --variable=plugin)\"" -ldl
"$work/consumer"
cc "$examples/launcher.c" -o "$prefix/launchers/pkg-launcher-c" "${flags[@]}" "${linking[@]}"
c++ -std=c++20 "$examples/launcher.cc" -o "$prefix/launchers/pkg-launcher-cxx" \
  "${flags[@]}" "${linking[@]}"
"$prefix/bin/quillon" --version

echo "== headers and documentation"
for file in "$prefix"/include/quillon/platform/{app_info,dlog,smack,vconf}.h \
  "$prefix"/include/quillon/workstation/process_registration.h \
  "$(dirname "$examples")"/{README.md,LICENSE,docs/launcher-authors.md}; do
  [[ -e $file ]] || { echo "$file is not installed"; exit 1; }
done
