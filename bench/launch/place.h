// A place in which contenders are started and timed: the machine, or the inside of the device root.
//
// A place is a child process, because a process that has entered a device root cannot leave it. The
// child starts a contender and reads the clock at both ends, so that the communication with it is
// not measured.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/launch/contender.h"
#include "bench/launch/memory.h"

namespace quillon::bench {

enum class Task : int { kTime, kMemory };

struct Run {
  bool ready = false;  // the application has reported it
  std::chrono::steady_clock::time_point start;
  double seconds = 0;             // from the request to the application's first output
  Memory memory = {};             // of the application's process while it runs (kMemory)
  std::array<char, 1024> text{};  // the output of a contender that times itself
};

// A command and the file for its output; paths inside the place.
struct Service {
  std::vector<std::string> command;
  std::filesystem::path output;
  std::vector<std::string> environment = {};  // NAME=VALUE, added to the benchmark's
};

class Place {
 public:
  // Starts the child process. The caller must have one thread.
  // device   the device root to enter; empty for the machine
  // visible  folders of the machine that are visible inside
  // service  a command that runs as long as the place exists; empty for none
  Place(const std::vector<Contender>& contenders, const std::filesystem::path& device,
        const std::vector<std::filesystem::path>& visible, const Service& service);
  ~Place();
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  // Runs a contender to its end. With kMemory, the contender waits while its memory is measured.
  [[nodiscard]] Run run(std::size_t contender, Task task) const;

 private:
  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace quillon::bench
