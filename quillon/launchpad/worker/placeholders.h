// Folders that the runtime is given before anybody knows what they are.
//
// The runtime takes its folders once, when it starts. A prepared process gives it
// "/proc/self/fd/N", with N a descriptor that leads nowhere of use, and moves N onto the real
// folder when it has its application; the plug-in does the same for the packages that one requires.
#pragma once

#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::launchpad {

class Placeholders {
 public:
  [[nodiscard]] static Expected<Placeholders> open(size_t count);

  // What to give to the runtime.
  [[nodiscard]] std::vector<std::string> paths() const;

  // Points each at a folder, in order; those for which there is no folder stay as they are.
  void leadTo(const std::vector<std::string>& folders);

 private:
  std::vector<Descriptor> descriptors_;
};

}  // namespace quillon::launchpad
