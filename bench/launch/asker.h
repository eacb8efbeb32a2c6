// The benchmark's side of launch_asker.
#pragma once

#include <chrono>
#include <optional>

#include "bench/launch/contender.h"
#include "quillon/base/descriptor.h"

namespace quillon::bench {

inline constexpr int kAskerSocket = 3;

// A process that requests the launches of one contender. It starts with the object and ends with
// it.
class Asker {
 public:
  explicit Asker(const Contender& contender);
  ~Asker();
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;

  // Returns false if the process is gone.
  bool request(bool wait, int input, int output) const;

  // The time of the request, when the application has ended. nullopt if the process is gone.
  std::optional<std::chrono::steady_clock::time_point> awaitEnd() const;

 private:
  Descriptor socket_;
  pid_t process_ = -1;
};

}  // namespace quillon::bench
