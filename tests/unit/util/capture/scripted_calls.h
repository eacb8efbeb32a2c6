// The C library's calls that start a capture, between the code under test and the C library.
//
// The test program defines setvbuf, pipe, pthread_create and so on itself. Each call is noted and
// goes on to the C library, except where the test wants it to fail.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace quillon::test {

struct ScriptedCalls {
  static thread_local bool active;  // whether this thread's calls are noted and fail
  std::string failing;              // the call that fails, as it is noted
  std::vector<std::string> calls;   // "setvbuf stdout line 0", "pipe", "dup2 1",
                                    // "pthread_create 2", "pthread_setname_np Stdout Thread",
                                    // "pthread_detach 1"; a number is that of the call or the
                                    // descriptor
  time_t now = 0;                   // what time() tells, a second later each time; 0: the truth
  std::function<void()> onTime;     // runs inside time()
};

ScriptedCalls& calls();

}  // namespace quillon::test
