// Which of a launch's system calls concern the cache files.
#pragma once

#include <set>
#include <string>

#include "tests/torture/traced_process.h"

namespace quillon::torture {

// Follows the descriptors that lead to the files of the cache directory. sync(2) counts too.
class CacheCalls {
 public:
  [[nodiscard]] bool concerns(const SystemCall& call) const;
  // To be told of every call's result.
  void returned(const SystemCall& call, std::int64_t result);

 private:
  std::set<std::uint64_t> descriptors;
};

}  // namespace quillon::torture
