// The start of a trace by the program itself; QUILLON_TRACE starts one from outside.
#pragma once

#include <string>

#include "quillon/base/failure.h"

namespace quillon::workstation {

// From here on the process's spans and markers are appended to the file, and no more to that of
// QUILLON_TRACE. Spans that are open now stay out of it. Call while the process has one thread.
[[nodiscard]] Expected<void> startTrace(const std::string& path);

}  // namespace quillon::workstation
