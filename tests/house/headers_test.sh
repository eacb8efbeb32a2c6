#!/bin/sh
# Compiles every header by itself, and the headers of the platform's and the plug-in's interface as C
# as well. Headers of tests take definitions from the programs that they are part of.
#
#   headers_test.sh <source tree> <C++ compiler> <C compiler>
set -u
cd "$1" || exit 1

options="-Wall -Wextra -Wpedantic -Werror -fsyntax-only -I. -Iplatform/include -Iplugin/include
  -Iplugin/include-internal -Iplugin/src -Iplatform/workstation -Iplatform/zone"

# each <compiler and its own options>: one compilation for each header named on standard input.
each() {
  xargs -P 2 -I HEADER sh -c 'printf "#include \"%s\"\n" HEADER | '"$1 $(echo $options)"' - ||
    { echo "does not compile alone: HEADER"; exit 1; }'
}

all=$(find launcher platform plugin tools util -name '*.h')
interface=$(find plugin/include platform/include/platform -name '*.h')
[ -n "$all" ] && [ -n "$interface" ] || { echo "no headers found"; exit 1; }

failed=0
echo "$all" | each "$2 -std=c++20 -x c++" || failed=1
echo "$interface" | each "$3 -std=c11 -x c" || failed=1
[ $failed -eq 0 ] && echo "$(echo "$all" | wc -l) headers compile alone"
exit $failed
