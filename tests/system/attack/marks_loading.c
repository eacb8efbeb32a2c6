// A library of a package that leaves a file when it is loaded.
#include <stdio.h>

__attribute__((constructor)) static void mark(void) {
  FILE* const file = fopen("/tmp/loaded-library", "w");
  if (file != NULL) {
    fclose(file);
  }
}
