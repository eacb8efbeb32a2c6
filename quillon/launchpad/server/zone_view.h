// Whether a launch pad still sees the application zone of its device root.
//
// The view of a device root holds the zone folder that was there when it was entered; a zone that
// is started where there was none does not appear in it, and the plug-in would take its absence for
// being inside.
#pragma once

#include <filesystem>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

class ZoneView {
 public:
  // Call before the process enters the device root.
  explicit ZoneView(const std::filesystem::path& device);

  // Whether the calling process, which has entered the device root, sees the zone that is there
  // now, or none where there is none.
  [[nodiscard]] bool isCurrent() const;

  // Lets go of the device root: it leads outside the view.
  void close() { device_.reset(); }

 private:
  Descriptor device_;
};

}  // namespace quillon::launchpad
