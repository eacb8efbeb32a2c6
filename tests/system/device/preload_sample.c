/* A library to preload. */
int quillon_preload_sample(void) { return 1; }
