// A file descriptor with an owner, for the tools and the launcher.
//
// The plug-in (util/zq_utils) and the workstation platform (platform/workstation/files) have one
// each of their own: they are other libraries, and neither sees a header of the tools or of the
// other.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace quillon {

class Descriptor {
 public:
  Descriptor() = default;
  // Takes over what open(2) returned; -1 is no file.
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
  // Closes it. Keeps errno, so that a caller can still tell what failed.
  void reset() {
    if (fd_ < 0) return;
    const int kept = errno;
    close(release());
    errno = kept;
  }

 private:
  int fd_ = -1;
};

}  // namespace quillon
