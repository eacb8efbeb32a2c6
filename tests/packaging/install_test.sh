#!/usr/bin/env bash
# Installs a build into a fresh folder, moves it, and builds what launcher authors write: a small
# consumer in C, and the launchers of examples/ as they are installed, which load the plug-in, link
# it, and link its archive. Each is built through the CMake package and through pkg-config.
# launchers_test.sh runs the launchers.
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
for project in "$consumer" "$examples/launcher"; do
  name=$(basename "$project")
  quietly cmake -G Ninja -S "$project" -B "$work/cmake/$name" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=ON
  quietly cmake --build "$work/cmake/$name"
done
"$work/cmake/consumer/consumer"
cp "$work"/cmake/launcher/launcher-{c,c-static,cxx} "$prefix/launchers"

echo "== pkg-config"
pc=$(find "$prefix" -name quillon-tv-plugin.pc)
pkg() { PKG_CONFIG_PATH=$(dirname "$pc") pkg-config "$@" quillon-tv-plugin; }
if grep "$work\|$build" "$pc"; then
  echo "the pkg-config file names a folder of this build"
  exit 1
fi
read -ra flags < <(pkg --cflags)
read -ra linking < <(pkg --libs)
read -ra static < <(pkg --libs --static | sed 's/-lquillon-tv-plugin/-l:libquillon-tv-plugin.a/')
cc "$consumer/consumer.c" -o "$work/consumer" "${flags[@]}" \
  -DPLUGIN_FILE="\"$(pkg --variable=plugin)\"" -ldl
"$work/consumer"
cd "$examples/launcher"
cc launcher.c host.c -o "$prefix/launchers/pkg-launcher-c" "${flags[@]}" "${linking[@]}"
cc launcher.c host.c -o "$prefix/launchers/pkg-launcher-c-static" "${flags[@]}" "${static[@]}"
cc -c host.c -o "$work/host.o" "${flags[@]}"
c++ -std=c++20 launcher.cc "$work/host.o" -o "$prefix/launchers/pkg-launcher-cxx" \
  "${flags[@]}" "${linking[@]}"

echo "== the version"
version=$(pkg --modversion)
manual=$(find "$prefix" -name 'quillon-package.5.gz')
{
  "$prefix/bin/quillon" --version | grep -Fx "quillon $version"
  zcat "$manual" "$(dirname "$(dirname "$manual")")/man1/quillon.1.gz" | grep -F "\"quillon $version\""
  grep -F "## $version (" "$(dirname "$examples")/CHANGELOG.md"
} | tee "$work/versions"
(($(wc -l <"$work/versions") == 4)) || { echo "version $version is not everywhere"; exit 1; }

echo "== the archive"
libraries=$(dirname "$(dirname "$pc")")
names() { nm --format=posix --defined-only "$@" | awk 'NF > 2 { print $1 }' | sort; }
if ! diff <(names --extern-only "$libraries/libquillon-tv-plugin.a") \
  <(names --dynamic "$libraries/libquillon-tv-plugin.so"); then
  echo "the archive and the library define different names"
  exit 1
fi
for launcher in "$prefix"/launchers/*-static; do
  readelf --dynamic "$launcher" >"$work/dynamic"
  if grep libquillon-tv-plugin "$work/dynamic" || ! grep -q BIND_NOW "$work/dynamic"; then
    echo "$launcher loads the plug-in, or binds its functions late"
    exit 1
  fi
done

echo "== headers and documentation"
for file in "$prefix"/include/quillon/platform/{app_info,dlog,smack,vconf}.h \
  "$prefix"/include/quillon/workstation/process_registration.h \
  "$(dirname "$examples")"/{README.md,LICENSE,docs/launcher-authors.md}; do
  [[ -e $file ]] || { echo "$file is not installed"; exit 1; }
done
