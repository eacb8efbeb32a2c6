// A thread for what a launch can do beside its own steps.
#pragma once

#include <functional>
#include <thread>

namespace quillon::host {

// Ends with the object, which waits for it.
//
// The thread starts on another processor than its creator's, where the process may use one. Left to
// itself a scheduler that packs threads, as small virtual machines have, starts it on the same one,
// where it first runs when its creator sleeps or has used up its slice: beside nothing. Afterwards
// it may run wherever its creator may.
class SideThread {
 public:
  // Without a thread to be had, `work` is done at once.
  explicit SideThread(const std::function<void()>& work);
  SideThread(SideThread&&) = default;
  SideThread& operator=(SideThread&&) = default;
  ~SideThread();

 private:
  std::thread thread_;
};

}  // namespace quillon::host
