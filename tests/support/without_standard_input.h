// A process without standard input, as some launchers are.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace quillon::test {

// Closes standard input while the object exists, so that the next file that is opened has the
// number 0. Closes that file at the end if it is still open.
class WithoutStandardInput {
 public:
  WithoutStandardInput() : kept_(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    close(STDIN_FILENO);
  }
  ~WithoutStandardInput() {
    dup2(kept_, STDIN_FILENO);
    close(kept_);
  }
  WithoutStandardInput(const WithoutStandardInput&) = delete;
  WithoutStandardInput& operator=(const WithoutStandardInput&) = delete;

 private:
  int kept_;
};

}  // namespace quillon::test
