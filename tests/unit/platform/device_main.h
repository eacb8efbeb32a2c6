// Tests that run inside a device root of their own, which their main program makes and enters.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/support/skip.h"

namespace quillon::test {

// Why the process could not enter a device root; empty when it is in one.
const std::string& whyOutside();

// Begins with no package, no configuration and no registry.
class InsideDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override;
};

// Runs `body` in a child process and returns its exit status; 128 + signal.
int inChild(const std::function<int()>& body);

}  // namespace quillon::test
