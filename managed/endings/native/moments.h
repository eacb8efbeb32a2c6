/* Moments at which a fault of faults.h is worse than elsewhere. The functions do not return. They
 * end the process with kNoMoment if they cannot bring the moment about. Call at most one of them,
 * once per process. */
#ifndef QUILLON_SAMPLE_MOMENTS_H
#define QUILLON_SAMPLE_MOMENTS_H

enum { kNoMoment = 97 };

/* Calls sample_fault(way) in a signal handler that interrupts malloc(3), which holds the lock of
 * its arena. */
void sample_fault_in_malloc(const char* way);

/* Calls sample_fault(way) in the thread that reads the captured standard error, after it has read
 * what was written before. */
void sample_fault_in_reader(const char* way);

/* Stops the thread that reads the captured standard error, fills its pipe and calls
 * sample_fault(way). */
void sample_fault_at_full_pipe(const char* way);

#endif
