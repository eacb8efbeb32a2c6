// How the quillon command speaks to a person when something does not work.
#pragma once

#include <unistd.h>

#include "quillon/base/failure.h"

namespace quillon {

// "quillon: <what>; <remedy>" as one line, its end included.
std::string reportLine(const Failure& failure);

// Prints that line on standard error, or on another descriptor, and returns the failure's status.
int report(const Failure& failure, int descriptor = STDERR_FILENO);

}  // namespace quillon
