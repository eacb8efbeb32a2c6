// A fresh folder for one test or measurement, removed with everything in it.
#pragma once

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace quillon::test {

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string made = (std::filesystem::temp_directory_path() / "quillon-XXXXXX").string();
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
