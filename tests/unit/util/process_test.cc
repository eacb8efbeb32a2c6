#include "util/zq_utils/process.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <array>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "tests/system/device_root/inside.h"

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

// The machine's own "/etc" does not matter in a device root that has the file.
class ReleaseVersionOfADevice : public quillon::test::DeviceRootTest {
 protected:
  // Returns the result inside the device root.
  bool isRelease() const {
    const quillon::test::Outcome outcome = quillon::test::inChild([this] {
      if (const auto entered = quillon::device::enter(root_, {}); !entered) {
        std::cout << entered.error().what;
        return 2;
      }
      return isReleaseVersion() ? 1 : 0;
    });
    EXPECT_LT(outcome.status, 2) << outcome.output;
    return outcome.status == 1;
  }
};

TEST_F(ReleaseVersionOfADevice, IsOneIfTheFileExists) {
  quillon::test::write(root_ / "etc/release", "");
  EXPECT_TRUE(isRelease());
}

TEST_F(ReleaseVersionOfADevice, IsNoneIfTheFileDoesNot) {
  std::filesystem::create_directories(root_ / "etc");
  std::filesystem::create_symlink("/nowhere", root_ / "etc/release");
  EXPECT_FALSE(isRelease());
}

}  // namespace
