// The trace file that QUILLON_TRACE names: Chrome trace events, one line each.
#pragma once

#include <string_view>

namespace quillon::workstation {

// Whether the process writes a trace.
bool isTracing();

// Each appends one event of the calling thread and returns whether it was written.
bool traceBegin(std::string_view name);
bool traceEnd();
bool traceInstant(std::string_view name);

}  // namespace quillon::workstation
