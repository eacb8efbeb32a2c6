// Remembers the last few error records of the process.
#pragma once

#include <string_view>

namespace quillon::workstation {

// Keeps the message of an error record's text. Any thread may call it.
void rememberError(std::string_view text);

}  // namespace quillon::workstation
