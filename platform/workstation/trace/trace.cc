#include "platform/trace.h"

#include <unistd.h>

#include <cerrno>

#include "trace/trace_file.h"

namespace quillon::workstation {
namespace {

// The calling thread's open spans. If the begin event of a span could not be written, the span and
// the spans within it are not in the file, so their end events must not be written either.
struct OpenSpans {
  pid_t thread;
  unsigned written;
  unsigned skipped;
};

thread_local OpenSpans t_spans;

// A forked child inherits the counts of its parent's thread, which do not apply to it.
OpenSpans& openSpans() {
  if (const pid_t thread = gettid(); t_spans.thread != thread) {
    t_spans = {thread, 0, 0};
  }
  return t_spans;
}

void begin(const char* name) {
  OpenSpans& spans = openSpans();
  if (spans.skipped == 0 && traceBegin(name)) {
    ++spans.written;
  } else {
    ++spans.skipped;
  }
}

void end() {
  OpenSpans& spans = openSpans();
  if (spans.skipped > 0) {
    --spans.skipped;
  } else if (spans.written > 0) {
    --spans.written;
    traceEnd();
  }
}

}  // namespace
}  // namespace quillon::workstation

void trace_begin(const char* name) {
  if (!quillon::workstation::isTracing()) {
    return;
  }
  const int callersErrno = errno;
  quillon::workstation::begin(name == nullptr ? "" : name);
  errno = callersErrno;
}

void trace_end(void) {
  if (!quillon::workstation::isTracing()) {
    return;
  }
  const int callersErrno = errno;
  quillon::workstation::end();
  errno = callersErrno;
}
