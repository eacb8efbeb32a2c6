// A fresh device root for each test, and commands that run inside it.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "quillon/device/device_root.h"

namespace quillon::test {

struct Outcome {
  int status = -1;     // exit status; 128 + signal
  std::string output;  // standard output and standard error
};

// Runs `body` in a child process, with its output captured.
Outcome inChild(const std::function<int()>& body);

// Enters `root` in a child process and runs `script` there with /bin/sh. If entering fails, returns
// the exit status of the quillon command and the failure as output.
Outcome inside(const std::filesystem::path& root, const std::string& script,
               const device::EnterOptions& options = {});

void write(const std::filesystem::path& file, const std::string& content);
std::string read(const std::filesystem::path& file);

// Returns why no device root can be entered on this machine; empty if one can.
const std::string& whyNot();

// A fresh device root without a framework, below `parent`. Skips if no device root can be entered.
class DeviceRootTest : public ::testing::Test {
 private:
  std::vector<std::filesystem::path> folders_;  // declared first, since `root_` is one of them

 protected:
  explicit DeviceRootTest(std::filesystem::path parent = "/var/tmp");
  ~DeviceRootTest() override;
  void SetUp() override;

  // Creates a folder below `parent`, which is removed after the test.
  std::filesystem::path fresh(const std::filesystem::path& parent);

  std::filesystem::path root_;
};

}  // namespace quillon::test
