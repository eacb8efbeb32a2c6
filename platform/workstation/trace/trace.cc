#include "platform/trace.h"

#include <unistd.h>

#include <cerrno>

#include "trace/trace_file.h"

namespace quillon::workstation {
namespace {

// The calling thread's open spans. Where a beginning could not be written, neither it nor what it
// encloses is in the file, so the endings stay out as well.
struct OpenSpans {
  pid_t thread;
  unsigned written;
  unsigned left_out;
};

thread_local OpenSpans t_spans;

// A forked child starts with the spans of its parent's thread, which are not its own.
OpenSpans& openSpans() {
  if (const pid_t thread = gettid(); t_spans.thread != thread) t_spans = {thread, 0, 0};
  return t_spans;
}

void begin(const char* name) {
  OpenSpans& spans = openSpans();
  if (spans.left_out == 0 && traceBegin(name)) {
    ++spans.written;
  } else {
    ++spans.left_out;
  }
}

void end() {
  OpenSpans& spans = openSpans();
  if (spans.left_out > 0) {
    --spans.left_out;
  } else if (spans.written > 0) {
    --spans.written;
    traceEnd();
  }
}

}  // namespace
}  // namespace quillon::workstation

void trace_begin(const char* name) {
  if (!quillon::workstation::isTracing()) return;
  const int callersErrno = errno;
  quillon::workstation::begin(name == nullptr ? "" : name);
  errno = callersErrno;
}

void trace_end(void) {
  if (!quillon::workstation::isTracing()) return;
  const int callersErrno = errno;
  quillon::workstation::end();
  errno = callersErrno;
}
