#include "quillon/launchpad/server/pools.h"

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "quillon/base/terminal.h"
#include "quillon/launchpad/server/wait_time.h"

namespace quillon::launchpad {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr unsigned kMaxDoublings = 6;  // 64 s
constexpr seconds kPreparationTimeout(30);
// Longer than a client waits. The worker of a stopped client ends then.
constexpr seconds kStartTimeout(60);
// How long a worker may be at a stage.
std::optional<seconds> timeoutOf(Stage stage) {
  switch (stage) {
    case Stage::kPreparing:
      return kPreparationTimeout;
    case Stage::kAssigned:
      return kStartTimeout;
    default:
      return std::nullopt;
  }
}

milliseconds delayAfter(unsigned failures) {
  return seconds(1) * (1U << std::min(failures - 1, kMaxDoublings));
}

bool hasLaunch(const WorkerProcess& worker) {
  return worker.stage == Stage::kAssigned || worker.stage == Stage::kRunning;
}

void discard(WorkerProcess& worker) {
  worker.stage = Stage::kDiscarded;
  killWorker(worker);
}

}  // namespace

Pools::Pools(PoolSettings settings, WorkerMain workerMain)
    : settings_(std::move(settings)),
      workerMain_(std::move(workerMain)),
      lastTaken_(settings_.now() - settings_.refillDelay) {}

void Pools::ensurePool(const PoolKey& key) {
  if (closed_) {
    return;
  }
  const auto isShared = [](const auto& pool) { return !pool.first.application; };
  const auto count = std::count_if(pools_.begin(), pools_.end(), isShared);
  if (static_cast<size_t>(count) >= kMaxPools && pools_.find(key) == pools_.end()) {
    const auto oldest =
        std::min_element(pools_.begin(), pools_.end(), [&](const auto& one, const auto& other) {
          return std::pair(!isShared(one), one.second.lastUse) <
                 std::pair(!isShared(other), other.second.lastUse);
        });
    removePool(oldest->first);
  }
  pools_[key].lastUse = settings_.now();
}

void Pools::removePool(const PoolKey& key) {
  for (auto& [number, worker] : workers_) {
    if (worker.key == key && !hasLaunch(worker)) {
      discard(worker);
    }
  }
  // Last, and by the iterator: the key may be the pool's own.
  if (const auto pool = pools_.find(key); pool != pools_.end()) {
    pools_.erase(pool);
  }
}

void Pools::recordUse(const PoolKey& ownKey) {
  if (closed_ || settings_.memoryKib == 0 || !ownKey.application) {
    return;
  }
  usage_.count(ownKey, settings_.now());
  adjustOwnPools();
}

void Pools::refuse(const PoolKey& key) {
  usage_.exclude(key);
  removePool(key);
}

// Gives a pool to each application that may have one now, and to no other.
void Pools::adjustOwnPools() {
  std::vector<PoolKey> wanted;
  if (shortage_ == Shortage::kNone) {
    wanted = usage_.affordable(settings_.memoryKib);
  }
  std::vector<PoolKey> unwanted;
  for (const auto& [key, pool] : pools_) {
    if (key.application && std::find(wanted.begin(), wanted.end(), key) == wanted.end()) {
      unwanted.push_back(key);
    }
  }
  for (const PoolKey& key : unwanted) {
    removePool(key);
  }
  for (const PoolKey& key : wanted) {
    pools_.try_emplace(key);
  }
}

void Pools::onMemoryPressure() {
  ++shortages_;
  shortage_ = shortage_ == Shortage::kNone ? Shortage::kOwn : Shortage::kAll;
  shortageEnd_ = settings_.now() + kPressurePause;
  adjustOwnPools();
  for (auto& [number, worker] : workers_) {
    if (shortage_ == Shortage::kAll && !hasLaunch(worker)) {
      discard(worker);
    }
  }
}

void Pools::endShortage() {
  if (shortage_ != Shortage::kNone && settings_.now() >= shortageEnd_) {
    shortage_ = Shortage::kNone;
    adjustOwnPools();
  }
}

WorkerProcess* Pools::take(const PoolKey& key) {
  for (auto& [number, worker] : workers_) {
    if (worker.stage != Stage::kReady || worker.key != key) {
      continue;
    }
    worker.stage = Stage::kAssigned;
    lastTaken_ = worker.since = settings_.now();
    return &worker;
  }
  return nullptr;
}

void Pools::discardOutdated(const std::string& fingerprint) {
  for (auto& [number, worker] : workers_) {
    if (worker.stage == Stage::kReady && worker.fingerprint != fingerprint) {
      discard(worker);
    }
  }
}

void Pools::reload() {
  for (auto& [number, worker] : workers_) {
    if (!hasLaunch(worker)) {
      discard(worker);
    }
  }
  for (auto& [key, pool] : pools_) {
    pool = {0, settings_.now(), pool.lastUse};
  }
  lastTaken_ = settings_.now() - settings_.refillDelay;
  usage_.endExclusions();
  adjustOwnPools();
}

void Pools::close() {
  closed_ = true;
  reload();
}

void Pools::killAll() {
  for (auto& [number, worker] : workers_) {
    killWorker(worker);
  }
}

size_t Pools::count(const PoolKey& key, Stage stage) const {
  return static_cast<size_t>(std::count_if(
      workers_.begin(), workers_.end(),
      [&](const auto& entry) { return entry.second.key == key && entry.second.stage == stage; }));
}

bool Pools::isPreparing() const {
  return std::any_of(workers_.begin(), workers_.end(),
                     [](const auto& entry) { return entry.second.stage == Stage::kPreparing; });
}

// Rounded up, so that a wait of this length does not end early.
milliseconds Pools::until(Clock::time_point when) const {
  const auto left = when - settings_.now();
  return left.count() <= 0 ? milliseconds(0) : std::chrono::ceil<milliseconds>(left);
}

milliseconds Pools::timeLeft(const WorkerProcess& worker) const {
  const auto timeout = timeoutOf(worker.stage);
  return timeout ? until(worker.since + *timeout) : kNever;
}

// Kills workers that are at a stage for too long. Returns the time left for the others. If this
// process was stopped, a worker may have sent its message in time.
milliseconds Pools::killOverdue() {
  milliseconds wait = kNever;
  for (auto& [number, worker] : workers_) {
    if (timeLeft(worker).count() == 0) {
      settings_.receive(worker);
    }
    const milliseconds left = timeLeft(worker);
    if (left.count() == 0) {
      killWorker(worker);
    } else {
      wait = shorter(wait, left);
    }
  }
  return wait;
}

// Pools of single applications are the last ones, since the others can serve those, too.
std::vector<PoolKey> Pools::keysByImportance() const {
  std::vector<PoolKey> keys;
  for (const auto& [key, pool] : pools_) {
    if (!key.application) {
      keys.push_back(key);
    }
  }
  for (PoolKey& key : usage_.affordable(settings_.memoryKib)) {
    if (pools_.find(key) != pools_.end()) {
      keys.push_back(std::move(key));
    }
  }
  return keys;
}

size_t Pools::sizeOf(const PoolKey& key) const { return key.application ? 1 : settings_.size; }

milliseconds Pools::refill() {
  milliseconds wait = killOverdue();
  endShortage();
  if (shortage_ != Shortage::kNone) {
    wait = shorter(wait, until(shortageEnd_));
  }
  if (closed_ || isPreparing() || shortage_ == Shortage::kAll) {
    return wait;
  }
  const Clock::time_point quiet = lastTaken_ + settings_.refillDelay;
  for (const PoolKey& key : keysByImportance()) {
    if (count(key, Stage::kReady) >= sizeOf(key)) {
      continue;
    }
    const milliseconds left = until(std::max(quiet, pools_[key].notBefore));
    if (left.count() == 0) {
      addWorkerIfCurrent(key);
      return refill();
    }
    wait = shorter(wait, left);
  }
  return wait;
}

void Pools::addWorkerIfCurrent(const PoolKey& key) {
  if (settings_.isCurrent(key)) {
    return addWorker(key, pools_[key]);
  }
  usage_.forget(key);  // its next launch has another key
  adjustOwnPools();
}

void Pools::addWorker(const PoolKey& key, Pool& pool) {
  // Before the fork, so that a change during the preparation makes the worker outdated.
  std::string fingerprint = settings_.fingerprint();
  auto worker = startWorker([&](Descriptor channel) { runChild(key, std::move(channel)); });
  if (!worker) {
    pool.notBefore = settings_.now() + delayAfter(++pool.failures);
    tell({"cannot start a process", "check how many processes this user may have (ulimit -u)"});
    return;
  }
  worker->number = nextNumber_++;
  worker->key = key;
  worker->fingerprint = std::move(fingerprint);
  worker->since = settings_.now();
  workers_.emplace(worker->number, std::move(*worker));
}

void Pools::runChild(const PoolKey& key, Descriptor channel) {
  // The key may belong to a worker, which ends here.
  const PoolKey copy = key;  // NOLINT(performance-unnecessary-copy-initialization)
  workers_.clear();
  workerMain_(copy, std::move(channel));
}

WorkerProcess* Pools::find(uint64_t number) {
  const auto found = workers_.find(number);
  return found == workers_.end() ? nullptr : &found->second;
}

std::vector<WorkerProcess*> Pools::all() {
  std::vector<WorkerProcess*> all;
  all.reserve(workers_.size());
  for (auto& [number, worker] : workers_) {
    all.push_back(&worker);
  }
  return all;
}

void Pools::onReady(WorkerProcess& worker) {
  if (worker.stage != Stage::kPreparing) {
    return;
  }
  worker.stage = Stage::kReady;
  if (worker.key.application) {
    usage_.setMemory(worker.key, worker.memoryKib);
    adjustOwnPools();
  }
}

void Pools::onStarted(WorkerProcess& worker) {
  worker.stage = Stage::kRunning;
  worker.channel.reset();
  const auto pool = pools_.find(worker.key);
  if (pool != pools_.end()) {
    pool->second.failures = 0;
  }
}

void Pools::onEnded(uint64_t number) {
  const auto found = workers_.find(number);
  if (found == workers_.end()) {
    return;
  }
  const Stage stage = found->second.stage;
  const PoolKey key = found->second.key;
  workers_.erase(found);
  if (stage == Stage::kPreparing || stage == Stage::kReady) {
    recordFailure(key);
  }
}

void Pools::recordFailure(const PoolKey& key) {
  const auto found = pools_.find(key);
  if (found == pools_.end() || closed_) {
    return;
  }
  Pool& pool = found->second;
  const milliseconds delay = delayAfter(++pool.failures);
  pool.notBefore = settings_.now() + delay;
  tell({"a prepared process (" + describe(key) + ") ended unexpectedly",
        "the next one starts in " + std::to_string(delay.count() / 1000) + " s"});
}

void Pools::addTo(Status& status) const {
  constexpr const char* kNames[] = {"in preparation", "ready", "assigned", "running", "ending"};
  for (const auto& [key, pool] : pools_) {
    status.pools.push_back(describe(key));
  }
  for (const auto& [number, worker] : workers_) {
    status.processes.push_back({static_cast<uint64_t>(worker.pid),
                                kNames[static_cast<size_t>(worker.stage)], describe(worker.key),
                                worker.application, worker.memoryKib});
  }
  status.ownMemoryKib = settings_.memoryKib;
  status.shortages = shortages_;
  status.shortage = static_cast<uint64_t>(shortage_);
}

}  // namespace quillon::launchpad
