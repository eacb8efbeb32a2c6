// A preloaded library for which nothing is in the page cache, and each read ahead takes a second.
#define _GNU_SOURCE
#include <errno.h>
#include <stdio.h>
#include <sys/uio.h>
#include <unistd.h>

ssize_t preadv2(int descriptor, const struct iovec* buffers, int count, off_t offset, int flags) {
  (void)descriptor, (void)buffers, (void)count, (void)offset, (void)flags;
  errno = EAGAIN;
  return -1;
}

// Leaves the process id in a file of the device root.
int posix_fadvise(int descriptor, off_t offset, off_t length, int advice) {
  (void)descriptor, (void)offset, (void)length, (void)advice;
  FILE* const file = fopen("/tmp/reader", "w");
  if (file != NULL) {
    fprintf(file, "%d\n", getpid());
    fclose(file);
  }
  sleep(1);
  return 0;
}
