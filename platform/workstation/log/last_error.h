// Keeps the last error messages of the process for workstation/last_errors.h.
#pragma once

#include <string_view>

namespace quillon::workstation {

// Keeps the message of an error record. Any thread may call it.
void keepError(std::string_view text);

}  // namespace quillon::workstation
