// Starts a trace from the program itself. QUILLON_TRACE starts one from the environment.
#pragma once

#include <string>

#include "quillon/base/failure.h"

namespace quillon::workstation {

// Appends all further spans and markers of the process to the file, instead of the file that
// QUILLON_TRACE names. Spans that are open now are not written. Call while the process has one
// thread.
[[nodiscard]] Expected<void> startTrace(const std::string& path);

}  // namespace quillon::workstation
