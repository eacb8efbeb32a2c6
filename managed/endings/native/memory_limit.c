#include "memory_limit.h"

#include <stdio.h>
#include <string.h>
#include <sys/resource.h>

enum { kLineSize = 256, kKibibyte = 1024 };

/* Returns the size that RLIMIT_DATA limits (proc(5), VmData), or 0. */
static rlim_t data_size(void) {
  char line[kLineSize];
  unsigned long kibibytes = 0;
  FILE* status = fopen("/proc/self/status", "re");
  while (status != NULL && fgets(line, sizeof line, status) != NULL) {
    if (sscanf(line, "VmData: %lu kB", &kibibytes) == 1) {
      break;
    }
  }
  if (status != NULL) {
    fclose(status);
  }
  return (rlim_t)kibibytes * kKibibyte;
}

int sample_limit_memory(unsigned long further) {
  const rlim_t now = data_size();
  const struct rlimit limit = {now + further, now + further};
  return now != 0 && setrlimit(RLIMIT_DATA, &limit) == 0 ? 0 : -1;
}
