#include "faults.h"

#include <stdlib.h>
#include <string.h>

enum { kLargeBlock = 4096, kSmallBlock = 24, kPastTheEnd = 64 };

static char at_exit_way[32];

static void write_nowhere(void) {
  char* volatile nowhere = NULL;
  *nowhere = 'x';
}

static void free_twice(size_t size) {
  void* volatile block = malloc(size);
  /* Prevents the block from being merged into the free memory at the end of the heap. */
  void* volatile neighbour = malloc(size);
  free(block);
  free(block);
  free(neighbour);
}

static void smash_stack(void) {
  char array[8];
  char* volatile bytes = array;
  for (int i = 0; i < kPastTheEnd; ++i) {
    bytes[i] = 'x';
  }
}

int sample_fault(const char* way) {
  if (strcmp(way, "fault") == 0) {
    write_nowhere();
  }
  if (strcmp(way, "abort") == 0) {
    abort();
  }
  if (strcmp(way, "double-free") == 0) {
    free_twice(kLargeBlock);
  }
  if (strcmp(way, "small-double-free") == 0) {
    free_twice(kSmallBlock);
  }
  if (strcmp(way, "smash") == 0) {
    smash_stack();
  }
  return -1;
}

static void fault_now(void) { sample_fault(at_exit_way); }

int sample_fault_at_exit(const char* way) {
  strncpy(at_exit_way, way, sizeof at_exit_way - 1);
  return atexit(fault_now) == 0 ? 0 : -1;
}
