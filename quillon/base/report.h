// Reports failures to the user.
#pragma once

#include <unistd.h>

#include "quillon/base/failure.h"

namespace quillon {

// Returns "quillon: <what>; <remedy>" with a line end.
std::string reportLine(const Failure& failure);

// Writes that line to `descriptor` and returns the failure's exit status.
int report(const Failure& failure, int descriptor = STDERR_FILENO);

}  // namespace quillon
