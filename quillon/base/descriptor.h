// A file descriptor that is closed when its owner ends, for the program and the workstation
// platform. The plug-in has its own in util/zq_utils, since it includes no header of the program.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace quillon {

class Descriptor {
 public:
  Descriptor() = default;
  // Takes ownership of `fd`, a result of open(2); -1 means no file.
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = other.release();
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  // Closes the descriptor. Preserves errno, so that a caller can still report what failed.
  void reset() {
    if (fd_ < 0) {
      return;
    }
    const int kept = errno;
    close(release());
    errno = kept;
  }

 private:
  int fd_ = -1;
};

}  // namespace quillon
