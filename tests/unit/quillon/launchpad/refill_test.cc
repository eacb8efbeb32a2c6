// When the server starts its next worker, with a clock that the test advances.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

#include "quillon/launchpad/server/memory_pressure.h"
#include "quillon/launchpad/server/pools.h"
#include "tests/support/temporary_directory.h"
#include "tests/system/launch/running_probe.h"
#include "tests/system/launch/sample_device.h"

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
  const PoolKey kOwn{"inhouse", true, {}, {}, KnownApplication{"app", "/root", "/root/A.dll", "1"}};
  bool isCurrent_ = true;
  Pools pools_{{1, 3s, [] { return std::string(); },
                [this](WorkerProcess& worker) { onOverdue_(worker); }, [this] { return now_; },
                2 * kTypicalMemoryKib, [this](const PoolKey&) { return isCurrent_; }},
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

// The shared pools come first.
class OwnRefill : public Refill {
 protected:
  void SetUp() override {
    staysAlive_ = true;
    pools_.ensurePool(kKey);
    pools_.recordUse(kOwn);
    EXPECT_EQ(pools_.refill(), kPreparing);
    EXPECT_EQ(newest().key, kKey);
    pools_.onReady(newest());
    EXPECT_EQ(pools_.refill(), kPreparing);
    EXPECT_EQ(newest().key, kOwn);
    newest().memoryKib = 1;
    pools_.onReady(newest());
    EXPECT_EQ(pools_.refill(), kNothingDue);
  }

  // Reaps the workers that have been discarded. Returns the number of the others.
  size_t left() {
    std::vector<const WorkerProcess*> discarded;
    for (const WorkerProcess* worker : pools_.all()) {
      if (worker->stage == Stage::kDiscarded) {
        discarded.push_back(worker);
      }
    }
    for (const WorkerProcess* worker : discarded) {
      reap(*worker);
    }
    return pools_.all().size();
  }
};

TEST_F(OwnRefill, KeepsOneWorkerForEachApplication) {
  WorkerProcess* const taken = pools_.take(kOwn);
  ASSERT_NE(taken, nullptr);
  EXPECT_EQ(taken->key, kOwn);
  pools_.onStarted(*taken);
  pools_.recordUse(kOwn);
  EXPECT_EQ(pools_.take(kOwn), nullptr);
  now_ += 3s;
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(newest().key, kOwn);
}

TEST_F(OwnRefill, DiscardsTheWorkerOfAnUpdatedApplication) {
  PoolKey updated = kOwn;
  updated.application->fingerprint = "2";
  pools_.recordUse(updated);
  EXPECT_EQ(pools_.take(kOwn), nullptr);
  EXPECT_EQ(left(), 1U);
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(newest().key, updated);
}

TEST_F(OwnRefill, PreparesNothingFromFilesThatHaveChanged) {
  pools_.onStarted(*pools_.take(kOwn));
  isCurrent_ = false;
  now_ += 3s;
  EXPECT_EQ(pools_.refill(), kNothingDue);
}

TEST_F(OwnRefill, PreparesNothingThatAWorkerHasRefusedUntilAReload) {
  pools_.refuse(kOwn);
  EXPECT_EQ(left(), 1U);
  pools_.recordUse(kOwn);
  EXPECT_EQ(pools_.refill(), kNothingDue);
  pools_.reload();
  EXPECT_EQ(pools_.refill(), kPreparing);
  pools_.onReady(newest());
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(newest().key, kOwn);
}

TEST_F(OwnRefill, StaysWithinTheMemory) {
  PoolKey other = kOwn;
  other.application->id = "other";
  PoolKey third = kOwn;
  third.application->id = "third";
  pools_.recordUse(other);
  pools_.recordUse(third);
  now_ += 3s;
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(newest().key, other);
  newest().memoryKib = 2 * kTypicalMemoryKib;  // more than is left
  pools_.onReady(newest());
  EXPECT_EQ(left(), 2U);
  EXPECT_EQ(pools_.refill(), kNothingDue);
  EXPECT_NE(pools_.take(kOwn), nullptr);
}

TEST_F(OwnRefill, UnderMemoryPressureOwnWorkersGoFirst) {
  pools_.onMemoryPressure();
  EXPECT_EQ(left(), 1U);
  EXPECT_EQ(newest().key, kKey);
  EXPECT_EQ(pools_.refill(), 30s);
  now_ += 2s;
  pools_.onMemoryPressure();
  EXPECT_EQ(left(), 0U);
  EXPECT_EQ(pools_.refill(), 30s);
  Status status;
  pools_.addTo(status);
  EXPECT_EQ(status.shortages, 2U);
  EXPECT_EQ(status.shortage, 2U);
  now_ += 30s;
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(newest().key, kKey);
  pools_.onReady(newest());
  EXPECT_EQ(pools_.refill(), kPreparing);
  EXPECT_EQ(newest().key, kOwn);
}

TEST_F(OwnRefill, MemoryPressureEndsNoApplication) {
  WorkerProcess& taken = *pools_.take(kOwn);
  pools_.onStarted(taken);
  pools_.onMemoryPressure();
  pools_.onMemoryPressure();
  EXPECT_EQ(left(), 1U);
  EXPECT_EQ(taken.stage, Stage::kRunning);
}

// The kernel's interface: a file that takes the trigger in one write(2).
TEST(MemoryPressure, AsksTheKernelForReports) {
  const test::TemporaryDirectory folder;
  const std::filesystem::path file = folder.path() / "memory";
  EXPECT_FALSE(watchMemoryPressure(file.c_str()));
  std::ofstream(file) << "";
  EXPECT_TRUE(watchMemoryPressure(file.c_str()));
  EXPECT_EQ(test::contentOf(file), std::string("some 150000 2000000\0", 20));
}

}  // namespace
}  // namespace quillon::launchpad
