// Launch markers. A workstation's kernel does not support them, so this library overrides libc's
// prctl(2) with a function that also writes the markers to the trace.
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
  if (text == nullptr || !quillon::workstation::isTracing()) {
    return;
  }
  const int callersErrno = errno;
  quillon::workstation::traceInstant(std::string_view(text, length));
  errno = callersErrno;
}

}  // namespace

int prctl(int option, ...) noexcept {
  // Like libc, always takes four arguments; the kernel ignores those that it does not need.
  va_list arguments;
  va_start(arguments, option);
  const auto first = va_arg(arguments, unsigned long);
  const auto second = va_arg(arguments, unsigned long);
  const auto third = va_arg(arguments, unsigned long);
  const auto fourth = va_arg(arguments, unsigned long);
  va_end(arguments);
  if (option == PR_LAUNCH_MARKER) {
    recordMarker(reinterpret_cast<const char*>(first), second);
  }
  return static_cast<int>(syscall(SYS_prctl, option, first, second, third, fourth));
}
