// What a policy says of one library.
#pragma once

#include <string>

#include "quillon/validator/policy.h"

namespace quillon::validator {

struct Decision {
  bool allowed = false;
  std::string reason;  // for the person at the terminal
};

// Applies the policy's rules in their order: denied paths, allowed digests, allowed paths, the
// default. A library that cannot be read, or whose path is not the canonical one, is denied.
[[nodiscard]] Decision decide(const Policy& policy, const std::string& library);

}  // namespace quillon::validator
