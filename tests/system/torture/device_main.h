// Tests that run inside their own device root.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/device_main.h"
#include "tests/support/skip.h"
#include "tests/system/torture/device_files.h"
#include "tests/system/torture/launch.h"

namespace quillon::torture {

using test::whyOutside;

// Starts with an empty cache directory, the loaded plug-in, and assemblies to list.
class DeviceTest : public ::testing::Test {
 protected:
  void SetUp() override;

  std::string expected;  // the list that every launch must return
};

}  // namespace quillon::torture
