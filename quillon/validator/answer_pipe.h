// The validator's side of the answer pipe.
//
// An answer does not name its request: the first reader gets the content of the pipe, up to 1023
// bytes. So an answer must fit into one read, and it must have left the pipe before the next one is
// sent. Of two answers in the pipe, one reader would get both and the other would wait forever. An
// answer that no process read would be taken for the answer to a later request.
#pragma once

#include <functional>

namespace quillon::validator {

enum class Delivery {
  kRead,       // a process read it
  kNoReader,   // not sent: no process has the pipe open, or the request is abandoned
  kDiscarded,  // sent, but the request was abandoned, all readers ended, or no process read the
               // answer within ten seconds
  kNoPipe,     // the file is missing, or is not a pipe
};

// Discards the content of the pipe, sends an answer with `send` (create_pipe_client), and waits
// until it was read. The pipe is locked (flock(2)) from before the first call of `isAbandoned`
// until it is empty. A launch that begins its turn waits for that lock, so it finds no answer to an
// earlier request.
//
// isAbandoned  returns whether a process that opens the pipe now waits for another answer; called
//              before the answer is sent and while it is in the pipe
[[nodiscard]] Delivery deliver(const std::function<void()>& send,
                               const std::function<bool()>& isAbandoned);

}  // namespace quillon::validator
