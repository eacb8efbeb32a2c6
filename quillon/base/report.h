// Reports failures to the user.
#pragma once

#include <unistd.h>

#include "quillon/base/failure.h"

namespace quillon {

// Returns `text` with blanks in place of control characters, so that line breaks and terminal
// escapes in a path or value cannot change the rest of the output.
std::string oneLine(std::string text);

// What a command reports if its standard output cannot be written, for example to a full disk.
Failure outputFailure();

// Returns "quillon: <what>; <remedy>" with a line end.
std::string reportLine(const Failure& failure);

// Writes that line to `descriptor` and returns the failure's exit status.
int report(const Failure& failure, int descriptor = STDERR_FILENO);

}  // namespace quillon
