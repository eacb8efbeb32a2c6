#!/usr/bin/env bash
# What the signal handlers may call: fails on a name that their objects leave to others and that is
# not listed here.
#
# usage: handler_calls_test.sh NM OBJECT...
set -euo pipefail

nm=$1
shift

# In signal-safety(7); the system calls behind ioctl, gettid and nanosleep are single ones, and
# difftime, strlen and the character loops of the compiler are arithmetic.
safe='_exit|access|clock_gettime|difftime|getpid|gettid|ioctl|nanosleep|poll|raise'
safe+='|sigaction|sigemptyset|signal|strlen|time|write|__errno_location|mem(cpy|set|move)'
# The plug-in's own functions; those of them that handlers call are of the objects that are looked at.
own='waitForStderrReader|sendMessageToDlogError|itoaForSignalHandler'
# Its data.
own+='|g_appID.*|checkOnTerminate|managedExceptionOccurred|memoryIssueOccurred|pStdErr|stderrProgress'
own+='|ReaderProgress::runsConcurrently'
# Called where handlers are registered, never by a handler.
own+='|__dlog_print|FunctionEntryExitTracker::~?FunctionEntryExitTracker'
compiler='_GLOBAL_OFFSET_TABLE_|_Unwind_Resume|__gxx_personality_v0|DW\.ref\..*|__stack_chk_fail'

names=$("$nm" -uC "$@" | sed -nE 's/^ +U ([^(]+).*$/\1/p' | sort -u)
[[ -n $names ]] || { echo "no names in $*" >&2; exit 1; }
if grep -vxE "$safe|$own|$compiler" <<<"$names"; then
  echo "a signal handler may not call these; if none does, list them in $0" >&2
  exit 1
fi
