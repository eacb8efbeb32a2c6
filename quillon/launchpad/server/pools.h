// The prepared processes, and when the next one is made.
//
// One pool for each key. A pool refills when no process has been taken for a while, one process at
// a time, so that a refill does not compete with the launch before it. A process that dies unasked
// is replaced after a pause that doubles each time, until one of the pool serves a launch. One that
// is not ready after half a minute is ended, which counts as that.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "quillon/launchpad/server/worker_process.h"

namespace quillon::launchpad {

using Clock = std::chrono::steady_clock;

struct PoolSettings {
  size_t size = 2;  // ready processes of each pool
  std::chrono::milliseconds refillDelay{3000};
  // The version of what a process is prepared from, at this moment.
  std::function<std::string()> fingerprint;
  std::function<Clock::time_point()> now = Clock::now;
};

class Pools {
 public:
  // A prepared process from its first step to its end, with its end of the channel.
  using Work = std::function<void(const PoolKey&, Descriptor)>;

  // work  run in every new child, which lives no longer
  Pools(PoolSettings settings, Work work);

  // Makes a pool for a key, unless there is one. The least recently used makes room where there are
  // too many.
  void want(const PoolKey& key);

  // A ready process, the oldest of its pool; null where there is none. It has kAssigned from here.
  Process* take(const PoolKey& key);

  // Ends the ready processes that were prepared from something else.
  void discardAllBut(const std::string& fingerprint);

  // Ends all processes that have no launch and starts to make new ones at once.
  void renew();
  // The same, without new ones from here on.
  void close();
  // Ends every process.
  void killAll();

  // Makes the next process if it is time. How long until it is; negative: until something happens.
  std::chrono::milliseconds refill();

  Process* find(uint64_t number);
  std::vector<Process*> all();
  // A process has told that it is ready, or serves a launch.
  void noteReady(Process& process);
  void noteServed(Process& process);
  // A process has ended: removes it.
  void noteEnded(uint64_t number);
  // Takes a pool away, with its processes that have no launch.
  void drop(PoolKey key);

  [[nodiscard]] bool isEmpty() const { return processes_.empty(); }
  // Lines for a person.
  [[nodiscard]] std::string describe() const;

 private:
  struct Pool {
    unsigned failures = 0;
    Clock::time_point notBefore;
    Clock::time_point lastUse;
  };

  void make(const PoolKey& key, Pool& pool);
  void becomeWorker(const PoolKey& key, Descriptor channel);
  void noteFailure(const PoolKey& key);
  void makeRoom();
  [[nodiscard]] size_t count(const PoolKey& key, Stage stage) const;
  [[nodiscard]] bool isPreparing() const;
  std::chrono::milliseconds awaitPrepared();
  [[nodiscard]] std::chrono::milliseconds until(Clock::time_point when) const;

  const PoolSettings settings_;
  const Work work_;
  std::map<PoolKey, Pool> pools_;
  std::map<uint64_t, Process> processes_;
  uint64_t nextNumber_ = 1;
  uint64_t served_ = 0;
  Clock::time_point lastTaken_;
  bool closed_ = false;
};

}  // namespace quillon::launchpad
