#include "faults.h"

#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { kLargeBlock = 4096, kSmallBlock = 24, kPastTheEnd = 64, kPatience = 5 /* seconds */ };

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

static const struct {
  const char* name;
  int number;
} kSignals[] = {{"SIGABRT", SIGABRT},
                {"SIGSEGV", SIGSEGV},
                {"SIGTRAP", SIGTRAP},
                {"SIGTERM", SIGTERM},
                {"SIGKILL", SIGKILL}};

/* A handler may pass a signal on to another thread, which then ends the process. */
static void send_signal(int number) {
  raise(number);
  for (unsigned left = kPatience; left > 0;) {
    left = sleep(left);
  }
  _exit(kSurvived);
}

int sample_fault(const char* way) {
  for (size_t i = 0; i < sizeof kSignals / sizeof *kSignals; ++i) {
    if (strcmp(way, kSignals[i].name) == 0) {
      send_signal(kSignals[i].number);
    }
  }
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
