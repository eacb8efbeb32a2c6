// The process that sent a request.
#pragma once

#include <sys/types.h>

namespace quillon::validator {

// Whether the process has ended or is exiting, so that it reads no answer. A process that is still
// releasing its resources, and a zombie, count as ended. Returns false if the state is not
// readable.
bool hasEnded(pid_t process);

}  // namespace quillon::validator
