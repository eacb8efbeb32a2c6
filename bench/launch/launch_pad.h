// The launch pad that serves the prepared contenders.
//
// Each of its pools holds one process and is filled only when this object asks for it, so that no
// launch meets a refill, and every launch is known to have been served by it or not.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <utility>
#include <vector>

#include "bench/launch/contender.h"
#include "bench/launch/place.h"
#include "quillon/base/failure.h"

namespace quillon::bench {

// The command that serves a device root in this way.
Service launchPadFor(const std::filesystem::path& quillon, const std::filesystem::path& device);

class LaunchPad {
 public:
  // place  where the command of launchPadFor() runs, and all that asks it
  // wait   how long processes have waited for their launch
  LaunchPad(const Place& place, std::filesystem::path device, std::chrono::duration<double> wait);

  // Waits until it serves, and runs each of the contenders once, whoever serves it: there is a pool
  // for it from then on.
  [[nodiscard]] Expected<void> start(const std::vector<size_t>& contenders) const;

  // Makes waiting processes anew where one is missing.
  [[nodiscard]] Expected<void> fill() const;

  // Runs a contender to its end with the pool as it wants it. Fails where it was not served as it
  // should have been: its time would be another contender's.
  [[nodiscard]] Expected<Run> run(size_t contender, const Contender& what, Task task) const;

  // Makes all waiting processes anew; what each of them and the launch pad itself cost.
  [[nodiscard]] Expected<std::pair<std::vector<Memory>, Memory>> memory() const;

 private:
  struct State {
    pid_t process = 0;
    int served = 0;
    size_t pools = 0;
    std::vector<pid_t> ready;
    bool busy = false;  // a process is neither ready nor gone

    [[nodiscard]] bool isFull() const { return ready.size() == pools && !busy; }
  };
  static State parse(const std::string& status);

  [[nodiscard]] Expected<State> state() const;
  [[nodiscard]] Expected<State> awaitFull() const;
  [[nodiscard]] Expected<State> refill() const;
  [[nodiscard]] Expected<void> empty(size_t contender) const;
  [[nodiscard]] Expected<std::pair<Run, int>> runAndCount(size_t contender, Task task) const;

  const Place& place_;
  const std::filesystem::path device_;
  const std::chrono::duration<double> wait_;
};

}  // namespace quillon::bench
