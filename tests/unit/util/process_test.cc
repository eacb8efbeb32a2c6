#include "util/zq_utils/process.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <array>
#include <filesystem>
#include <string>
#include <thread>

namespace {

// Returns the name that a new thread has after the call.
std::string nameAfter(const std::string& name) {
  std::array<char, 17> kept{};
  std::thread([&] {
    prctl(PR_SET_NAME, "before");
    setCmdName(name);
    prctl(PR_GET_NAME, kept.data());
  }).join();
  return kept.data();
}

TEST(ThreadName, IsCutToFifteenCharacters) {
  EXPECT_EQ(nameAfter("DN_short"), "DN_short");
  EXPECT_EQ(nameAfter("123456789012345"), "123456789012345");
  EXPECT_EQ(nameAfter("1234567890123456"), "123456789012345");
}

TEST(ThreadName, StaysIfTheNewOneIsEmpty) { EXPECT_EQ(nameAfter(""), "before"); }

TEST(ReleaseVersion, FollowsTheReleaseFile) {
  EXPECT_EQ(isReleaseVersion(), std::filesystem::exists("/etc/release"));
}

}  // namespace
