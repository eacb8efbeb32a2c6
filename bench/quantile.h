// Quantiles of measured values.
#pragma once

#include <algorithm>
#include <vector>

namespace quillon::bench {

// Returns the value that `fraction` of the values are less than. Precondition: `values` is not
// empty.
inline double quantile(std::vector<double> values, double fraction) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1))];
}

inline double median(const std::vector<double>& values) { return quantile(values, 0.5); }

}  // namespace quillon::bench
