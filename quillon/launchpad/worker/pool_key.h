// The kind of launch that the workers of a pool can serve: everything that cannot change once the
// runtime has started.
#pragma once

#include <compare>
#include <optional>
#include <string>

#include "quillon/host/runtime/runtime.h"
#include "quillon/resolution/additions.h"

namespace quillon::launchpad {

// An application that a worker knows before it has a launch.
struct KnownApplication {
  std::string id;
  std::string packageRoot;
  std::string assembly;     // absolute path
  std::string fingerprint;  // of its files and of the registry

  std::strong_ordering operator<=>(const KnownApplication&) const = default;
};

struct PoolKey {
  std::string type;                  // application type, as passed to the plug-in
  bool raw = false;                  // the plug-in does not capture the output
  host::RuntimeProperties settings;  // "configProperties" of runtimeconfig.json
  resolution::Additions additions;   // trusted assemblies and folders beside the device's
  std::optional<KnownApplication> application = std::nullopt;  // if only this one is served

  std::strong_ordering operator<=>(const PoolKey&) const = default;
};

// For messages to the user: "inhouse, captured, System.GC.Server=true".
std::string describe(const PoolKey& key);

}  // namespace quillon::launchpad
