#include "quillon/host/runtime/framework_check.h"

#include <gtest/gtest.h>

namespace quillon::host {
namespace {

TEST(FrameworkVersion, ServesOlderApplications) {
  EXPECT_TRUE(serves("10.0.12", "10.0.0"));
  EXPECT_TRUE(serves("10.0.0", "9.0.8"));
  EXPECT_TRUE(serves("10.0.0", "10.0.0"));
  EXPECT_TRUE(serves("10.0.0-preview.1", "10.0.0"));
}

TEST(FrameworkVersion, DoesNotServeNewerApplications) {
  EXPECT_FALSE(serves("9.0.12", "10.0.0"));
  EXPECT_FALSE(serves("10.0.1", "10.0.2"));
  EXPECT_FALSE(serves("10.0.0", "10.1.0"));
}

TEST(FrameworkVersion, ServesIfEitherIsUnknown) {
  EXPECT_TRUE(serves("", "10.0.0"));
  EXPECT_TRUE(serves("8.0.0", ""));
}

}  // namespace
}  // namespace quillon::host
