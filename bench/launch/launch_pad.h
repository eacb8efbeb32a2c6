// The launch pad that serves the prepared contenders.
//
// Each pool holds one process and is refilled only on request of this object. So no launch overlaps
// with a refill, and it is known whether the launch pad served a launch.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "bench/launch/contender.h"
#include "bench/launch/place.h"
#include "bench/launch/setup.h"
#include "quillon/base/failure.h"

namespace quillon::bench {

// The launch pad's command for a device root.
//
// more  further options
Service launchPadFor(const std::filesystem::path& quillon, const std::filesystem::path& device,
                     const std::vector<std::string>& more);

struct WaitingProcess {
  std::string pool;
  Memory memory;
};

// What the preparation of the waiting processes costs.
struct Preparation {
  double seconds = 0;  // from the request for new ones until the last one is ready
  std::vector<WaitingProcess> waiting;
  Memory launchPad;  // of the launch pad's server
};

class LaunchPad {
 public:
  // place  the place in which the command of launchPadFor() and its clients run
  // setup  of the place
  // wait   how long processes wait before their launch
  LaunchPad(const Place& place, const Setup& setup, std::chrono::duration<double> wait);

  // Waits until the launch pad is ready and runs each contender once, so that it has a pool
  // afterwards.
  [[nodiscard]] Expected<void> start(const std::vector<size_t>& contenders) const;

  // Replaces the waiting processes if one is missing.
  [[nodiscard]] Expected<void> fill() const;

  // Runs a contender to its end, with its pool full or empty as it requires. Fails if it was not
  // served accordingly, because its time would belong to another contender.
  [[nodiscard]] Expected<Run> run(size_t contender, const Contender& what, Task task) const;

  // Replaces all waiting processes.
  [[nodiscard]] Expected<Preparation> prepare() const;

 private:
  struct ReadyProcess {
    pid_t pid = 0;
    std::string pool;
    std::string application;  // that it is prepared for; empty if for none
  };
  struct State {
    pid_t process = 0;
    int served = 0;
    size_t pools = 0;
    std::vector<ReadyProcess> ready;
    bool busy = false;       // a process is starting or ending
    std::string lastReason;  // of the last direct launch; empty if there was none

    [[nodiscard]] bool isFull() const { return ready.size() >= pools && !busy; }
    [[nodiscard]] bool hasOwn(const std::string& appId) const;
  };

  [[nodiscard]] Expected<State> state() const;
  [[nodiscard]] Expected<State> awaitFull() const;
  [[nodiscard]] Expected<State> refill() const;
  [[nodiscard]] Expected<void> empty(size_t contender) const;
  [[nodiscard]] Expected<void> bring(const Contender& what, size_t contender) const;
  [[nodiscard]] Expected<std::pair<Run, int>> runAndCount(size_t contender, Task task) const;

  const Place& place_;
  const std::filesystem::path device_;
  const std::string statusCommand_;
  const std::chrono::duration<double> wait_;
};

}  // namespace quillon::bench
