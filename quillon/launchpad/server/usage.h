// Which applications get workers that know them: those that are launched lately and often, as far
// as the memory suffices.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "quillon/launchpad/worker/pool_key.h"

namespace quillon::launchpad {

inline constexpr std::chrono::hours kUsageHalfLife{1};  // after which a launch counts half
inline constexpr size_t kMaxOwnPools = 16;
inline constexpr uint64_t kTypicalMemoryKib = 20 << 10;  // of a worker that is not measured yet

// Each key names an application.
class Usage {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // Counts a launch. If the application had another key because of other files, replaces that one:
  // the application has been updated. Forgets the least used key if there are too many.
  void count(const PoolKey& key, Time now);
  void forget(const PoolKey& key);

  // The memory of a worker that was prepared for the key.
  void setMemory(const PoolKey& key, uint64_t kib);
  // No worker can be prepared for the key.
  void exclude(const PoolKey& key);
  // Lets all keys that were excluded be tried again.
  void endExclusions();

  // The most used keys, the first one the most, that need at most `kib` of memory with one worker
  // each.
  [[nodiscard]] std::vector<PoolKey> affordable(uint64_t kib) const;

 private:
  struct Entry {
    PoolKey key;
    double score = 0;  // at last_
    uint64_t memoryKib = kTypicalMemoryKib;
    bool isExcluded = false;
  };
  std::vector<Entry>::iterator find(const PoolKey& key);

  std::vector<Entry> entries_;  // by score, descending
  Time last_;                   // of the last launch
};

}  // namespace quillon::launchpad
