// Kills an installation at each of its system calls. Packages must be complete afterwards.
#include <gmock/gmock.h>
#include <sys/syscall.h>

#include "tests/system/torture/traced_process.h"
#include "tests/unit/platform/left_packages.h"

namespace quillon::test {
namespace {

using torture::Follower;
using torture::SystemCall;
using torture::Verdict;

class InstallKillTest : public LeftPackagesTest {
 protected:
  // Runs the work again and again, and kills it at its first, second, ... system call until it
  // completes. Checks after each run.
  template <typename Prepare, typename Work, typename Check>
  void killAtEachCall(const Prepare& prepare, const Work& work, const Check& check) {
    bool killed = true;
    size_t index = 1;
    for (; killed; ++index) {
      InsideDeviceTest::SetUp();
      prepare();
      const auto at = [&](const SystemCall& call) {
        return call.index == index ? Verdict::kill() : Verdict::run();
      };
      const auto result = torture::follow(work, Follower{at, nullptr});
      if (!result.allowed) {
        QUILLON_SKIP(result.reason);
      }
      killed = result.killed;
      expectReadable();
      check();
      if (HasFailure()) {
        FAIL() << "killed at call " << index;
      }
    }
    RecordProperty("calls", static_cast<int>(index - 2));
    EXPECT_GT(index, 50U) << "the work made no calls worth the name";
  }
};

void install(const std::string& version, const std::string& line = "") {
  if (!VersionOfP(version, line).install()) {
    std::abort();
  }
}

TEST_F(InstallKillTest, ANewPackage) {
  killAtEachCall([] {}, [] { install("1"); }, expectComplete);
}

TEST_F(InstallKillTest, AReplacement) {
  killAtEachCall([] { install("1"); }, [] { install("2"); }, expectCompleteAndInstalled);
}

TEST_F(InstallKillTest, AReplacementAtAnotherRoot) {
  killAtEachCall([] { install("1"); }, [] { install("2", "root = '/opt/share/p'"); },
                 expectCompleteAndInstalled);
}

TEST_F(InstallKillTest, ARemoval) {
  killAtEachCall([] { install("1"); },
                 [] {
                   if (!workstation::removePackage("p")) {
                     std::abort();
                   }
                 },
                 expectComplete);
}

}  // namespace
}  // namespace quillon::test
