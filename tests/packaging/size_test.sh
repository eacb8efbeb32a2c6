#!/usr/bin/env bash
# Compares what the plug-in costs a device with its budget: the bytes of the stripped file, the
# relocations of its load, and the bytes of heap at the start. Prints each figure, and fails if one
# is larger than the budget.
#
#   size_test.sh PLUGIN BUDGET BUILD [PROGRAM...]
#
# BUILD is the build type, a column of the file BUDGET. PROGRAM prints the bytes of heap
# (start_heap.c). Without it that figure is left out.
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

fileSize() {
  local stripped
  stripped=$(mktemp)
  "${STRIP:-strip}" -o "$stripped" "$plugin"
  stat -c %s "$stripped"
  rm -f "$stripped"
}
relocations() { readelf -rW "$plugin" | grep -c ' R_'; }
# Without the cache of each thread, whose free blocks mallinfo2(3) counts as used.
heap() { GLIBC_TUNABLES=glibc.malloc.tcache_count=0 "$@" "$plugin"; }

failed=0
# check WHAT MEASURED: the limit is in the line "architecture build what limit".
check() {
  local limit
  limit=$(awk -v key="$architecture $build $1" '$1 " " $2 " " $3 == key { print $4 }' "$budget")
  [[ -n "$limit" ]] || return 0
  local verdict=met
  (($2 <= limit)) || { verdict=missed; failed=1; }
  echo "figure: plug-in, $architecture, $1 | $2 | at most $limit | $verdict"
}
check file-bytes "$(fileSize)"
check relocations "$(relocations)"
(($# == 0)) || check heap-bytes "$(heap "$@")"
exit $failed
