// Where contenders are started and timed: on the machine, or inside the device root.
//
// A place is a child process of its own, since a process that entered a device root cannot leave
// it. It starts a contender and reads the clock on both ends itself, so that the place costs
// nothing that is measured.
#pragma once

#include <sys/types.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/launch/contender.h"
#include "bench/launch/memory.h"

namespace quillon::bench {

enum class Task : int { kTime, kMemory };

struct Run {
  bool ready = false;             // the application said so
  double seconds = 0;             // from the request to the application's first output
  Memory memory = {};             // of the application's process while it runs (kMemory)
  std::array<char, 1024> text{};  // what a contender printed which times itself
};

// A command and the file that its output goes to, both as the place sees them.
struct Service {
  std::vector<std::string> command;
  std::filesystem::path output;
};

class Place {
 public:
  // Makes the child process. The caller must have one thread.
  // device   the device root to enter, empty for the machine
  // visible  what stays visible inside
  // service  a command that runs there as long as the place does; empty: none
  Place(const std::vector<Contender>& contenders, const std::filesystem::path& device,
        const std::vector<std::filesystem::path>& visible, const Service& service);
  ~Place();
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  // Runs a contender to its end. With kMemory it is told to wait and looked at meanwhile.
  [[nodiscard]] Run run(std::size_t contender, Task task) const;

 private:
  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace quillon::bench
