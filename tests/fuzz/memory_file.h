// A file in memory.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

namespace quillon::fuzz {

class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes) : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
    replace(bytes);
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Replaces the content. Faster than another file.
  void replace(std::string_view bytes) {
    const bool isReplaced =
        ftruncate(descriptor_, 0) == 0 &&
        pwrite(descriptor_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    if (!isReplaced) {
      throw std::system_error(errno, std::generic_category(), "memory file");
    }
  }

  // Valid as long as the object lives.
  [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

}  // namespace quillon::fuzz
