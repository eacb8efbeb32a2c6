// Private replacements for the validator's pipes, which all processes of the machine share. The
// linker redirects the program's calls (--wrap in CMakeLists.txt).
#pragma once

#include <string>
#include <string_view>

namespace quillon::fuzz {

// As long as an object lives, the request pipe and the answer pipe are two empty pipes of this
// process in memory, and reads from them do not block. Only one object may exist at a time.
class PrivatePipes {
 public:
  PrivatePipes();
  ~PrivatePipes();
  PrivatePipes(const PrivatePipes&) = delete;
  PrivatePipes& operator=(const PrivatePipes&) = delete;

  // The next open(2) of one of the pipes finds these bytes in it, up to 4096.
  void send(std::string_view bytes);

  // Reads and returns the unread bytes of a pipe, up to 64 KiB.
  [[nodiscard]] std::string takeRequests() const;
  [[nodiscard]] std::string takeAnswers() const;
};

}  // namespace quillon::fuzz
