// Spans of the launcher in the trace of a launch.
#pragma once

#include "platform/trace.h"

namespace quillon {

// A span of the calling thread for the lifetime of the object. `name` is copied.
class TraceSpan {
 public:
  explicit TraceSpan(const char* name) { trace_begin(name); }
  ~TraceSpan() { trace_end(); }
  TraceSpan(const TraceSpan&) = delete;
  TraceSpan& operator=(const TraceSpan&) = delete;
};

}  // namespace quillon
