#include "quillon/launchpad/worker/loaded_files.h"

#include <fcntl.h>

#include <algorithm>

#include "quillon/base/files.h"

namespace quillon::launchpad {
namespace {

std::string identityOf(const std::string& file) {
  std::string identity;
  appendFileIdentity(identity, AT_FDCWD, file.c_str());
  return identity;
}

}  // namespace

void LoadedFiles::record(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    identities_[file] = identityOf(file);
  }
}

bool LoadedFiles::keep(const std::vector<std::string>& loaded,
                       const std::vector<std::string>& trusted) {
  std::map<std::string, std::string> kept;
  for (const std::string& file : loaded) {
    const auto recorded = identities_.find(file);
    if (recorded != identities_.end()) {
      kept.insert(*recorded);
    } else if (std::find(trusted.begin(), trusted.end(), file) == trusted.end()) {
      return false;
    }
  }
  identities_ = std::move(kept);
  return areCurrent();
}

bool LoadedFiles::areCurrent() const {
  return std::all_of(identities_.begin(), identities_.end(), [](const auto& recorded) {
    return identityOf(recorded.first) == recorded.second;
  });
}

}  // namespace quillon::launchpad
