// The package registry: packages and their applications.
//
// A package is installed for one user or, with owner 0, for all users. A user sees the own packages
// and those for all users. An own package hides a package for all users with the same id.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "packages/database.h"
#include "packages/registry_file.h"
#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::workstation {

class Registry {
 public:
  // Opens a copy of the registry as it is now. A missing registry reads as empty and is not
  // created.
  static Expected<Registry> openForReading();
  // The caller holds the InstallLock. Creates the registry with the first update.
  static Expected<Registry> openForWriting(Reserve reserve);

  Expected<std::vector<Package>> packages();
  Expected<std::vector<Package>> packagesVisibleTo(uid_t user);
  Expected<std::optional<Package>> package(const std::string& id, uid_t owner);
  Expected<std::optional<Package>> packageVisibleTo(const std::string& id, uid_t user);
  Expected<std::optional<Package>> packageOfApplication(const std::string& appId, uid_t user);

  // Applies `edit` to a copy and replaces the registry with it. If that fails, nothing changes. The
  // registry must be open for writing.
  Expected<void> update(const std::function<Expected<void>(Registry& next)>& edit);

  // For edits: put() replaces the package of the same id and owner.
  Expected<void> put(const Package& package);
  Expected<void> erase(const std::string& id, uid_t owner);
  Database& database() { return *database_; }

 private:
  Registry() = default;
  explicit Registry(Database database, Reserve reserve = Reserve::kKeep)
      : database_(std::move(database)), reserve_(reserve) {}
  Expected<std::vector<Package>> select(const std::string& condition,
                                        const std::function<void(Statement&)>& bind);
  Expected<void> fill(Package& package, int64_t key);
  Expected<void> fillMetadata(Application& application, int64_t key);
  Expected<int64_t> insertPackage(const Package& package);
  Expected<int64_t> insertApplication(const Application& application, int64_t package, uid_t owner);
  std::optional<Database> database_;
  Reserve reserve_ = Reserve::kKeep;
};

}  // namespace quillon::workstation
