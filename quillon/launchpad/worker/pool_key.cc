#include "quillon/launchpad/worker/pool_key.h"

namespace quillon::launchpad {

std::string describe(const PoolKey& key) {
  std::string text = key.type + (key.raw ? ", raw" : ", captured");
  for (const auto& [name, value] : key.settings) {
    text += ", " + name + "=" + value;
  }
  const std::string additions = resolution::describe(key.additions);
  if (!additions.empty()) {
    text += ", " + additions;
  }
  return key.application ? text + ", for " + key.application->id : text;
}

}  // namespace quillon::launchpad
