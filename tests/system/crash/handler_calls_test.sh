#!/usr/bin/env bash
# Checks which functions the signal handlers call: fails if their object files have an undefined
# symbol that is not listed here.
#
# usage: handler_calls_test.sh NM OBJECT...
set -euo pipefail

nm=$1
shift

# Listed in signal-safety(7). In addition, ioctl, gettid and nanosleep are single system calls, and
# difftime, strlen and the memory functions only compute.
safe='_exit|access|clock_gettime|close|difftime|getpid|gettid|ioctl|nanosleep|open|poll|raise|read'
safe+='|sigaction|sigemptyset|signal|strlen|time|write|__errno_location|mem(cpy|set|move)'
# Functions of the plug-in. They are defined in the checked object files.
own='waitForStderrReader|sendMessageToDlogError|itoaForSignalHandler|publishedAppId|isReadyToRun'
own+='|ReaderProgress::runsConcurrently'
# Data of the plug-in. g_appID is read only if no id is published: _SetAppInfo does not assign it then.
own+='|g_appID\[abi:cxx11\]|checkOnTerminate|managedExceptionOccurred|memoryIssueOccurred|pStdErr|stderrProgress'
compiler='_GLOBAL_OFFSET_TABLE_|_Unwind_Resume|__gxx_personality_v0|DW\.ref\..*|__stack_chk_fail'

names=$("$nm" -uC "$@" | sed -nE 's/^ +U ([^(]+).*$/\1/p' | sort -u)
[[ -n $names ]] || { echo "no names in $*" >&2; exit 1; }
if grep -vxE "$safe|$own|$compiler" <<<"$names"; then
  echo "a signal handler may not call these; if none does, list them in $0" >&2
  exit 1
fi
