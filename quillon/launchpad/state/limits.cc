#include "quillon/launchpad/state/limits.h"

#include <algorithm>
#include <array>

namespace quillon::launchpad {
namespace {

constexpr std::array kOfMemory = {RLIMIT_STACK, RLIMIT_DATA, RLIMIT_AS};

// glibc takes the resource as an enumeration of its own.
using Resource = __rlimit_resource_t;

rlimit limitOf(int resource) {
  rlimit limit{};
  getrlimit(static_cast<Resource>(resource), &limit);
  return limit;
}

bool isOfMemory(int resource) {
  return std::find(kOfMemory.begin(), kOfMemory.end(), resource) != kOfMemory.end();
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
  std::array<rlimit, kOfMemory.size()> limits{};
  std::transform(kOfMemory.begin(), kOfMemory.end(), limits.begin(), limitOf);
  return {reinterpret_cast<const char*>(limits.data()), sizeof limits};
}

bool canTakeOver(const Limits& own, const Limits& wanted) {
  if (own.size() != wanted.size()) return false;
  for (size_t i = 0; i < own.size(); ++i) {
    if (wanted[i].rlim_max > own[i].rlim_max || wanted[i].rlim_cur > wanted[i].rlim_max) {
      return false;
    }
  }
  return true;
}

void takeOver(const Limits& wanted) {
  for (int resource = 0; resource < RLIM_NLIMITS; ++resource) {
    if (isOfMemory(resource)) continue;
    rlimit limit = wanted.at(static_cast<size_t>(resource));
    if (resource == RLIMIT_NOFILE) limit.rlim_cur = limit.rlim_max;
    const rlimit now = limitOf(resource);
    if (now.rlim_cur == limit.rlim_cur && now.rlim_max == limit.rlim_max) continue;
    setrlimit(static_cast<Resource>(resource), &limit);
  }
}

}  // namespace quillon::launchpad
