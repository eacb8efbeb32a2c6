// Runs a command that may hang.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tests/system/launch/sample_device.h"

namespace quillon::test {

inline constexpr int kHangs = -2;

// Runs a program to its end, without a log. If it has not ended after the limit, kills it and its
// children; the result's status is kHangs then.
CommandResult runLimited(const std::vector<std::string>& command,
                         std::chrono::seconds limit = std::chrono::seconds(20));

}  // namespace quillon::test
