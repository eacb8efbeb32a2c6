#include "packages/lookup.h"

#include <functional>
#include <set>

#include "packages/lookup_memo.h"
#include "packages/registry.h"

namespace quillon::workstation {
namespace {

using Found = Expected<std::optional<Package>>;
using Stamp = std::optional<LookupMemo::Stamp>;

std::string packageQuestion(const std::string& id, uid_t user) {
  return "package " + std::to_string(user) + " " + id;
}

std::string applicationQuestion(const std::string& appId, uid_t user) {
  return "application " + std::to_string(user) + " " + appId;
}

void keep(const Stamp& stamp, const std::string& question, const Found& found) {
  if (stamp && found) LookupMemo::keep(*stamp, question, *found);
}

// Asks the memo, else the registry as it was no earlier than the stamp.
Found askOnce(const std::string& question,
              const std::function<Found(Registry&, const Stamp&)>& ask) {
  const Stamp stamp = LookupMemo::stampNow();
  if (stamp) {
    if (auto known = LookupMemo::find(*stamp, question)) return std::move(*known);
  }
  auto registry = Registry::openForReading();
  if (!registry) return tl::unexpected(registry.error());
  Found found = ask(*registry, stamp);
  keep(stamp, question, found);
  return found;
}

}  // namespace

Found lookUpPackage(const std::string& id, uid_t user) {
  return askOnce(packageQuestion(id, user), [&](Registry& registry, const Stamp& /*stamp*/) {
    return registry.packageVisibleTo(id, user);
  });
}

Found lookUpPackageOfApplication(const std::string& appId, uid_t user) {
  return askOnce(applicationQuestion(appId, user), [&](Registry& registry, const Stamp& stamp) {
    Found found = registry.packageOfApplication(appId, user);
    if (found && *found) {
      const std::string& id = (*found)->id;
      const bool isOwn = (*found)->owner == user;  // and so comes before another of its id
      keep(stamp, packageQuestion(id, user), isOwn ? found : registry.packageVisibleTo(id, user));
    }
    return found;
  });
}

// The user's own packages come first, and so does the package of an application that several hold.
void lookUpInAdvance(uid_t user) {
  const Stamp stamp = LookupMemo::stampNow();
  auto registry = Registry::openForReading();
  if (!stamp || !registry) return;
  const auto packages = registry->packagesVisibleTo(user);
  if (!packages) return;
  std::set<std::string> known;
  for (const Package& package : *packages) {
    LookupMemo::keep(*stamp, packageQuestion(package.id, user), package);
    for (const Application& application : package.applications) {
      if (!known.insert(application.id).second) continue;
      LookupMemo::keep(*stamp, applicationQuestion(application.id, user), package);
    }
  }
}

}  // namespace quillon::workstation
