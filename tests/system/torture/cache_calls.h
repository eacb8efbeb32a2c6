// Selects the system calls of a launch that concern the cache files.
#pragma once

#include <set>

#include "tests/system/torture/traced_process.h"

namespace quillon::torture {

// Tracks the descriptors of files in the cache directory. sync(2) also counts.
class CacheCalls {
 public:
  [[nodiscard]] bool concerns(const SystemCall& call) const;
  // Must be called with the result of every call.
  void returned(const SystemCall& call, std::int64_t result);

 private:
  std::set<std::uint64_t> descriptors;
};

}  // namespace quillon::torture
