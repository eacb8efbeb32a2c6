// A child process followed from system call to system call, to kill it at one or to make one fail.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>

namespace quillon::torture {

struct SystemCall {
  pid_t process;
  std::size_t index;  // 1 for the first call that the child's work makes
  std::uint64_t number;
  std::array<std::uint64_t, 6> arguments;

  // The text that an argument points to; empty when it cannot be read.
  [[nodiscard]] std::string textAt(std::size_t argument) const;
};

// What becomes of a system call that is about to be made.
struct Verdict {
  enum class Kind { kRun, kKill, kFail } kind = Kind::kRun;
  int error = 0;  // errno value of kFail: the call is not made and returns this

  static Verdict run() { return {}; }
  static Verdict kill() { return {Kind::kKill, 0}; }
  static Verdict fail(int error) { return {Kind::kFail, error}; }
};

struct Follower {
  std::function<Verdict(const SystemCall&)> atEntry;
  // Optional; `result` is what the call returns to the child: a negative errno value on failure.
  std::function<void(const SystemCall&, std::int64_t result)> atExit;
};

struct TraceResult {
  bool allowed = true;  // false where the machine allows no tracing; `reason` says why
  std::string reason;
  bool killed = false;  // by a verdict
  std::string ending;   // "signal 11", "status 3"; empty for a child that did all its work
};

// Runs `work` in a child process, every system call of which passes `follower`.
TraceResult follow(const std::function<void()>& work, const Follower& follower);

}  // namespace quillon::torture
