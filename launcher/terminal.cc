#include "launcher/terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include "tools/report.h"

namespace quillon::launcher {
namespace {

// Above the descriptors that an application counts on, and not inherited by what it starts.
constexpr int kFirstDescriptor = 10;

int& terminal() {
  static int descriptor = -1;  // open until the process ends
  return descriptor;
}

}  // namespace

void keepTerminal() {
  if (terminal() < 0) terminal() = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, kFirstDescriptor);
}

int terminalDescriptor() { return terminal() < 0 ? STDERR_FILENO : terminal(); }

void tell(const Failure& failure) { report(failure, kSuccess, terminalDescriptor()); }

}  // namespace quillon::launcher
