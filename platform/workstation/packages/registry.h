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
#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::workstation {

class Registry {
 public:
  // A missing registry reads as empty and is not created. All reads see the state at the first
  // read, and no installation can commit as long as the object lives.
  static Expected<Registry> openForReading();
  // Creates the registry if it is missing.
  static Expected<Registry> openForWriting();

  Expected<std::vector<Package>> packages();
  Expected<std::vector<Package>> packagesVisibleTo(uid_t user);
  Expected<std::optional<Package>> package(const std::string& id, uid_t owner);
  Expected<std::optional<Package>> packageVisibleTo(const std::string& id, uid_t user);
  Expected<std::optional<Package>> packageOfApplication(const std::string& appId, uid_t user);

  // Replaces the package of the same id and owner. Call inside a transaction.
  Expected<void> put(const Package& package);
  Expected<void> erase(const std::string& id, uid_t owner);

  // Precondition: the registry was opened for writing.
  Database& database() { return *database_; }

 private:
  Registry() = default;
  explicit Registry(Database database) : database_(std::move(database)) {}
  Expected<std::vector<Package>> select(const std::string& condition,
                                        const std::function<void(Statement&)>& bind);
  Expected<void> fill(Package& package, int64_t key);
  Expected<void> fillMetadata(Application& application, int64_t key);
  Expected<int64_t> insertPackage(const Package& package);
  Expected<int64_t> insertApplication(const Application& application, int64_t package, uid_t owner);
  std::optional<Database> database_;
};

}  // namespace quillon::workstation
