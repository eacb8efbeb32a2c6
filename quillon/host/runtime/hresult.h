// What the runtime's status codes mean, in words.
#pragma once

#include <string>

namespace quillon::host {

// "0x80070002 (file not found)"; the code alone where its meaning is not known here.
std::string describeHresult(int status);

}  // namespace quillon::host
