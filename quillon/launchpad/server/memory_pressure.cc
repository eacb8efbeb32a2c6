#include "quillon/launchpad/server/memory_pressure.h"

#include <fcntl.h>
#include <unistd.h>

#include <string_view>

namespace quillon::launchpad {

Descriptor watchMemoryPressure(const char* file) {
  // In microseconds. A user without CAP_SYS_RESOURCE may use windows of multiples of 2 s only.
  constexpr std::string_view kTrigger{"some 150000 2000000\0", 20};
  Descriptor trigger(open(file, O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (trigger && write(trigger.get(), kTrigger.data(), kTrigger.size()) !=
                     static_cast<ssize_t>(kTrigger.size())) {
    trigger.reset();
  }
  return trigger;
}

}  // namespace quillon::launchpad
