// The trace file of the process: Chrome trace events, one for each line.
#pragma once

#include <string_view>

namespace quillon::workstation {

// Whether the process writes a trace.
bool isTracing();

// Each function appends one event of the calling thread. Returns false if it could not be written.
bool traceBegin(std::string_view name);
bool traceEnd();
bool traceInstant(std::string_view name);

}  // namespace quillon::workstation
