// The numbers of a worker's file descriptors.
//
// An application has the inherited descriptors of its client under the same numbers, which usually
// are low. So the descriptors that a worker opens before, those of the runtime and of libraries
// included, begin at kMinOwnDescriptor (see hand_over.h).
#pragma once

#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::launchpad {

// Occupies the low numbers that are free, so that the process opens no descriptor below
// kMinOwnDescriptor as long as this object exists.
class LowNumbers {
 public:
  // Moves `descriptor` to a high number.
  [[nodiscard]] static Expected<LowNumbers> occupy(Descriptor& descriptor);

 private:
  std::vector<Descriptor> occupied_;
};

// Moves a descriptor to a high number if it has a low one.
[[nodiscard]] Expected<void> raise(Descriptor& descriptor);

// Duplicates each descriptor to a number, for programs that the process executes too. Fails if a
// number is in use.
[[nodiscard]] Expected<void> duplicateTo(const std::vector<int>& numbers,
                                         const std::vector<Descriptor>& descriptors);

}  // namespace quillon::launchpad
