// Descriptions of the runtime's status codes.
#pragma once

#include <string>

namespace quillon::host {

// "0x80070002 (file not found)", or the code alone if its meaning is unknown.
std::string describeHresult(int status);

}  // namespace quillon::host
