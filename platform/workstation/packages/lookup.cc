#include "packages/lookup.h"

#include <unistd.h>

#include <functional>
#include <set>

#include "packages/lookup_cache.h"
#include "packages/registry.h"

namespace quillon::workstation {
namespace {

using Found = Expected<std::optional<Package>>;
using Version = std::optional<LookupCache::FileVersion>;

std::string packageKey(const std::string& id, uid_t user) {
  return "package " + std::to_string(user) + " " + id;
}

std::string applicationKey(const std::string& appId, uid_t user) {
  return "application " + std::to_string(user) + " " + appId;
}

void store(const Version& version, const std::string& key, const Found& found) {
  if (version && found) {
    LookupCache::store(*version, key, *found);
  }
}

// Returns the cache entry or, if there is none, the result of `query` on the registry, which is at
// least as new as the version.
Found findOrQuery(const std::string& key,
                  const std::function<Found(Registry&, const Version&)>& query) {
  const Version version = LookupCache::currentVersion();
  if (version) {
    if (auto known = LookupCache::find(*version, key)) {
      return std::move(*known);
    }
  }
  ASSIGN_OR_RETURN(Registry registry, Registry::openForReading());
  Found found = query(registry, version);
  store(version, key, found);
  return found;
}

}  // namespace

Found lookUpPackage(const std::string& id, uid_t user) {
  return findOrQuery(packageKey(id, user), [&](Registry& registry, const Version& /*version*/) {
    return registry.packageVisibleTo(id, user);
  });
}

Found lookUpPackageOfApplication(const std::string& appId, uid_t user) {
  return findOrQuery(applicationKey(appId, user), [&](Registry& registry, const Version& version) {
    Found found = registry.packageOfApplication(appId, user);
    if (found && *found) {
      const std::string& id = (*found)->id;
      // tl::expected ends the process if memory runs out while it is copied.
      if ((*found)->owner == user) {  // hides other packages of that id
        store(version, packageKey(id, user), found);
      } else {
        store(version, packageKey(id, user), registry.packageVisibleTo(id, user));
      }
    }
    return found;
  });
}

Found findPackageOfApplication(const std::string& appId) {
  return lookUpPackageOfApplication(appId, geteuid());
}

// packagesVisibleTo() returns the user's own packages first. If several packages contain an
// application, the first one counts.
void cachePackages() {
  const uid_t user = geteuid();
  const Version version = LookupCache::currentVersion();
  auto registry = Registry::openForReading();
  if (!version || !registry) {
    return;
  }
  const auto packages = registry->packagesVisibleTo(user);
  if (!packages) {
    return;
  }
  std::set<std::string> known;
  for (const Package& package : *packages) {
    LookupCache::store(*version, packageKey(package.id, user), package);
    for (const Application& application : package.applications) {
      if (!known.insert(application.id).second) {
        continue;
      }
      LookupCache::store(*version, applicationKey(application.id, user), package);
    }
  }
}

}  // namespace quillon::workstation
