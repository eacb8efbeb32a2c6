// The values of placeholders, for the completion of command lines.
#pragma once

#include <string>
#include <vector>

namespace quillon::cli {

// See ValuesOf in completion.h. May move the process into the device root.
std::vector<std::string> completionValues(const std::string& placeholder,
                                          const std::string& device);

}  // namespace quillon::cli
