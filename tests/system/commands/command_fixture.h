// Runs the built quillon command with a fresh device root.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/program.h"
#include "tests/support/skip.h"
#include "tests/support/temporary_directory.h"

namespace quillon::test {

class CommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const Finished made = quillon({"device", "init", device(), "--framework", "none"});
    ASSERT_EQ(made.status, 0) << made.err;
    const Finished entered = quillon({"package", "list"});
    constexpr int kNoNamespace = 102;
    if (entered.status == kNoNamespace) {
      QUILLON_SKIP("no device root: " << entered.err);
    }
  }
  [[nodiscard]] std::string device() const { return (folder_.path() / "device").string(); }
  [[nodiscard]] const std::filesystem::path& folder() const { return folder_.path(); }

  std::vector<std::string> commandOf(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), QUILLON_COMMAND);
    return arguments;
  }
  // Runs the command with QUILLON_DEVICE set to the device root.
  Finished quillon(const std::vector<std::string>& arguments) {
    return run(commandOf(arguments), {{"QUILLON_DEVICE", device()}});
  }

 private:
  TemporaryDirectory folder_;
};

}  // namespace quillon::test
