// The last error messages of the log, with which launchers and tools explain a refusal of the
// plug-in.
#pragma once

#include <string>
#include <vector>

namespace quillon::workstation {

// Returns the message of the last error that this process logged, without origin, colour and line
// break; empty if there was none.
std::string lastErrorMessage();

// Returns the last error messages, at most 16, in the order in which they were logged.
std::vector<std::string> lastErrorMessages();

}  // namespace quillon::workstation
