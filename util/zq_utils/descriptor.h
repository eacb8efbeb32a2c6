// Owns a file descriptor and closes it.
#pragma once

#include <unistd.h>

#include <cerrno>

class Descriptor {
 public:
  // Takes ownership of the result of open(2); -1 means no file.
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  // Preserves errno, so that the caller can still report what failed.
  ~Descriptor() {
    if (descriptor_ >= 0) {
      const int kept = errno;
      close(descriptor_);
      errno = kept;
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }

  // read(2) and write(2), repeated if a signal interrupts them.
  ssize_t readSome(char* buffer, std::size_t size) const {
    return retried([&] { return read(descriptor_, buffer, size); });
  }
  ssize_t writeSome(const char* bytes, std::size_t size) const {
    return retried([&] { return write(descriptor_, bytes, size); });
  }

 private:
  template <typename Call>
  static ssize_t retried(const Call& call) {
    ssize_t result = 0;
    do {
      result = call();
    } while (result < 0 && errno == EINTR);
    return result;
  }

  int descriptor_;
};
