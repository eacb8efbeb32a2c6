// The answer pipe from the validator's side.
//
// An answer carries no name: whoever reads the pipe first gets what is in it, up to 1023 bytes. So
// an answer must be the only one in the pipe, short enough for one read, and gone before the next
// is sent: two in the pipe would both go to one reader and leave the other waiting, and one that
// nobody took would be taken for the answer to a later request.
#pragma once

#include <sys/types.h>

#include <functional>

namespace quillon::validator {

enum class Delivery {
  kTaken,      // somebody read it
  kWithdrawn,  // nobody did in time, or the asker ended: thrown away
  kNoPipe,     // the pipe is gone, or is no pipe
};

// Sends an answer with `send` (create_pipe_client) and waits until it was read: at most ten
// seconds, and no longer than process `asker` lives, 0 being a process that is not known. What is
// in the pipe before is thrown away.
[[nodiscard]] Delivery deliver(pid_t asker, const std::function<void()>& send);

// Whether a process is known to have ended.
[[nodiscard]] bool hasEnded(pid_t process);

}  // namespace quillon::validator
