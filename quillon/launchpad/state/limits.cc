#include "quillon/launchpad/state/limits.h"

#include <algorithm>
#include <array>

namespace quillon::launchpad {
namespace {

constexpr std::array kMemoryResources = {RLIMIT_STACK, RLIMIT_DATA, RLIMIT_AS};

// glibc declares an enumeration for the resource argument.
using Resource = __rlimit_resource_t;

rlimit limitOf(int resource) {
  rlimit limit{};
  getrlimit(static_cast<Resource>(resource), &limit);
  return limit;
}

bool isMemoryResource(int resource) {
  return std::find(kMemoryResources.begin(), kMemoryResources.end(), resource) !=
         kMemoryResources.end();
}

}  // namespace

Limits currentLimits() {
  Limits limits(RLIM_NLIMITS);
  for (int resource = 0; resource < RLIM_NLIMITS; ++resource) {
    limits[static_cast<size_t>(resource)] = limitOf(resource);
  }
  return limits;
}

std::string memoryLimits() {
  std::array<rlimit, kMemoryResources.size()> limits{};
  std::transform(kMemoryResources.begin(), kMemoryResources.end(), limits.begin(), limitOf);
  return {reinterpret_cast<const char*>(limits.data()), sizeof limits};
}

bool canAdopt(const Limits& own, const Limits& wanted) {
  if (own.size() != wanted.size()) {
    return false;
  }
  for (size_t i = 0; i < own.size(); ++i) {
    if (wanted[i].rlim_max > own[i].rlim_max || wanted[i].rlim_cur > wanted[i].rlim_max) {
      return false;
    }
  }
  return true;
}

void adoptLimits(const Limits& wanted) {
  for (int resource = 0; resource < RLIM_NLIMITS; ++resource) {
    if (isMemoryResource(resource)) {
      continue;
    }
    rlimit limit = wanted.at(static_cast<size_t>(resource));
    if (resource == RLIMIT_NOFILE) {
      limit.rlim_cur = limit.rlim_max;
    }
    const rlimit now = limitOf(resource);
    if (now.rlim_cur == limit.rlim_cur && now.rlim_max == limit.rlim_max) {
      continue;
    }
    setrlimit(static_cast<Resource>(resource), &limit);
  }
}

}  // namespace quillon::launchpad
