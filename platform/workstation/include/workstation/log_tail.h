// What a launcher or tool needs of the log to explain what the plug-in refused.
#pragma once

#include <string>
#include <vector>

namespace quillon::workstation {

// The message of the last error record that this process wrote, without origin, colour and line
// break; empty when there was none.
std::string lastErrorMessage();

// The same of the last few error records, at most 16, the last one at the end.
std::vector<std::string> lastErrorMessages();

}  // namespace quillon::workstation
