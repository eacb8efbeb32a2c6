#include "quillon/base/terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include "quillon/base/report.h"

namespace quillon {
namespace {

// Out of the range that programs use for themselves.
constexpr int kMinDescriptor = 200;

int& terminal() {
  static int descriptor = -1;  // stays open until the process ends
  return descriptor;
}

}  // namespace

void openStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) {
      // open(2) returns the lowest free number. Children inherit the descriptor.
      [[maybe_unused]] const int opened = open("/dev/null", O_RDWR);
    }
  }
}

void keepTerminal() {
  if (terminal() < 0) {
    terminal() = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, kMinDescriptor);
  }
  if (terminal() < 0) {  // a low limit of open files
    terminal() = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  }
}

void moveTerminal(int descriptor) {
  if (terminal() < 0) {
    return;
  }
  if (descriptor >= 0) {
    dup3(descriptor, terminal(), O_CLOEXEC);
    return;
  }
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup3(nowhere, terminal(), O_CLOEXEC);
  close(nowhere);
}

int terminalDescriptor() { return terminal() < 0 ? STDERR_FILENO : terminal(); }

void tell(const Failure& failure) { report(failure, terminalDescriptor()); }

}  // namespace quillon
