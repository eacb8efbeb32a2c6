#include "quillon/launchpad/server/usage.h"

#include <algorithm>
#include <cmath>

namespace quillon::launchpad {
namespace {

constexpr size_t kMaxEntries = 2 * kMaxOwnPools;

// Whether both are the same launch, perhaps with other files.
bool isSameLaunch(PoolKey one, const PoolKey& other) {
  one.application->fingerprint = other.application->fingerprint;
  return one == other;
}

}  // namespace

void Usage::count(const PoolKey& key, Time now) {
  const double halves = std::chrono::duration<double>(now - last_) / kUsageHalfLife;
  last_ = now;
  for (Entry& entry : entries_) {
    entry.score *= std::exp2(-halves);
  }
  auto found = std::find_if(entries_.begin(), entries_.end(),
                            [&](const Entry& entry) { return isSameLaunch(entry.key, key); });
  if (found == entries_.end()) {
    if (entries_.size() >= kMaxEntries) {
      entries_.pop_back();
    }
    found = entries_.insert(entries_.end(), Entry{key});
  } else if (found->key != key) {
    *found = {key, found->score};
  }
  found->score += 1;
  std::stable_sort(entries_.begin(), entries_.end(),
                   [](const Entry& one, const Entry& other) { return one.score > other.score; });
}

std::vector<Usage::Entry>::iterator Usage::find(const PoolKey& key) {
  return std::find_if(entries_.begin(), entries_.end(),
                      [&](const Entry& entry) { return entry.key == key; });
}

void Usage::forget(const PoolKey& key) {
  if (const auto found = find(key); found != entries_.end()) {
    entries_.erase(found);
  }
}

void Usage::setMemory(const PoolKey& key, uint64_t kib) {
  if (const auto found = find(key); found != entries_.end() && kib > 0) {
    found->memoryKib = kib;
  }
}

void Usage::exclude(const PoolKey& key) {
  if (const auto found = find(key); found != entries_.end()) {
    found->isExcluded = true;
  }
}

void Usage::endExclusions() {
  for (Entry& entry : entries_) {
    entry.isExcluded = false;
  }
}

std::vector<PoolKey> Usage::affordable(uint64_t kib) const {
  std::vector<PoolKey> keys;
  for (const Entry& entry : entries_) {
    if (entry.isExcluded) {
      continue;
    }
    if (entry.memoryKib > kib || keys.size() >= kMaxOwnPools) {
      break;
    }
    kib -= entry.memoryKib;
    keys.push_back(entry.key);
  }
  return keys;
}

}  // namespace quillon::launchpad
