// The steps of launches with the time that each takes, from the spans of their traces.
#pragma once

#include <filesystem>
#include <vector>

#include "bench/launch/setup.h"
#include "quillon/base/failure.h"

namespace quillon::bench {

struct PartsOptions {
  int rounds = 0;
  double wait = 0;             // seconds that prepared processes wait before their launch
  std::filesystem::path docs;  // the folder for the results
};

// Traces launches of the first application, and writes the median start and end of each step: the
// picture launch-parts.svg, and a table between the markers in launch-speed.md. Fails if a launch
// does not work or a file cannot be written.
[[nodiscard]] Expected<void> measureParts(const PartsOptions& options,
                                          const std::vector<Setup>& setups);

}  // namespace quillon::bench
