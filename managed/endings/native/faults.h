/* Ways in which native code that an application calls can end its process. */
#ifndef QUILLON_SAMPLE_FAULTS_H
#define QUILLON_SAMPLE_FAULTS_H

/* Ends the process at once:
 *
 *   fault              writes through a pointer to nowhere
 *   abort              abort(3)
 *   double-free        frees a block twice that is too large for the C library's per-thread cache
 *   small-double-free  the same with a small block, of which the C library says other words
 *   smash              writes past the end of an array on the stack
 *
 * Returns, with -1, only where it knows no such way. */
int sample_fault(const char* way);

/* The same when the process exits, in an exit handler. Once for a process. Returns 0, or -1 where
 * no handler can be registered. */
int sample_fault_at_exit(const char* way);

#endif
