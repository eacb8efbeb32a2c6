#include "quillon/launchpad/server/pools.h"

#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "quillon/base/terminal.h"
#include "quillon/launchpad/server/prefault.h"

namespace quillon::launchpad {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t kMostPools = 8;
constexpr unsigned kMostDoublings = 6;  // a minute or so
constexpr seconds kLongestPreparation(30);

milliseconds pauseAfter(unsigned failures) {
  return seconds(1) * (1U << std::min(failures - 1, kMostDoublings));
}

bool hasLaunch(const Process& process) {
  return process.stage == Stage::kAssigned || process.stage == Stage::kRunning;
}

void discard(Process& process) {
  process.stage = Stage::kDiscarded;
  killProcess(process);
}

}  // namespace

Pools::Pools(PoolSettings settings, Work work)
    : settings_(std::move(settings)),
      work_(std::move(work)),
      lastTaken_(settings_.now() - settings_.refillDelay) {}

void Pools::want(const PoolKey& key) {
  if (closed_) return;
  if (pools_.find(key) == pools_.end()) makeRoom();
  pools_[key].lastUse = settings_.now();
}

void Pools::makeRoom() {
  if (pools_.size() < kMostPools) return;
  const auto oldest = std::min_element(
      pools_.begin(), pools_.end(),
      [](const auto& one, const auto& other) { return one.second.lastUse < other.second.lastUse; });
  drop(oldest->first);
}

void Pools::drop(PoolKey key) {
  for (auto& [number, process] : processes_) {
    if (process.key == key && !hasLaunch(process)) discard(process);
  }
  pools_.erase(key);
}

Process* Pools::take(const PoolKey& key) {
  for (auto& [number, process] : processes_) {
    if (process.stage != Stage::kReady || process.key != key) continue;
    process.stage = Stage::kAssigned;
    lastTaken_ = settings_.now();
    return &process;
  }
  return nullptr;
}

void Pools::discardAllBut(const std::string& fingerprint) {
  for (auto& [number, process] : processes_) {
    if (process.stage == Stage::kReady && process.fingerprint != fingerprint) discard(process);
  }
}

void Pools::renew() {
  for (auto& [number, process] : processes_) {
    if (!hasLaunch(process)) discard(process);
  }
  for (auto& [key, pool] : pools_) pool = {0, settings_.now(), pool.lastUse};
  lastTaken_ = settings_.now() - settings_.refillDelay;
}

void Pools::close() {
  closed_ = true;
  renew();
}

void Pools::killAll() {
  for (auto& [number, process] : processes_) killProcess(process);
}

size_t Pools::count(const PoolKey& key, Stage stage) const {
  return static_cast<size_t>(std::count_if(
      processes_.begin(), processes_.end(),
      [&](const auto& entry) { return entry.second.key == key && entry.second.stage == stage; }));
}

bool Pools::isPreparing() const {
  return std::any_of(processes_.begin(), processes_.end(),
                     [](const auto& entry) { return entry.second.stage == Stage::kPreparing; });
}

// Rounded up, so that whoever waits that long does not come too early.
milliseconds Pools::until(Clock::time_point when) const {
  const auto left = when - settings_.now();
  return left.count() <= 0 ? milliseconds(0) : std::chrono::ceil<milliseconds>(left);
}

// One that hangs ends as one that died.
milliseconds Pools::awaitPrepared() {
  for (auto& [number, process] : processes_) {
    if (process.stage != Stage::kPreparing) continue;
    const milliseconds left = until(process.start + kLongestPreparation);
    if (left.count() > 0) return left;
    killProcess(process);
  }
  return milliseconds(-1);
}

milliseconds Pools::refill() {
  milliseconds wait(-1);
  if (closed_) return wait;
  if (isPreparing()) return awaitPrepared();
  const Clock::time_point quiet = lastTaken_ + settings_.refillDelay;
  for (auto& [key, pool] : pools_) {
    if (count(key, Stage::kReady) >= settings_.size) continue;
    const milliseconds left = until(std::max(quiet, pool.notBefore));
    if (left.count() == 0) {
      make(key, pool);
      return refill();
    }
    if (wait.count() < 0 || left < wait) wait = left;
  }
  return wait;
}

void Pools::make(const PoolKey& key, Pool& pool) {
  // Before the process exists: what changes while it is prepared makes it outdated.
  std::string fingerprint = settings_.fingerprint();
  auto process = startProcess([&](Descriptor channel) { becomeWorker(key, std::move(channel)); });
  if (!process) {
    pool.notBefore = settings_.now() + pauseAfter(++pool.failures);
    tell({"no process can be made", "see how many this user may have (ulimit -u)"});
    return;
  }
  ownMemory();
  process->number = nextNumber_++;
  process->key = key;
  process->fingerprint = std::move(fingerprint);
  process->start = settings_.now();
  processes_.emplace(process->number, std::move(*process));
}

void Pools::becomeWorker(const PoolKey& key, Descriptor channel) {
  const PoolKey own = key;
  processes_.clear();
  work_(own, std::move(channel));
}

Process* Pools::find(uint64_t number) {
  const auto found = processes_.find(number);
  return found == processes_.end() ? nullptr : &found->second;
}

std::vector<Process*> Pools::all() {
  std::vector<Process*> all;
  for (auto& [number, process] : processes_) all.push_back(&process);
  return all;
}

void Pools::noteReady(Process& process) {
  if (process.stage != Stage::kPreparing) return;
  process.stage = Stage::kReady;
}

void Pools::noteServed(Process& process) {
  process.stage = Stage::kRunning;
  process.channel.reset();
  ++served_;
  const auto pool = pools_.find(process.key);
  if (pool != pools_.end()) pool->second.failures = 0;
}

void Pools::noteEnded(uint64_t number) {
  const auto found = processes_.find(number);
  if (found == processes_.end()) return;
  const Stage stage = found->second.stage;
  const PoolKey key = found->second.key;
  processes_.erase(found);
  if (stage == Stage::kPreparing || stage == Stage::kReady) noteFailure(key);
}

void Pools::noteFailure(const PoolKey& key) {
  const auto found = pools_.find(key);
  if (found == pools_.end() || closed_) return;
  Pool& pool = found->second;
  const milliseconds pause = pauseAfter(++pool.failures);
  pool.notBefore = settings_.now() + pause;
  tell({"a prepared process (" + launchpad::describe(key) + ") ended unasked",
        "the next one is made in " + std::to_string(pause.count() / 1000) + " s"});
}

std::string Pools::describe() const {
  constexpr const char* kNames[] = {"in preparation", "ready", "assigned", "running", "ending"};
  std::ostringstream text;
  text << "served: " << served_ << '\n';
  size_t number = 0;
  for (const auto& [key, pool] : pools_) {
    text << "pool " << ++number << ": " << launchpad::describe(key) << '\n';
    for (const auto& [unused, process] : processes_) {
      if (process.key != key) continue;
      text << "  process " << process.pid << ": " << kNames[static_cast<size_t>(process.stage)]
           << '\n';
    }
  }
  return text.str();
}

}  // namespace quillon::launchpad
