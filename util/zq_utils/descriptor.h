// A file descriptor with an owner.
#pragma once

#include <unistd.h>

#include <cerrno>

class Descriptor {
 public:
  // Takes over what open(2) returned; -1 is no file.
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  // Keeps errno, so that a caller can still tell what failed.
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

  // read(2) and write(2), begun again where a signal came in between.
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
