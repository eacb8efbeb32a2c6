// Quantiles of measured values.
#pragma once

#include <algorithm>
#include <vector>

namespace quillon::bench {

// The value below which `fraction` of the values lie. Precondition: there is a value.
inline double quantile(std::vector<double> values, double fraction) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1))];
}

inline double median(const std::vector<double>& values) { return quantile(values, 0.5); }

}  // namespace quillon::bench
