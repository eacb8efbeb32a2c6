// Runs a program and returns its output.
#pragma once

#include <string>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::dotnet {

// Runs `words`, a program name to look up in PATH and its arguments, without a shell. Returns the
// standard output if the program exits with status 0. The failure is a clause such as
// "it cannot be run: No such file or directory" or "it ended with status 1".
[[nodiscard]] Expected<std::string> commandOutput(const std::vector<std::string>& words);

}  // namespace quillon::dotnet
