// A device root of a test's own, and commands that run inside it.
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

// Enters `root` in a child and runs `script` with /bin/sh there. Where it cannot be entered, the
// status is the one that the quillon command would end with and the output says why.
Outcome inside(const std::filesystem::path& root, const std::string& script,
               const device::EnterOptions& options = {});

void write(const std::filesystem::path& file, const std::string& content);
std::string read(const std::filesystem::path& file);

// Why no device root can be entered on this machine; empty where it can.
const std::string& whyNot();

// A fresh device root without a framework, under `parent`. Skips where none can be entered.
class DeviceRootTest : public ::testing::Test {
 private:
  std::vector<std::filesystem::path> folders_;  // first: `root_` is one of them

 protected:
  explicit DeviceRootTest(std::filesystem::path parent = "/var/tmp");
  ~DeviceRootTest() override;
  void SetUp() override;

  // A fresh folder under `parent`, removed with the test.
  std::filesystem::path fresh(const std::filesystem::path& parent);

  std::filesystem::path root_;
};

}  // namespace quillon::test
