/* Lets an application run out of memory. */
#ifndef QUILLON_SAMPLE_MEMORY_LIMIT_H
#define QUILLON_SAMPLE_MEMORY_LIMIT_H

/* Limits the process to `further` bytes of memory more than it has now. Returns 0, or -1 if the
 * limit cannot be set. */
int sample_limit_memory(unsigned long further);

#endif
