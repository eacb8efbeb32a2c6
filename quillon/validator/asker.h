// The process that a request names.
#pragma once

#include <sys/types.h>

namespace quillon::validator {

// Whether the process has ended or is on its way out: from there on it reads no answer, though its
// id may be taken for a while, by a process that is still letting go of what it had or that nobody
// waited for. False where that cannot be seen.
bool hasEnded(pid_t process);

}  // namespace quillon::validator
