#!/usr/bin/env bash
# Compares what the plug-in costs a device with its budget: the bytes of the stripped file, the
# relocations of its load, and the bytes of heap at the start. Prints each figure, and fails if one
# is larger than the budget.
#
#   size_test.sh PLUGIN BUDGET BUILD [PROGRAM...]
#
# BUILD is the build type, a column of the file BUDGET. PROGRAM prints the bytes of heap
# (start_heap.c). Without it that figure is left out.

# shellcheck disable=SC2317  # check calls the functions
set -euo pipefail
plugin=$1 budget=$2 build=$3
shift 3

machine=$(readelf -hW "$plugin" | sed -n 's/^ *Machine: *//p')
case "$machine" in
  *X86-64*) architecture=x86_64 ;;
  AArch64) architecture=aarch64 ;;
  ARM) architecture=armhf ;;
  *) echo "size_test: no budget for $machine"; exit 1 ;;
esac

fileSize() { "${STRIP:-strip}" -o "$stripped" "$plugin"; stat -c %s "$stripped"; }
relocations() { readelf -rW "$plugin" >"$table"; grep -c ' R_' "$table"; }
# Without the cache of each thread, whose free blocks mallinfo2(3) counts as used.
heap() { GLIBC_TUNABLES=glibc.malloc.tcache_count=0 "$@" "$plugin"; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
stripped=$work/stripped table=$work/relocations
checked=0 failed=0
# check WHAT COMMAND...: the command prints the figure, and the line "architecture build what limit"
# has the limit. Without that line, as for the file of a Debug build, there is none.
check() {
  local what=$1 limit measured verdict=met
  shift
  limit=$(awk -v key="$architecture $build $what" '$1 " " $2 " " $3 == key { print $4 }' "$budget")
  [[ -n "$limit" ]] || return 0
  measured=$("$@")
  ((measured > 0 && measured <= limit)) || { verdict=missed; failed=1; }
  checked=1
  echo "figure: size of the plug-in, $architecture $build, $what | $measured | at most $limit | $verdict"
}
check file-bytes fileSize
check relocations relocations
(($# == 0)) || check heap-bytes heap "$@"
((checked)) || { echo "size_test: $budget has no limits for $architecture $build"; exit 1; }
exit $failed
