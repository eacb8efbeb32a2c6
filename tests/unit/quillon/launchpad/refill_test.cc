// When the server starts its next worker, with a clock that the test advances.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include "quillon/launchpad/server/pools.h"
#include "tests/system/launch/running_probe.h"

namespace quillon::launchpad {
namespace {

using namespace std::chrono_literals;
using test::eventually;

constexpr std::chrono::milliseconds kNothingDue{-1};
constexpr std::chrono::milliseconds kPreparing = 30s;  // the timeout of a preparation

class Refill : public ::testing::Test {
 protected:
  ~Refill() override {
    pools_.killAll();
    while (!pools_.isEmpty()) {
      reap(*pools_.all().front());
    }
  }

  // Waits for the end of a worker.
  void reap(const WorkerProcess& worker) {
    ASSERT_TRUE(eventually([&] { return reapWorker(worker).has_value(); }));
    pools_.onEnded(worker.number);
  }

  WorkerProcess& newest() { return *pools_.all().back(); }

  // Starts a worker that ends before it is ready.
  void failOnce() {
    staysAlive_ = false;
    EXPECT_EQ(pools_.refill(), kPreparing);
    ASSERT_FALSE(pools_.isEmpty());
    reap(newest());
  }

  // Starts a worker that serves a launch.
  void serveOnce() {
    staysAlive_ = true;
    EXPECT_EQ(pools_.refill(), kPreparing);
    pools_.onReady(newest());
    WorkerProcess* const taken = pools_.take(kKey);
    ASSERT_NE(taken, nullptr);
    pools_.onStarted(*taken);
  }

  const PoolKey kKey{"inhouse", true, {}, {}};
  Clock::time_point now_ = Clock::now();
  bool staysAlive_ = true;
  std::function<void(WorkerProcess&)> onOverdue_ = [](WorkerProcess&) {};
  Pools pools_{{1, 3s, [] { return std::string(); },
                [this](WorkerProcess& worker) { onOverdue_(worker); }, [this] { return now_; }},
               [this](const PoolKey&, Descriptor channel) {
                 char byte = 0;
                 while (staysAlive_ && read(channel.get(), &byte, 1) > 0) {
                 }
               }};
};

// A refill would compete with the launch, even if the pool was full for long before.
TEST_F(Refill, IsDelayedAfterAWorkerIsTaken) {
  pools_.ensurePool(kKey);
  EXPECT_EQ(pools_.refill(), kPreparing);
  pools_.onReady(newest());
  EXPECT_EQ(pools_.refill(), kNothingDue);
  now_ += 1h;
  WorkerProcess* const taken = pools_.take(kKey);
  ASSERT_NE(taken, nullptr);
  EXPECT_EQ(pools_.refill(), 3s);
  pools_.onStarted(*taken);
  now_ += 1s;
  EXPECT_EQ(pools_.refill(), 2s);
  EXPECT_EQ(pools_.all().size(), 1U);
  now_ += 2s;
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(pools_.all().size(), 2U);
}

TEST_F(Refill, DoublesItsDelayAfterEachFailureUpTo64Seconds) {
  pools_.ensurePool(kKey);
  for (const auto delay : {1s, 2s, 4s, 8s, 16s, 32s, 64s, 64s, 64s}) {
    failOnce();
    EXPECT_EQ(pools_.refill(), delay);
    EXPECT_TRUE(pools_.isEmpty());
    now_ += delay;
  }
}

TEST_F(Refill, KillsAWorkerThatHangs) {
  pools_.ensurePool(kKey);
  EXPECT_EQ(pools_.refill(), kPreparing);
  now_ += 29s;
  EXPECT_EQ(pools_.refill(), 1s);
  now_ += 1s;
  EXPECT_EQ(pools_.refill(), kNothingDue);
  reap(newest());
  EXPECT_EQ(pools_.refill(), 1s);
}

// Its client may be stopped.
TEST_F(Refill, KillsAWorkerWhoseLaunchDoesNotStart) {
  staysAlive_ = true;
  pools_.ensurePool(kKey);
  EXPECT_EQ(pools_.refill(), kPreparing);
  pools_.onReady(newest());
  WorkerProcess& taken = *pools_.take(kKey);
  pools_.close();
  EXPECT_EQ(pools_.refill(), 60s);
  now_ += 59s;
  EXPECT_EQ(pools_.refill(), 1s);
  now_ += 1s;
  EXPECT_EQ(pools_.refill(), kNothingDue);
  reap(taken);
  EXPECT_TRUE(pools_.isEmpty());
}

// The server may have been stopped when the worker sent its message.
TEST_F(Refill, ReadsTheMessagesOfAWorkerBeforeItKillsIt) {
  staysAlive_ = true;
  pools_.ensurePool(kKey);
  EXPECT_EQ(pools_.refill(), kPreparing);
  onOverdue_ = [this](WorkerProcess& worker) { pools_.onReady(worker); };
  now_ += 1h;
  EXPECT_EQ(pools_.refill(), kNothingDue);
  WorkerProcess* const taken = pools_.take(kKey);
  ASSERT_NE(taken, nullptr);
  pools_.close();
  onOverdue_ = [this](WorkerProcess& worker) { pools_.onStarted(worker); };
  now_ += 1h;
  EXPECT_EQ(pools_.refill(), kNothingDue);
  EXPECT_EQ(taken->stage, Stage::kRunning);
  std::optional<ExitState> end;
  ASSERT_TRUE(eventually([&] { return (end = reapWorker(*taken)).has_value(); }));
  EXPECT_FALSE(end->bySignal) << "It ends by itself because its channel is closed.";
}

TEST_F(Refill, LetsAStartedApplicationRun) {
  pools_.ensurePool(kKey);
  serveOnce();
  pools_.close();
  now_ += 1h;
  EXPECT_EQ(pools_.refill(), kNothingDue);
  EXPECT_EQ(pools_.all().size(), 1U);
}

TEST_F(Refill, EndsWhenThePoolIsRemoved) {
  pools_.ensurePool(kKey);
  failOnce();
  pools_.removePool(kKey);
  now_ += 1h;
  EXPECT_EQ(pools_.refill(), kNothingDue);
}

TEST_F(Refill, ResetsItsDelayWhenALaunchIsServed) {
  pools_.ensurePool(kKey);
  failOnce();
  now_ += 1s;
  failOnce();
  now_ += 2s;
  serveOnce();
  now_ += 3s;
  failOnce();
  EXPECT_EQ(pools_.refill(), 1s);
}

TEST_F(Refill, ResetsItsDelayOnReload) {
  pools_.ensurePool(kKey);
  failOnce();
  EXPECT_EQ(pools_.refill(), 1s);
  pools_.reload();
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(pools_.all().size(), 1U);
}

TEST_F(Refill, TriesAgainIfNoProcessIsAvailable) {
  pools_.ensurePool(kKey);
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
