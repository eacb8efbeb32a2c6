// First launches after a start of the machine: the page cache holds no file of a launch.
#pragma once

#include <filesystem>

#include "bench/launch/contender.h"
#include "quillon/base/failure.h"

namespace quillon::bench {

struct ColdOptions {
  int rounds = 0;
  double wait = 0;                // seconds that prepared processes wait before their launch
  std::filesystem::path against;  // an older build folder; empty for none
};

// Whether this process may drop the page cache.
bool canDropCaches();

// Drops the page cache before each launch and prints the tables. The launches use a copy of .NET in
// `work`, because pages that another process maps stay in the cache. Precondition: canDropCaches().
[[nodiscard]] Expected<void> measureCold(const ColdOptions& options,
                                         const std::filesystem::path& work);

}  // namespace quillon::bench
