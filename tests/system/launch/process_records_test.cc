// The records of processes that have ended: a launch removes them when nobody waits for it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/system/launch/running_probe.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

constexpr char kRecords[] = "/opt/usr/share/quillon/processes";
constexpr std::ptrdiff_t kEnded = 3000;
constexpr int kNoProcess = 5'000'000;  // larger than every process id, see proc_sys_kernel(5)

class ProcessRecords : public RuntimeTest {
 protected:
  void SetUp() override {
    RuntimeTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    makeDevice();
    fs::create_directories(at(kRecords));
    for (int i = 0; i < kEnded; ++i) {
      fs::create_symlink("1:package", at(kRecords) / std::to_string(kNoProcess + i));
    }
  }
  // The number of records of ended processes.
  std::ptrdiff_t ended() const {
    std::ptrdiff_t count = 0;
    for (const auto& entry : fs::directory_iterator(at(kRecords))) {
      count += std::stoi(entry.path().filename()) >= kNoProcess ? 1 : 0;
    }
    return count;
  }
};

TEST_F(ProcessRecords, AreRemovedAfterTheApplication) {
  RunningProbe probe(root(), "inhouse");
  EXPECT_EQ(ended(), kEnded);
  EXPECT_EQ(probe.quit(), 0);
  EXPECT_EQ(ended(), 0);
}

TEST_F(ProcessRecords, AreRemovedIfTheApplicationExitsByItself) {
  EXPECT_EQ(launch({kClock, "--direct", "--", "--exit-at-once", "--exit", "3"}).status, 3);
  EXPECT_EQ(ended(), 0);
}

TEST_F(ProcessRecords, AreNotRemovedByAPlan) {
  EXPECT_EQ(launch({kClock, "--plan"}).status, 0);
  EXPECT_EQ(ended(), kEnded);
}

}  // namespace
}  // namespace quillon::test
