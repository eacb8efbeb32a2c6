// The launch-marker channel. A workstation's kernel has none, so this library stands before libc
// with a prctl(2) of its own, which also writes the markers to the trace.
#include "platform/launch_marker.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <string_view>

#include "trace/trace_file.h"

namespace {

void recordMarker(const char* text, unsigned long length) {
  if (text == nullptr || !quillon::workstation::isTracing()) return;
  const int callersErrno = errno;
  quillon::workstation::traceInstant(std::string_view(text, length));
  errno = callersErrno;
}

}  // namespace

int prctl(int option, ...) noexcept {
  // As libc does: takes four arguments whatever was passed; the kernel looks at those it needs.
  va_list arguments;
  va_start(arguments, option);
  const auto first = va_arg(arguments, unsigned long);
  const auto second = va_arg(arguments, unsigned long);
  const auto third = va_arg(arguments, unsigned long);
  const auto fourth = va_arg(arguments, unsigned long);
  va_end(arguments);
  if (option == PR_LAUNCH_MARKER) recordMarker(reinterpret_cast<const char*>(first), second);
  return static_cast<int>(syscall(SYS_prctl, option, first, second, third, fourth));
}
