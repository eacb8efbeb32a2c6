// A test with a temporary folder and an empty platform.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/recording_platform.h"
#include "tests/support/temporary_directory.h"

namespace quillon::test {

class TreeTest : public PlatformTest {
 protected:
  // The path of `name` in the test's folder.
  std::string at(const std::string& name) const { return (directory_.path() / name).string(); }

  std::string makeDirectory(const std::string& name) const {
    std::filesystem::create_directories(at(name));
    return at(name);
  }

  // Creates a file and its parent directories.
  std::string makeFile(const std::string& name, const std::string& content = "") const {
    std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
    std::ofstream(at(name), std::ios::binary) << content;
    return at(name);
  }

  std::string makeLink(const std::string& name, const std::string& target) const {
    std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
    std::filesystem::create_symlink(target, at(name));
    return at(name);
  }

  static std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // Whether the path exists, even as a dangling link.
  static bool isThere(const std::string& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
  }

 private:
  TemporaryDirectory directory_;
};

}  // namespace quillon::test
