// Arguments and environments for exec.
#pragma once

#include <string>
#include <vector>

#include "bench/launch/contender.h"

namespace quillon::bench {

// The pointers are valid as long as `words`. The last one is null.
std::vector<char*> pointersTo(const std::vector<std::string>& words);

// The contender's variables and those of this process.
std::vector<std::string> environmentOf(const Contender& contender);

}  // namespace quillon::bench
