#include "quillon/launchpad/worker/descriptor_numbers.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "quillon/launchpad/protocol/hand_over.h"

namespace quillon::launchpad {
namespace {

tl::unexpected<Failure> cannotDuplicate() {
  return fail(kServiceFailed,
              {std::string("cannot duplicate a file descriptor: ") + std::strerror(errno),
               "raise the limit of open files (ulimit -n)"});
}

}  // namespace

Expected<LowNumbers> LowNumbers::occupy(Descriptor& descriptor) {
  LowNumbers numbers;
  Descriptor next;
  while (next.get() < kMinOwnDescriptor) {
    if (next) {
      numbers.occupied_.push_back(std::move(next));
    }
    // fcntl(2) returns the lowest free number.
    next = Descriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 0));
    if (!next) {
      return cannotDuplicate();
    }
  }
  numbers.occupied_.push_back(std::exchange(descriptor, std::move(next)));
  return numbers;
}

Expected<void> raise(Descriptor& descriptor) {
  if (descriptor && descriptor.get() < kMinOwnDescriptor) {
    descriptor = Descriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kMinOwnDescriptor));
    if (!descriptor) {
      return cannotDuplicate();
    }
  }
  return {};
}

Expected<void> duplicateTo(const std::vector<int>& numbers,
                           const std::vector<Descriptor>& descriptors) {
  for (size_t i = 0; i < numbers.size() && i < descriptors.size(); ++i) {
    Descriptor duplicate(fcntl(descriptors[i].get(), F_DUPFD, numbers[i]));
    if (!duplicate || duplicate.get() != numbers[i]) {
      return fail(kServiceFailed, {"descriptor " + std::to_string(numbers[i]) +
                                       " of the caller is already in use in the prepared process",
                                   {}});
    }
    duplicate.release();
  }
  return {};
}

}  // namespace quillon::launchpad
