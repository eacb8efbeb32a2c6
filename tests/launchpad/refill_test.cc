// When the launch pad makes its next process; the clock is the test's.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include "quillon/launchpad/server/pools.h"
#include "tests/launch/running_probe.h"

namespace quillon::launchpad {
namespace {

using namespace std::chrono_literals;
using test::eventually;

constexpr std::chrono::milliseconds kNothingToDo{-1};
constexpr std::chrono::milliseconds kPreparing = 30s;  // at most

class Refill : public ::testing::Test {
 protected:
  ~Refill() override {
    pools_.killAll();
    while (!pools_.isEmpty()) reap(*pools_.all().front());
  }

  // Waits for the end of a process.
  void reap(const Process& process) {
    ASSERT_TRUE(eventually([&] { return endingOf(process).has_value(); }));
    pools_.noteEnded(process.number);
  }

  Process& newest() { return *pools_.all().back(); }

  // Has a process made, which dies before it is ready.
  void failOnce() {
    worksAtAll_ = false;
    EXPECT_EQ(pools_.refill(), kPreparing);
    ASSERT_FALSE(pools_.isEmpty());
    reap(newest());
  }

  // Has a process made, and makes it serve a launch.
  void serveOnce() {
    worksAtAll_ = true;
    EXPECT_EQ(pools_.refill(), kPreparing);
    pools_.noteReady(newest());
    Process* const taken = pools_.take(kKey);
    ASSERT_NE(taken, nullptr);
    pools_.noteServed(*taken);
  }

  const PoolKey kKey{"inhouse", true, {}};
  Clock::time_point now_ = Clock::now();
  bool worksAtAll_ = true;
  Pools pools_{{1, 3s, [] { return std::string(); }, [this] { return now_; }},
               [this](const PoolKey&, Descriptor channel) {
                 char byte = 0;
                 while (worksAtAll_ && read(channel.get(), &byte, 1) > 0) {
                 }
               }};
};

// It would compete with the launch, however long the pool had been left alone before.
TEST_F(Refill, WaitsFromTheMomentThatAProcessIsTaken) {
  pools_.want(kKey);
  EXPECT_EQ(pools_.refill(), kPreparing);
  pools_.noteReady(newest());
  EXPECT_EQ(pools_.refill(), kNothingToDo);
  now_ += 1h;
  Process* const taken = pools_.take(kKey);
  ASSERT_NE(taken, nullptr);
  EXPECT_EQ(pools_.refill(), 3s);
  pools_.noteServed(*taken);
  now_ += 1s;
  EXPECT_EQ(pools_.refill(), 2s);
  EXPECT_EQ(pools_.all().size(), 1U);
  now_ += 2s;
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(pools_.all().size(), 2U);
}

TEST_F(Refill, WaitsTwiceAsLongAfterEachDeathAMinuteOrSoAtMost) {
  pools_.want(kKey);
  for (const auto pause : {1s, 2s, 4s, 8s, 16s, 32s, 64s, 64s, 64s}) {
    failOnce();
    EXPECT_EQ(pools_.refill(), pause);
    EXPECT_TRUE(pools_.isEmpty());
    now_ += pause;
  }
}

TEST_F(Refill, WaitsForNoProcessThatHangs) {
  pools_.want(kKey);
  EXPECT_EQ(pools_.refill(), kPreparing);
  now_ += 29s;
  EXPECT_EQ(pools_.refill(), 1s);
  now_ += 1s;
  EXPECT_EQ(pools_.refill(), kNothingToDo);
  reap(newest());
  EXPECT_EQ(pools_.refill(), 1s);
}

TEST_F(Refill, EndsWhereNoProcessCanEverBeMade) {
  pools_.want(kKey);
  failOnce();
  pools_.drop(kKey);
  now_ += 1h;
  EXPECT_EQ(pools_.refill(), kNothingToDo);
}

TEST_F(Refill, ForgetsDeathsOnceALaunchIsServed) {
  pools_.want(kKey);
  failOnce();
  now_ += 1s;
  failOnce();
  now_ += 2s;
  serveOnce();
  now_ += 3s;
  failOnce();
  EXPECT_EQ(pools_.refill(), 1s);
}

TEST_F(Refill, ForgetsDeathsWhenAskedToMakeAllAnew) {
  pools_.want(kKey);
  failOnce();
  EXPECT_EQ(pools_.refill(), 1s);
  pools_.renew();
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(pools_.all().size(), 1U);
}

TEST_F(Refill, TriesAgainWhereTheMachineHasNoProcessLeft) {
  pools_.want(kKey);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(pools_.refill(), 1s);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_TRUE(pools_.isEmpty());
  now_ += 1s;
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(pools_.all().size(), 1U);
}

}  // namespace
}  // namespace quillon::launchpad
