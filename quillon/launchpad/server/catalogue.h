// The applications that clients have requested: what to launch, and the pool that can serve it.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/host/application/target.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/worker/pool_key.h"

namespace quillon::launchpad {

struct Entry {
  host::LaunchTarget target;
  PoolKey key;
  PoolKey ownKey;                  // of the workers that know the application; see Catalogue::find
  std::vector<std::string> files;  // that it was read from, besides the registry
};

// A cache of lookups inside a device root. A result is valid as long as the registry and the
// application's files are unchanged.
class Catalogue {
 public:
  // The failure is that of a direct launch, or the reason why only a direct launch is possible.
  // The entry's `ownKey` has no application if its files change while they are read.
  [[nodiscard]] Expected<std::shared_ptr<const Entry>> find(const Request& request);

  // Whether find() would return an entry with this key for workers that know the application.
  [[nodiscard]] bool isCurrent(const PoolKey& ownKey) const;

  // The distinct keys of all installed applications with captured output, in the registry's order.
  // If `types` is not empty, only of these application types. Skips applications that cannot be
  // launched.
  std::vector<PoolKey> keysOfInstalled(const std::vector<std::string>& types);

 private:
  using Name =  // application, type, executable, raw
      std::tuple<std::string, std::optional<std::string>, std::optional<std::string>, bool>;
  struct Cached {
    std::vector<std::string> files;  // of the entry
    std::string fingerprint;         // taken before the entry was read
    std::shared_ptr<const Entry> entry;
  };
  static Expected<Cached> read(const Request& request, std::vector<std::string> files);

  std::map<Name, Cached> cache_;
};

}  // namespace quillon::launchpad
