#define _GNU_SOURCE
#include "moments.h"

#include <dirent.h>
#include <fcntl.h>
#include <semaphore.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "faults.h"

enum { kNameSize = 64, kLooks = 10000, kPause = 1000 /* microseconds */ };

static const char* way_of_handler;
static sem_t reader_is_stopped;

static void end_without_moment(void) { _exit(kNoMoment); }

static void fault_in_handler(int signal) {
  (void)signal;
  sample_fault(way_of_handler);
}

static void set_handler(int signal, void (*handler)(int), struct sigaction* before) {
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = handler;
  action.sa_flags = SA_NODEFER;
  if (sigaction(signal, &action, before) != 0) {
    end_without_moment();
  }
}

/* In malloc. */

static struct sigaction faults_before;

static void fault_in_malloc(int signal) {
  sigaction(signal, &faults_before, NULL);
  sample_fault(way_of_handler);
}

void sample_fault_in_malloc(const char* way) {
  enum { kBlock = 2048, kRequests = 1000, kOtherSize = 70000, kLinks = 2 };
  way_of_handler = way;
  set_handler(SIGSEGV, fault_in_malloc, &faults_before);
  /* Too large for the per-thread cache, so that the block gets into the arena's unsorted list. */
  uintptr_t* volatile block = malloc(kBlock);
  void* volatile neighbour = malloc(kBlock);
  free(block);
  /* The second word links to the next block of the list. malloc reads that address. */
  block[kLinks - 1] = kLinks * sizeof(void*);
  for (int i = 0; i < kRequests; ++i) {
    neighbour = malloc(kOtherSize);
  }
  (void)neighbour;
  end_without_moment();
}

/* The reader of standard error. */

static int read_file(const char* path, char* text, size_t size) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  const ssize_t length = file < 0 ? -1 : read(file, text, size - 1);
  close(file);
  text[length < 0 ? 0 : length] = '\0';
  return length > 0;
}

/* Reads a file of a thread in /proc. */
static int read_of_thread(int thread, const char* file, char* text) {
  char path[kNameSize];
  snprintf(path, sizeof path, "/proc/self/task/%d/%s", thread, file);
  return read_file(path, text, kNameSize);
}

/* Returns the thread id of the reader. */
static int find_reader(void) {
  char name[kNameSize];
  int found = 0;
  DIR* threads = opendir("/proc/self/task");
  for (struct dirent* entry; threads != NULL && (entry = readdir(threads)) != NULL;) {
    const int thread = atoi(entry->d_name);
    if (read_of_thread(thread, "comm", name) && strcmp(name, "Stderr Thread\n") == 0) {
      found = thread;
    }
  }
  if (found == 0) {
    end_without_moment();
  }
  closedir(threads);
  return found;
}

/* Returns true if the pipe is empty and its reader waits for more in poll(2), which
 * restart_syscall(2) continues after a stop of the process. */
static int has_read_all(int reader) {
  char call[kNameSize];
  int unread = 0;
  return ioctl(STDERR_FILENO, FIONREAD, &unread) == 0 && unread == 0 &&
         read_of_thread(reader, "syscall", call) &&
         (atoi(call) == SYS_ppoll || atoi(call) == SYS_restart_syscall
#ifdef SYS_poll
          || atoi(call) == SYS_poll
#endif
         );
}

/* Runs a handler in the reader once it has read everything. */
static void interrupt_reader(void (*handler)(int)) {
  const int reader = find_reader();
  for (int look = 0; !has_read_all(reader); ++look) {
    if (look == kLooks) {
      end_without_moment();
    }
    usleep(kPause);
  }
  set_handler(SIGUSR2, handler, NULL);
  syscall(SYS_tgkill, getpid(), reader, SIGUSR2);
}

void sample_fault_in_reader(const char* way) {
  way_of_handler = way;
  interrupt_reader(fault_in_handler);
  for (;;) {
    pause();
  }
}

static void stop_reader(int signal) {
  (void)signal;
  sem_post(&reader_is_stopped);
  for (;;) {
    pause();
  }
}

/* Through a description of its own, which alone becomes non-blocking. */
static void fill_pipe(void) {
  static const char kText[4096];
  const int pipe = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (pipe < 0) {
    end_without_moment();
  }
  for (size_t size = sizeof kText; size > 0; size /= 2) {
    while (write(pipe, kText, size) > 0) {
    }
  }
  close(pipe);
}

void sample_fault_at_full_pipe(const char* way) {
  sem_init(&reader_is_stopped, 0, 0);
  interrupt_reader(stop_reader);
  while (sem_wait(&reader_is_stopped) != 0) {
  }
  fill_pipe();
  sample_fault(way);
  end_without_moment();
}
