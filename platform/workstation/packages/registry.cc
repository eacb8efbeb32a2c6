#include "packages/registry.h"

#include <algorithm>

#include "packages/schema.h"

namespace quillon::workstation {
namespace {

bool belongsTo(const Package& package, uid_t user) {
  return package.owner == 0 || package.owner == user;
}

// Sorts own packages before packages for all users. Of several packages with one id, the first
// counts.
void ownFirst(std::vector<Package>& packages) {
  std::stable_sort(packages.begin(), packages.end(), [](const Package& left, const Package& right) {
    return left.owner != 0 && right.owner == 0;
  });
}

std::optional<Package> firstVisible(std::vector<Package> packages, uid_t user) {
  ownFirst(packages);
  for (Package& package : packages) {
    if (belongsTo(package, user)) {
      return std::move(package);
    }
  }
  return std::nullopt;
}

}  // namespace

Expected<Registry> Registry::openForReading() {
  ASSIGN_OR_RETURN(const std::string bytes, readRegistryFile());
  if (bytes.empty()) {
    return Registry();
  }
  ASSIGN_OR_RETURN(Database database, Database::fromBytes(bytes));
  ASSIGN_OR_RETURN(const Schema schema, schemaOf(database));
  if (schema == Schema::kMissing) {
    return Registry();
  }
  return Registry(std::move(database));
}

Expected<Registry> Registry::openForWriting(Reserve reserve) {
  ASSIGN_OR_RETURN(const std::string bytes, readRegistryFile());
  ASSIGN_OR_RETURN(Database database, Database::fromBytes(bytes));
  RETURN_IF_FAILED(ensureSchema(database));
  return Registry(std::move(database), reserve);
}

Expected<void> Registry::update(const std::function<Expected<void>(Registry& next)>& edit) {
  ASSIGN_OR_RETURN(const std::string before, database_->bytes());
  ASSIGN_OR_RETURN(Database copy, Database::fromBytes(before));
  RETURN_IF_FAILED(copy.run("PRAGMA foreign_keys = ON"));
  Registry next(std::move(copy), reserve_);
  RETURN_IF_FAILED(edit(next));
  ASSIGN_OR_RETURN(const std::string after, next.database_->bytes());
  RETURN_IF_FAILED(replaceRegistryFile(after, reserve_));
  *this = std::move(next);
  return {};
}

Expected<void> Registry::fillMetadata(Application& application, int64_t key) {
  Statement query(*database_,
                  "SELECT key, value FROM metadata WHERE application = ?1 ORDER BY position");
  query.bind(key);
  while (query.step()) {
    application.metadata.emplace_back(query.text(0), query.text(1));
  }
  return query.finish();
}

Expected<void> Registry::fill(Package& package, int64_t key) {
  Statement privileges(*database_,
                       "SELECT name FROM privilege WHERE package = ?1 ORDER BY position");
  privileges.bind(key);
  while (privileges.step()) {
    package.privileges.push_back(privileges.text(0));
  }
  RETURN_IF_FAILED(privileges.finish());
  Statement query(*database_,
                  "SELECT key, id, exec, type, service FROM application"
                  " WHERE package = ?1 ORDER BY position");
  query.bind(key);
  while (query.step()) {
    Application application{query.text(1), query.text(2), query.text(3), query.number(4) != 0, {}};
    RETURN_IF_FAILED(fillMetadata(application, query.number(0)));
    package.applications.push_back(std::move(application));
  }
  return query.finish();
}

Expected<std::vector<Package>> Registry::select(const std::string& condition,
                                                const std::function<void(Statement&)>& bind) {
  std::vector<Package> packages;
  if (!database_) {
    return packages;
  }
  const std::string sql = "SELECT key, id, version, root, owner FROM package WHERE " + condition +
                          " ORDER BY id, owner";
  Statement query(*database_, sql.c_str());
  bind(query);
  Expected<void> filled;
  while (filled && query.step()) {
    Package package{
        query.text(1), query.text(2), query.text(3), static_cast<uid_t>(query.number(4)), {}, {}};
    filled = fill(package, query.number(0));
    packages.push_back(std::move(package));
  }
  RETURN_IF_FAILED(filled);
  RETURN_IF_FAILED(query.finish());
  return packages;
}

Expected<std::vector<Package>> Registry::packages() {
  return select("TRUE", [](Statement&) {});
}

Expected<std::vector<Package>> Registry::packagesVisibleTo(uid_t user) {
  ASSIGN_OR_RETURN(auto all,
                   select("owner IN (0, ?1)", [&](Statement& query) { query.bind(user); }));
  ownFirst(all);
  std::vector<Package> visible;
  for (Package& package : all) {
    const auto sameId = [&](const Package& seen) { return seen.id == package.id; };
    if (std::none_of(visible.begin(), visible.end(), sameId)) {
      visible.push_back(std::move(package));
    }
  }
  return visible;
}

Expected<std::optional<Package>> Registry::package(const std::string& id, uid_t owner) {
  ASSIGN_OR_RETURN(auto found, select("id = ?1 AND owner = ?2",
                                      [&](Statement& query) { query.bind(id).bind(owner); }));
  if (found.empty()) {
    return std::optional<Package>();
  }
  return std::optional<Package>(std::move(found.front()));
}

Expected<std::optional<Package>> Registry::packageVisibleTo(const std::string& id, uid_t user) {
  ASSIGN_OR_RETURN(auto found, select("id = ?1 AND owner IN (0, ?2)",
                                      [&](Statement& query) { query.bind(id).bind(user); }));
  return firstVisible(std::move(found), user);
}

Expected<std::optional<Package>> Registry::packageOfApplication(const std::string& appId,
                                                                uid_t user) {
  ASSIGN_OR_RETURN(
      auto found,
      select("key IN (SELECT package FROM application WHERE id = ?1) AND owner IN (0, ?2)",
             [&](Statement& query) { query.bind(appId).bind(user); }));
  return firstVisible(std::move(found), user);
}

Expected<int64_t> Registry::insertPackage(const Package& package) {
  Statement insert(*database_,
                   "INSERT INTO package(id, owner, version, root) VALUES(?1, ?2, ?3, ?4)"
                   " RETURNING key");
  insert.bind(package.id).bind(package.owner).bind(package.version).bind(package.rootPath);
  const int64_t key = insert.step() ? insert.number(0) : 0;
  RETURN_IF_FAILED(insert.finish());
  int64_t position = 0;
  for (const std::string& privilege : package.privileges) {
    Statement row(*database_, "INSERT INTO privilege VALUES(?1, ?2, ?3)");
    row.bind(key).bind(position++).bind(privilege);
    RETURN_IF_FAILED(row.finish());
  }
  return key;
}

Expected<int64_t> Registry::insertApplication(const Application& application, int64_t package,
                                              uid_t owner) {
  Statement insert(*database_,
                   "INSERT INTO application(package, position, id, owner, exec, type, service)"
                   " VALUES(?1, (SELECT count(*) FROM application WHERE package = ?1),"
                   " ?2, ?3, ?4, ?5, ?6) RETURNING key");
  insert.bind(package).bind(application.id).bind(owner);
  insert.bind(application.exec).bind(application.type).bind(application.service ? 1 : 0);
  const int64_t key = insert.step() ? insert.number(0) : 0;
  RETURN_IF_FAILED(insert.finish());
  int64_t position = 0;
  for (const auto& [name, value] : application.metadata) {
    Statement row(*database_, "INSERT INTO metadata VALUES(?1, ?2, ?3, ?4)");
    row.bind(key).bind(position++).bind(name).bind(value);
    RETURN_IF_FAILED(row.finish());
  }
  return key;
}

Expected<void> Registry::put(const Package& package) {
  RETURN_IF_FAILED(erase(package.id, package.owner));
  ASSIGN_OR_RETURN(const int64_t key, insertPackage(package));
  for (const Application& application : package.applications) {
    RETURN_IF_FAILED(insertApplication(application, key, package.owner));
  }
  return {};
}

Expected<void> Registry::erase(const std::string& id, uid_t owner) {
  Statement statement(*database_, "DELETE FROM package WHERE id = ?1 AND owner = ?2");
  return statement.bind(id).bind(owner).finish();
}

}  // namespace quillon::workstation
