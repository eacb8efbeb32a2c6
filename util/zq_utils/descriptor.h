// Owns a file descriptor and closes it.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

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

  // Returns a path that leads to the open file itself, even if the file's name now leads to another
  // file (proc(5)), or nowhere if no file is open.
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

  // Returns true if the open file belongs to the user of this process, has no other name, and is
  // not a symbolic link. Then no other user has created it, or put a link to it into a directory
  // that every user can write to. A directory always has one name, although its link count includes
  // its subdirectories.
  bool isOwnFile() const {
    struct stat status {};
    return fstat(descriptor_, &status) == 0 && !S_ISLNK(status.st_mode) &&
           status.st_uid == geteuid() && (S_ISDIR(status.st_mode) || status.st_nlink == 1);
  }

  // read(2) and write(2), repeated if a signal interrupts them.
  ssize_t readSome(char* buffer, std::size_t size) const {
    return retried([&] { return read(descriptor_, buffer, size); });
  }
  ssize_t writeSome(const char* bytes, std::size_t size) const {
    return retried([&] { return write(descriptor_, bytes, size); });
  }

  // Writes all bytes. Returns false and sets errno on failure.
  bool writeAll(const char* bytes, std::size_t size) const {
    while (size > 0) {
      const ssize_t written = writeSome(bytes, size);
      if (written < 0) {
        return false;
      }
      bytes += written;
      size -= static_cast<std::size_t>(written);
    }
    return true;
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
