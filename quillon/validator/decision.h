// Applies a policy to a library.
#pragma once

#include <string>

#include "quillon/validator/policy.h"

namespace quillon::validator {

struct Decision {
  bool allowed = false;
  std::string reason;  // for the user at the terminal
};

// Applies the policy's rules in this order: denied paths, allowed digests, allowed paths, default.
// Denies a library that cannot be read or whose path is not canonical.
[[nodiscard]] Decision decide(const Policy& policy, const std::string& library);

}  // namespace quillon::validator
