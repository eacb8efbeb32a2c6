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
    while (!bytes.empty()) {
      const ssize_t written = write(descriptor_, bytes.data(), bytes.size());
      if (written <= 0) {
        throw std::system_error(errno, std::generic_category(), "memory file");
      }
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Valid as long as the object lives.
  [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

}  // namespace quillon::fuzz
