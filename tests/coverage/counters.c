// Puts the coverage counters of one program or library into a file that outlives the process.
//
// scripts/coverage listens at an abstract socket and answers with the file's descriptor. So it
// needs no path: neither a device root, nor another user, nor a changed environment prevents it.
// The counters are the file's pages, mapped shared: no process has to write them at its end, so
// they also count those that call _exit(2), are killed, or fork. Without a listener nothing
// happens. A process without a descriptor for the socket, or in a network namespace of its own, is
// not counted, and nobody notices. scripts/coverage prints how many others lost their counters.
//
// Linked into everything that the preset "coverage" instruments, instead of the start of the
// compiler's own run-time library. It makes system calls by number, because some tests replace the
// functions of the C library.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#define HIDDEN __attribute__((visibility("hidden")))

// Defining it keeps the library's own start out; see "Using the profiling runtime without static
// initializers" in clang's documentation of source-based coverage.
HIDDEN int __llvm_profile_runtime;

extern void __llvm_profile_set_page_size(unsigned size);
extern void __llvm_profile_enable_continuous_mode(void);
extern void __llvm_profile_set_file_object(FILE* file, int merge);
extern uint64_t lprofGetLoadModuleSignature(void);

// Returns a descriptor of the counters' file of this program or library, or -1.
static int receiveFile(int connection) {
  char name[2 * sizeof(uint64_t) + 1];
  const int size =
      snprintf(name, sizeof(name), "%016llx", (unsigned long long)lprofGetLoadModuleSignature());
  if (syscall(SYS_sendto, connection, name, size, MSG_NOSIGNAL, NULL, 0) != size) {
    return -1;
  }
  char byte;
  struct iovec data = {&byte, 1};
  union {
    struct cmsghdr header;
    char bytes[CMSG_SPACE(sizeof(int))];
  } control;
  struct msghdr message = {.msg_iov = &data,
                           .msg_iovlen = 1,
                           .msg_control = &control,
                           .msg_controllen = sizeof(control)};
  if (syscall(SYS_recvmsg, connection, &message, MSG_CMSG_CLOEXEC) != 1 ||
      CMSG_FIRSTHDR(&message) == NULL) {
    return -1;
  }
  int file;
  memcpy(&file, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof(file));
  return file;
}

// Returns a connection to scripts/coverage, or -1.
static int openConnection(void) {
  // The first byte is 0, which makes the name abstract; the last one is left out.
  static const struct sockaddr_un address = {AF_UNIX, "\0" QUILLON_COVERAGE_SOCKET};
  const socklen_t size = offsetof(struct sockaddr_un, sun_path) + sizeof(QUILLON_COVERAGE_SOCKET);
  const int connection = (int)syscall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (connection >= 0 && syscall(SYS_connect, connection, &address, size) != 0) {
    syscall(SYS_close, connection);
    return -1;
  }
  return connection;
}

// Returns false if the counters have no file.
static int useFile(int descriptor) {
  FILE* const file = descriptor < 0 ? NULL : fdopen(descriptor, "r+b");
  if (file == NULL) {
    return 0;
  }
  __llvm_profile_set_page_size((unsigned)sysconf(_SC_PAGESIZE));
  __llvm_profile_enable_continuous_mode();
  __llvm_profile_set_file_object(file, 1);
  fclose(file);
  return 1;
}

// Before every other constructor, so that those are counted too.
__attribute__((constructor(101))) static void shareCounters(void) {
  const int connection = openConnection();
  if (connection < 0) {
    return;
  }
  if (!useFile(receiveFile(connection))) {
    syscall(SYS_sendto, connection, "", 1, MSG_NOSIGNAL, NULL, 0);  // scripts/coverage counts it
  }
  syscall(SYS_close, connection);
}
