// What a launcher needs of the log to explain a launch that the plug-in ended.
#pragma once

#include <string>

namespace quillon::workstation {

// The message of the last error record that this process wrote, without origin, colour and line
// break; empty when there was none.
std::string lastErrorMessage();

}  // namespace quillon::workstation
