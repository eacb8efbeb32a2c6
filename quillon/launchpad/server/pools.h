// The pools of workers, and when the next worker starts.
//
// There is one pool for each key. A pool refills when no worker has got a launch for a while, one
// worker at a time, so that a refill does not compete with the launch before it. A worker that ends
// without a launch is replaced after a delay that doubles each time, until a worker of the pool
// starts an application. A worker that is not ready after 30 seconds is killed, with the same
// delay. A worker that has a launch and has not started the application after 60 seconds is killed
// too.
//
// The applications that are used most have a pool each, with one worker that knows the application.
// These workers need at most a given amount of memory. When the machine is short of memory, they
// are discarded and not replaced for a while; if it is still short after that, so are all others.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "quillon/launchpad/protocol/status.h"
#include "quillon/launchpad/server/usage.h"
#include "quillon/launchpad/server/worker_process.h"

namespace quillon::launchpad {

using Clock = std::chrono::steady_clock;

inline constexpr size_t kMaxPools = 8;  // of workers that know no application
inline constexpr std::chrono::seconds kPressurePause{30};

struct PoolSettings {
  size_t size = 2;  // ready workers of each pool
  std::chrono::milliseconds refillDelay{3000};
  std::function<std::string()> fingerprint;  // see fingerprint.h
  // Handles the messages that a worker has sent.
  std::function<void(WorkerProcess&)> receive;
  std::function<Clock::time_point()> now = Clock::now;
  uint64_t memoryKib = 0;  // of the workers that know an application and wait
  // Whether the files of the application that a key names are unchanged.
  std::function<bool(const PoolKey&)> isCurrent = [](const PoolKey&) { return true; };
};

class Pools {
 public:
  // Runs in a new child until its end, with the child's end of the channel.
  using WorkerMain = std::function<void(const PoolKey&, Descriptor)>;

  Pools(PoolSettings settings, WorkerMain workerMain);

  // Adds a pool for a key if there is none. If there are too many pools, removes the least recently
  // used one.
  void ensurePool(const PoolKey& key);
  [[nodiscard]] bool hasPool(const PoolKey& key) const { return pools_.contains(key); }
  // Removes a pool and kills its workers that have no launch.
  void removePool(const PoolKey& key);

  // Counts a launch of the application that a key names. Does nothing if it names none.
  void recordUse(const PoolKey& ownKey);
  // Prepares no more workers for the key before reload(): one has found that it cannot be prepared.
  void refuse(const PoolKey& key);
  // The machine is short of memory.
  void onMemoryPressure();

  // Assigns the oldest ready worker of the pool. Returns null if none is ready.
  WorkerProcess* take(const PoolKey& key);

  // Kills the ready workers that were prepared from another fingerprint.
  void discardOutdated(const std::string& fingerprint);

  // Kills all workers that have no launch, and starts new ones without a delay.
  void reload();
  // Kills all workers that have no launch. No new ones start afterwards.
  void close();
  [[nodiscard]] bool isClosed() const { return closed_; }
  void killAll();

  // Starts a worker if one is due. Returns the time until the next one is due, or a negative value
  // if that depends on an event.
  std::chrono::milliseconds refill();

  // Returns null if the worker has ended.
  WorkerProcess* find(uint64_t number);
  std::vector<WorkerProcess*> all();

  // For events: the worker has sent kReady; it has sent kStarted; it has ended. The last removes
  // it.
  void onReady(WorkerProcess& worker);
  void onStarted(WorkerProcess& worker);
  void onEnded(uint64_t number);

  [[nodiscard]] bool isEmpty() const { return workers_.empty(); }
  // Adds the pools and the workers.
  void addTo(Status& status) const;

 private:
  struct Pool {
    unsigned failures = 0;
    Clock::time_point notBefore;
    Clock::time_point lastUse;
  };

  enum class Shortage { kNone, kOwn, kAll };  // which workers there are not for want of memory

  void adjustOwnPools();
  void endShortage();
  std::vector<PoolKey> keysByImportance() const;
  [[nodiscard]] size_t sizeOf(const PoolKey& key) const;
  void addWorkerIfCurrent(const PoolKey& key);
  void addWorker(const PoolKey& key, Pool& pool);
  void runChild(const PoolKey& key, Descriptor channel);
  void recordFailure(const PoolKey& key);
  [[nodiscard]] size_t count(const PoolKey& key, Stage stage) const;
  [[nodiscard]] bool isPreparing() const;
  [[nodiscard]] std::chrono::milliseconds timeLeft(const WorkerProcess& worker) const;
  std::chrono::milliseconds killOverdue();
  [[nodiscard]] std::chrono::milliseconds until(Clock::time_point when) const;

  const PoolSettings settings_;
  const WorkerMain workerMain_;
  std::map<PoolKey, Pool> pools_;
  std::map<uint64_t, WorkerProcess> workers_;
  Usage usage_;
  Shortage shortage_ = Shortage::kNone;
  Clock::time_point shortageEnd_;
  uint64_t shortages_ = 0;  // reports of the kernel
  uint64_t nextNumber_ = 1;
  Clock::time_point lastTaken_;
  bool closed_ = false;
};

}  // namespace quillon::launchpad
