#!/usr/bin/env bash
# scripts/abi must fail if the recorded interface differs from the library in any way, or is damaged.
#
#   abi_test.sh <source tree> <library>
set -euo pipefail
cd "$1"
library=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
recorded=plugin/quillon-tv-plugin.abi

# differs NAME SED_SCRIPT: the comparison with a changed record fails and says how to record.
differs() {
  local status=0
  sed "$2" "$recorded" >"$work/changed"
  if cmp -s "$recorded" "$work/changed"; then
    echo "$1: the edit changes nothing"
    exit 1
  fi
  scripts/abi --against "$work/changed" "$library" >"$work/report" 2>&1 || status=$?
  ((status != 77)) || { cat "$work/report"; exit 77; }
  if ((status != 1)) || ! grep -q 'scripts/abi --record' "$work/report"; then
    echo "$1: status $status"
    cat "$work/report"
    exit 1
  fi
}

differs "a parameter less" "/name='print_backtrace'/,/<return/{/<parameter/d}"
differs "another result" "/name='check_signature' mangled/,/<\/function/s/<return type-id='[^']*'/<return type-id='48b5725f'/"
differs "a function less" \
  "/<elf-symbol name='print_log_info'/d; /<function-decl name='print_log_info'/,/<\/function-decl>/d"
differs "a variable less" "/checkOnTerminate/d"
differs "a larger variable" "s/name='checkOnTerminate' size='1'/name='checkOnTerminate' size='4'/"
differs "another name of the library" "s/soname='[^']*'/soname='libquillon-tv-plugin.so.1'/"
differs "a damaged record" "/<\/abi-corpus>/d"
