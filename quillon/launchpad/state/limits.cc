#include "quillon/launchpad/state/limits.h"

#include <algorithm>
#include <array>

namespace quillon::launchpad {
namespace {

constexpr std::array kMemoryResources = {RLIMIT_STACK, RLIMIT_DATA, RLIMIT_AS};

// glibc declares an enumeration for the resource argument.
using Resource = __rlimit_resource;

rlimit limitOf(pid_t pid, int resource) {
  rlimit limit{};
  prlimit(pid, static_cast<Resource>(resource), nullptr, &limit);
  return limit;
}

bool isMemoryResource(int resource) {
  return std::find(kMemoryResources.begin(), kMemoryResources.end(), resource) !=
         kMemoryResources.end();
}

}  // namespace

Limits limitsOf(pid_t pid) {
  Limits limits(RLIM_NLIMITS);
  for (int resource = 0; resource < RLIM_NLIMITS; ++resource) {
    limits[static_cast<size_t>(resource)] = limitOf(pid, resource);
  }
  return limits;
}

std::string memoryLimitsOf(const Limits& limits) {
  std::array<rlimit, kMemoryResources.size()> some{};
  std::transform(kMemoryResources.begin(), kMemoryResources.end(), some.begin(),
                 [&](int resource) { return limits.at(static_cast<size_t>(resource)); });
  return {reinterpret_cast<const char*>(some.data()), sizeof some};
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
    const rlimit now = limitOf(0, resource);
    if (now.rlim_cur == limit.rlim_cur && now.rlim_max == limit.rlim_max) {
      continue;
    }
    setrlimit(static_cast<Resource>(resource), &limit);
  }
}

}  // namespace quillon::launchpad
