// Captures the standard output and standard error of the process: descriptors 1 and 2 are replaced
// by two pipes, and one reader thread per pipe writes the data to the log.
//
//   if (tvRunLoggingThread() < 0) ...   // once per process; the capture cannot be stopped
//
// Thread safety: start the capture from one thread, once. Functions that signal handlers may call
// say so.
#pragma once

#include <pthread.h>

#include <cstdio>

// Read end and write end; -1 while there is no capture. A reader closes both ends of its pipe when
// no write end is open any more, which usually never happens.
extern int pStdOut[2];
extern int pStdErr[2];

// The reader threads of standard output and standard error. Detached.
extern pthread_t loggingThread;
extern pthread_t loggingThread2;

// The standard-error capture stream; null while it is not open.
extern FILE* stderrFP;

// Redirects descriptors 1 and 2 and starts both readers. Returns 0, or -1 after an error line. On
// failure, streams that are already redirected and readers that already run stay so. Called by
// plugin_has_log_control.
int tvRunLoggingThread();

// Sets the buffering of stdout and stderr, creates the pipes, and redirects the descriptors.
// Returns 0 or -1.
int tvInitializeLogManager();

// Replaces descriptors 1 and 2 by the pipes. Returns 0 or -1.
int tvRedirectFD();

// Waits until the standard-error reader has processed everything that was in its pipe at the time
// of the call, so that the flags of crash_keywords.h, the error file and the log are up to date.
// Waits at most `milliseconds`, and returns false if the reader is not as far by then. Returns true
// immediately in the reader's own thread, if this process has no reader, and if there is nothing to
// wait for. Preserves errno. Async-signal-safe: a handler must call it before it writes messages of
// its own to the pipe.
bool waitForStderrReader(int milliseconds);
