// The capture of the process's standard output and standard error: two pipes stand behind
// descriptors 1 and 2, and one reader thread per pipe turns what comes out of it into log lines.
//
//   if (tvRunLoggingThread() < 0) ...   // once per process; there is no stop
//
// Thread safety: start capture from one thread, once. What signal handlers may use says so.
#pragma once

#include <pthread.h>

#include <cstdio>

// Read end, write end; -1 while there is no capture. A reader closes both ends of its pipe when it
// ends, which it does when no write end is open any more: as a rule, never.
extern int pStdOut[2];
extern int pStdErr[2];

// The readers of standard output and standard error. Detached.
extern pthread_t loggingThread;
extern pthread_t loggingThread2;

// The standard-error capture stream; null while it is not open.
extern FILE* stderrFP;

// Redirects descriptors 1 and 2 and starts both readers. Returns 0, or -1 after an error line;
// what was redirected and started by then stays so. Called from plugin_has_log_control.
int tvRunLoggingThread();

// Chooses the buffering of stdout and stderr, makes the pipes, and redirects. Returns 0 or -1.
int tvInitializeLogManager();

// Puts the pipes behind descriptors 1 and 2. Returns 0 or -1.
int tvRedirectFD();

// Waits until the standard-error reader has dealt with whatever was in its pipe at the call, so
// that the flags of crash_keywords.h tell of it and file and log have it; `milliseconds` at most.
// Returns at once on the reader's own thread, where this process has no reader, and where nothing
// is to be waited for. errno is kept. Async-signal-safe: call it first in a handler, before the
// handler adds messages of its own to the pipe.
void waitForStderrReader(int milliseconds);
