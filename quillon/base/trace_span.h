// The launcher's own steps in the launch's trace, beside the plug-in's.
#pragma once

#include "platform/trace.h"

namespace quillon {

// A span of the calling thread, from its construction to its end. `name` is copied.
class TraceSpan {
 public:
  explicit TraceSpan(const char* name) { trace_begin(name); }
  ~TraceSpan() { trace_end(); }
  TraceSpan(const TraceSpan&) = delete;
  TraceSpan& operator=(const TraceSpan&) = delete;
};

}  // namespace quillon
