// The answer pipe from the validator's side.
//
// An answer carries no name: whoever reads the pipe first gets what is in it, up to 1023 bytes. So
// an answer must be the only one in the pipe, short enough for one read, and gone before the next
// is sent: two in the pipe would both go to one reader and leave the other waiting, and one that
// nobody took would be taken for the answer to a later request.
#pragma once

#include <functional>

namespace quillon::validator {

enum class Delivery {
  kTaken,      // somebody read it
  kNobody,     // not sent: no process has the pipe open or the request is abandoned
  kWithdrawn,  // the request was abandoned, all who waited ended, or nobody read it in ten seconds:
               // thrown away
  kNoPipe,     // the pipe is gone, or is no pipe
};

// Sends an answer with `send` (create_pipe_client) and waits until it was read. What is in the pipe
// before is thrown away. From before `isAbandoned` is first asked until the pipe is empty again, it
// is locked (flock(2)): a launch that begins its turn waits for that lock, and so finds no answer
// to an earlier one.
//
// isAbandoned  whether whoever opens the pipe now waits for another answer; asked before and while
//              the answer is in the pipe
[[nodiscard]] Delivery deliver(const std::function<void()>& send,
                               const std::function<bool()>& isAbandoned);

}  // namespace quillon::validator
