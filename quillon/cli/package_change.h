// Changes of the packages in a device root.
#pragma once

#include "quillon/base/failure.h"
#include "quillon/device/cached_lists.h"

namespace quillon::cli {

// Returns the result of `change`, which installs or removes a package of the device root that the
// process is inside of. The plug-in's cached lists name the files of packages, so they are removed:
// before, since a launch pad prepares processes as soon as the package registry has changed, and
// afterwards, since a launch may have saved them meanwhile.
template <typename Change>
auto changePackages(Change change) -> decltype(change()) {
  RETURN_IF_FAILED(device::removeCachedLists("/"));
  auto changed = change();
  RETURN_IF_FAILED(device::removeCachedLists("/"));
  return changed;
}

}  // namespace quillon::cli
