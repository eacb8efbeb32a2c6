// Traces the system calls of a child process, and kills the child or makes a call fail at a
// selected one.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>

namespace quillon::torture {

struct SystemCall {
  pid_t process;
  std::size_t index;  // 1 for the first call of the child's work
  std::uint64_t number;
  std::array<std::uint64_t, 6> arguments;

  // Returns the string that an argument points to, or an empty string if it cannot be read.
  [[nodiscard]] std::string textAt(std::size_t argument) const;
  // Returns `size` bytes that an argument points to, or fewer if they cannot be read.
  [[nodiscard]] std::string bytesAt(std::size_t argument, std::size_t size) const;
};

// The action for a system call that is about to be executed.
struct Verdict {
  enum class Kind { kRun, kKill, kFail } kind = Kind::kRun;
  int error = 0;  // for kFail: the call is skipped and fails with this errno value

  static Verdict run() { return {}; }
  static Verdict kill() { return {Kind::kKill, 0}; }
  static Verdict fail(int error) { return {Kind::kFail, error}; }
};

struct Follower {
  std::function<Verdict(const SystemCall&)> atEntry;
  // Optional. `result` is the return value of the call: a negative errno value on failure.
  std::function<void(const SystemCall&, std::int64_t result)> atExit;
};

struct TraceResult {
  bool allowed = true;  // false if the machine does not allow tracing; see `reason`
  std::string reason;
  bool killed = false;  // the follower killed the child
  std::string ending;   // "signal 11" or "status 3"; empty if the child completed its work
};

// Runs `work` in a child process and passes each of its system calls to `follower`.
TraceResult follow(const std::function<void()>& work, const Follower& follower);

}  // namespace quillon::torture
