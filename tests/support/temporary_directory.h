// A new folder for one test or measurement. The destructor removes it with its contents.
#pragma once

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace quillon::test {

class TemporaryDirectory {
 public:
  explicit TemporaryDirectory(
      const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
    std::string made = (parent / "quillon-XXXXXX").string();
    if (mkdtemp(made.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), made);
    }
    path_ = made;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace quillon::test
