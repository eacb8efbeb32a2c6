// Placeholder descriptors for the application's folders, which are unknown when the runtime starts.
//
// The runtime accepts its folders only at its start. A worker passes "/proc/self/fd/N", with N a
// descriptor of some other folder, and redirects N to the real folder once it knows the
// application. The plug-in does the same for required packages.
#pragma once

#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::launchpad {

class Placeholders {
 public:
  [[nodiscard]] static Expected<Placeholders> open(size_t count);

  // The paths to pass to the runtime.
  [[nodiscard]] std::vector<std::string> paths() const;

  // Redirects the placeholders to folders, in order. Leaves a placeholder unchanged if there is no
  // folder for it.
  void redirect(const std::vector<std::string>& folders);

 private:
  std::vector<Descriptor> descriptors_;
};

}  // namespace quillon::launchpad
