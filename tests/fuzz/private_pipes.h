// Pipes of a target's own in place of the validator's, which every process of the machine shares.
// The program's calls are led there by the linker (--wrap in CMakeLists.txt).
#pragma once

#include <string>
#include <string_view>

#include "tests/support/temporary_directory.h"

namespace quillon::fuzz {

// While one lives, the request pipe and the answer pipe are two FIFOs in a folder of its own, and
// no read from them waits. One at a time.
class PrivatePipes {
 public:
  PrivatePipes();
  ~PrivatePipes();
  PrivatePipes(const PrivatePipes&) = delete;
  PrivatePipes& operator=(const PrivatePipes&) = delete;

  // Whoever next opens one of the pipes with open(2) finds these bytes in it, up to 4096.
  void send(std::string_view bytes);

  // What is in a pipe, taken out of it: what was written to it and not read, up to 64 KiB.
  [[nodiscard]] std::string takeRequests() const { return take(requests_); }
  [[nodiscard]] std::string takeAnswers() const { return take(answers_); }

 private:
  static std::string take(int pipe);

  test::TemporaryDirectory folder_;
  int requests_;  // both are kept open, or what is in them would go with the last who closes
  int answers_;
};

}  // namespace quillon::fuzz
