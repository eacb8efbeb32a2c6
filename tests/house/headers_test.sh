#!/bin/sh
# Compiles every header by itself, and the headers that are installed as C as well. A header that the
# source file of its name includes before anything else was compiled by itself there, but for those
# of commands, which are compiled several at once. Headers of tests take definitions from the
# programs that they are part of.
#
#   headers_test.sh <source tree> <C++ compiler> <C compiler>
set -u
cd "$1" || exit 1

options="-Wall -Wextra -Wpedantic -Werror -fsyntax-only -I. -Iplatform/include"
options="$options -Iplatform/workstation/include -Iplugin/include -Iplugin/include-internal"
options="$options -Iplugin/src -Iplatform/workstation -Iplatform/zone"

# each <compiler and its own options>: one compilation for each header named on standard input.
each() {
  xargs -P 2 -I HEADER sh -c 'printf "#include \"%s\"\n" HEADER | '"$1 $options"' - ||
    { echo "does not compile alone: HEADER"; exit 1; }'
}

# Whether the build has compiled the header $1 alone.
is_proven() {
  case $1 in quillon/cli/*) return 1 ;; esac
  source=${1%.h}.cc
  [ -e "$source" ] || return 1
  first=$(sed -n 's/^#include ["<]\(.*\)[">].*/\1/p;T;q' "$source")
  case /$1 in */"$first") return 0 ;; *) return 1 ;; esac
}

all=$(find platform plugin quillon util -name '*.h')
rest=$(for header in $all; do is_proven "$header" || echo "$header"; done)
interface=$(find plugin/include platform/include/platform \
  platform/workstation/include/workstation/process_registration.h -name '*.h')
if [ -z "$all" ] || [ -z "$interface" ]; then
  echo "no headers found"
  exit 1
fi

failed=0
echo "$rest" | each "$2 -std=c++20 -x c++" || failed=1
echo "$interface" | each "$3 -std=c11 -x c" || failed=1
[ $failed -eq 0 ] && echo "$(echo "$all" | wc -l) headers compile alone," \
  "$(echo "$rest" | wc -l) of them compiled here"
exit $failed
