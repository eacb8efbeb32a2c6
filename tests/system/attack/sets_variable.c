// A preloaded library that sets a variable whenever a program starts.
#include <stdlib.h>

__attribute__((constructor)) static void set(void) { setenv("SET_BY_A_LIBRARY", "yes", 1); }
