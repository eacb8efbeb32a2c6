// The package registry: packages and their applications.
//
// Packages belong to one user or, with owner 0, to all. Whoever looks sees the own ones and those
// for all, and of two with the same id the own one.
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
  // A registry that does not exist reads as an empty one and is not created. What is read stays as
  // it was at the first reading, and no installation ends, for as long as the object lives.
  static Expected<Registry> openForReading();
  // Creates the registry where it is missing.
  static Expected<Registry> openForWriting();

  Expected<std::vector<Package>> packages();
  Expected<std::vector<Package>> packagesVisibleTo(uid_t user);
  Expected<std::optional<Package>> package(const std::string& id, uid_t owner);
  Expected<std::optional<Package>> packageVisibleTo(const std::string& id, uid_t user);
  Expected<std::optional<Package>> packageOfApplication(const std::string& appId, uid_t user);

  // Replaces the package of the same id and owner. Call inside a transaction.
  Expected<void> put(const Package& package);
  Expected<void> erase(const std::string& id, uid_t owner);

  [[nodiscard]] bool isEmptyForLackOfFile() const { return !database_.has_value(); }
  // Precondition: there is a file.
  Database& database() { return *database_; }

 private:
  Registry() = default;
  explicit Registry(Database database) : database_(std::move(database)) {}
  Expected<std::vector<Package>> select(const std::string& where,
                                        const std::function<void(Statement&)>& bind);
  Expected<void> fill(Package& package, int64_t key);
  Expected<void> fillMetadata(Application& application, int64_t key);
  Expected<int64_t> insertPackage(const Package& package);
  Expected<int64_t> insertApplication(const Application& application, int64_t package, uid_t owner);
  std::optional<Database> database_;
};

}  // namespace quillon::workstation
