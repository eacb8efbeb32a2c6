// A function that runs in a thread of its own.
#pragma once

#include <functional>
#include <thread>

namespace quillon::host {

// Runs a function in a new thread. The destructor waits for the thread to end.
//
// The thread starts on another processor than its creator if the process may use one. Otherwise a
// scheduler that packs threads, as on small virtual machines, starts the thread on its creator's
// processor. The thread then first runs when the creator sleeps or has used up its time slice, so
// nothing runs in parallel. After the start the thread may run on every processor that its creator
// may use.
class BackgroundTask {
 public:
  // Calls `work` in the calling thread if no thread can be created.
  explicit BackgroundTask(const std::function<void()>& work);
  BackgroundTask(BackgroundTask&&) = default;
  BackgroundTask& operator=(BackgroundTask&&) = default;
  ~BackgroundTask();

 private:
  std::thread thread_;
};

}  // namespace quillon::host
