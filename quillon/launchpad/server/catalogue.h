// What the launch pad knows of the applications that it was asked for.
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
};

// Works inside a device root. An answer is remembered as long as the registry and the application's
// files are as they were.
class Catalogue {
 public:
  // The failure is what a direct launch would fail with too, or why only a direct launch will do.
  [[nodiscard]] Expected<std::shared_ptr<const Entry>> find(const Request& request);

  // The keys of all installed applications, captured, in the registry's order; of those types only,
  // unless the list is empty. What cannot be launched is left out.
  std::vector<PoolKey> keysOfInstalled(const std::vector<std::string>& types);

 private:
  using Name =
      std::tuple<std::string, std::optional<std::string>, std::optional<std::string>, bool>;
  struct Known {
    std::vector<std::string> files;  // that the entry is made of, beside the registry
    std::string fingerprint;         // of before it was made
    std::shared_ptr<const Entry> entry;
  };
  static Expected<Known> learn(const Request& request, std::vector<std::string> files);

  std::map<Name, Known> known_;
};

}  // namespace quillon::launchpad
