// The operations that the plug-in's log lines may name as their function.
#pragma once

#include <string>

namespace quillon::test {

// Returns false if `file` is a file of the plug-in, as its log lines name it, and `function` is not
// one of the operations that log for this file. A helper function is no operation.
bool mayLog(const std::string& file, const std::string& function);

}  // namespace quillon::test
