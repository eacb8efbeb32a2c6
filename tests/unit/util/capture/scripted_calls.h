// Replaces the calls of the C library that start a capture.
//
// The test program defines setvbuf, pipe, pthread_create and the other calls. Each call is recorded
// and forwarded to the C library unless the test makes it fail.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace quillon::test {

struct ScriptedCalls {
  static thread_local bool active;  // if true, calls of this thread are recorded and can fail
  std::string failing;              // the call that fails, in its recorded form
  std::vector<std::string> calls;   // "setvbuf stdout line 0", "pipe", "dup2 1",
                                    // "pthread_create 2", "pthread_setname_np Stdout Thread",
                                    // "pthread_detach 1"; a number is that of the call or the
                                    // descriptor
  int lostRaces = 0;             // of the next calls of write in such a thread, so many find that
                                 // another writer has taken the room
  int interruptions = 0;         // of the next calls of poll, a signal interrupts so many
  int polls = 0;                 // the calls of poll in such threads
  time_t now = 0;                // result of time(), one more per call; 0: real time
  std::function<void()> onTime;  // runs inside time()
};

ScriptedCalls& calls();

}  // namespace quillon::test
