// Whether the server's view of its device root still contains the current application zone.
//
// A view contains the zone folder that existed when the process entered the device root. A zone
// that starts later does not appear in it, and the plug-in would conclude that it runs inside the
// zone.
#pragma once

#include <filesystem>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

class ZoneView {
 public:
  // Call before the process enters the device root.
  explicit ZoneView(const std::filesystem::path& device);

  // Whether the calling process, which has entered the device root, sees the zone that exists now,
  // or no zone if none exists.
  [[nodiscard]] bool isCurrent() const;

  // Closes the descriptor of the device root, which a worker must not inherit: it refers to a
  // folder outside the view.
  void close() { device_.reset(); }

 private:
  Descriptor device_;
};

}  // namespace quillon::launchpad
