// Tests launches that are killed at each of their system calls in turn.
#include <gmock/gmock.h>

#include <iostream>

#include "tests/system/torture/device_main.h"
#include "tests/system/torture/traced_process.h"

namespace quillon::torture {
namespace {

using ::testing::AnyOf;
using ::testing::Each;

using Prepare = std::function<void()>;

class CacheKill : public DeviceTest {
 protected:
  // Performs a launch that is killed before its system call number `call`.
  static TraceResult launchKilledAt(std::size_t call) {
    return follow(
        [] {
          waitForDisk(true);
          initializePlugin();
          assemblyList();
        },
        {.atEntry =
             [call](const SystemCall& made) {
               return made.index == call ? Verdict::kill() : Verdict::run();
             },
         .atExit = {}});
  }

  void expectNothingStrange() const {
    EXPECT_THAT(namesInCacheDirectory(),
                Each(AnyOf("TPA.txt", "temp_TPA.txt", "CoBA.txt", "temp_CoBA.txt")));
  }

  // Checks the launch after the killed one, and the next one, which finds a complete cache.
  void expectRightLaunches() const {
    for (int times = 0; times < 2; ++times) {
      const Launched launched = launch();
      EXPECT_EQ(launched.ending, "");
      EXPECT_EQ(launched.list, expected);
    }
    EXPECT_EQ(readFile(cachePath()), whole(expected));
  }

  // Kills a launch at every call, until a launch completes.
  void killEverywhere(const Prepare& prepare) {
    std::size_t call = 1;
    for (; !HasFailure(); ++call) {
      SCOPED_TRACE("killed at system call " + std::to_string(call));
      clearCaches();
      prepare();
      const TraceResult result = launchKilledAt(call);
      if (!result.allowed) {
        QUILLON_SKIP(result.reason);
      }
      EXPECT_EQ(result.ending, "");
      expectNothingStrange();
      expectRightLaunches();
      if (!result.killed) {
        break;
      }
    }
    std::cout << "killed at each of " << call - 1 << " system calls" << std::endl;
    EXPECT_GT(call, 40U) << "fewer system calls than building the list and writing it takes";
  }
};

TEST_F(CacheKill, NextLaunchIsRightAfterADeathWhileBuildingTheCache) {
  killEverywhere([] {});
}

TEST_F(CacheKill, NextLaunchIsCorrectAfterADeathWhileReplacingAnIncompleteCache) {
  killEverywhere([this] {
    writeFile(cachePath(), "[START]" + expected);
    writeFile(temporaryPath(), "[START]/left/by/another/death.dll");
  });
}

}  // namespace
}  // namespace quillon::torture
