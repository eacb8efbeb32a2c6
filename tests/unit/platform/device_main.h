// Tests of what the workstation platform stores at device paths. The test program runs inside its
// own device root.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/device_main.h"
#include "tests/support/skip.h"

namespace quillon::test {

// Begins without packages, configuration and registry.
class InsideDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override;
};

}  // namespace quillon::test
