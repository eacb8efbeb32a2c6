// A package to install in tests.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/program.h"
#include "tests/support/temporary_directory.h"
#include "workstation/packages.h"

namespace quillon::test {

// A manifest in a new folder, with a folder "files" beside it.
class SamplePackage {
 public:
  explicit SamplePackage(std::string id, std::string version = "1") {
    lines_ = "[package]\nid = '" + std::move(id) + "'\nversion = '" + std::move(version) + "'\n";
  }
  SamplePackage& add(const std::string& lines) {
    lines_ += lines + "\n";
    return *this;
  }
  // Adds a file to the package. The first call adds the key "files" to the manifest.
  SamplePackage& file(const std::string& name, const std::string& contents) {
    if (!std::filesystem::exists(folder_.path() / "files")) {
      add("files = 'files'");
    }
    writeFile((folder_.path() / "files" / name).string(), contents);
    return *this;
  }
  std::string manifest() {
    const std::string path = (folder_.path() / "manifest.toml").string();
    writeFile(path, lines_);
    return path;
  }
  Expected<workstation::Package> install(uid_t owner = 0) {
    return workstation::installPackage(manifest(), owner);
  }
  [[nodiscard]] const std::filesystem::path& folder() const { return folder_.path(); }

 private:
  TemporaryDirectory folder_;
  std::string lines_;
};

}  // namespace quillon::test
