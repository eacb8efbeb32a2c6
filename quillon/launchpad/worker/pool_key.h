// What has to be the same for two launches to be carried out by processes of one pool: all that is
// settled when the runtime starts.
#pragma once

#include <compare>
#include <string>

#include "quillon/host/runtime/runtime.h"

namespace quillon::launchpad {

struct PoolKey {
  std::string type;                  // application type, as the plug-in gets it
  bool raw = false;                  // no log control
  host::RuntimeProperties settings;  // "configProperties" of the application's own build

  auto operator<=>(const PoolKey&) const = default;
};

// For a person: "inhouse, captured, System.GC.Server=true".
std::string describe(const PoolKey& key);

}  // namespace quillon::launchpad
