// The pipes that stand behind the process's standard output and standard error while the plug-in
// captures them. Each is read end, write end; -1 while there is no capture. Never closed: capture
// lasts until the process ends.
#pragma once

#include <cstdio>

extern int pStdOut[2];
extern int pStdErr[2];

// The standard-error capture stream; null while it is not open.
extern FILE* stderrFP;
