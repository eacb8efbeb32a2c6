/* Faults in native code that end the process of an application. */
#ifndef QUILLON_SAMPLE_FAULTS_H
#define QUILLON_SAMPLE_FAULTS_H

/* The exit status of a process that has survived its signal for five seconds. */
enum { kSurvived = 96 };

/* Ends the process immediately. `way` is one of:
 *
 *   fault              writes through a null pointer
 *   abort              calls abort(3)
 *   double-free        frees a block twice that is too large for the C library's per-thread cache
 *   small-double-free  frees a small block twice; the C library prints a different message
 *   smash              writes past the end of an array on the stack
 *   SIGABRT, SIGSEGV, SIGTRAP, SIGTERM, SIGKILL
 *                      sends that signal to the calling thread
 *
 * Returns -1 if `way` is unknown. Does not return otherwise. */
int sample_fault(const char* way);

/* Registers an exit handler that calls sample_fault(way). Call it at most once per process. Returns
 * 0, or -1 if the handler cannot be registered. */
int sample_fault_at_exit(const char* way);

#endif
