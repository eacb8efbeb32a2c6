#include "packages/schema.h"

namespace quillon::workstation {
namespace {

// Stored in the file as its user_version. Increment it with every incompatible change of the
// tables.
constexpr int kVersion = 1;

constexpr const char* kTables = R"(
CREATE TABLE package(
  key INTEGER PRIMARY KEY,
  id TEXT NOT NULL,
  owner INTEGER NOT NULL,
  version TEXT NOT NULL,
  root TEXT NOT NULL UNIQUE,
  UNIQUE(id, owner));
CREATE TABLE privilege(
  package INTEGER NOT NULL REFERENCES package ON DELETE CASCADE,
  position INTEGER NOT NULL,
  name TEXT NOT NULL,
  PRIMARY KEY(package, position)) WITHOUT ROWID;
CREATE TABLE application(
  key INTEGER PRIMARY KEY,
  package INTEGER NOT NULL REFERENCES package ON DELETE CASCADE,
  position INTEGER NOT NULL,
  id TEXT NOT NULL,
  owner INTEGER NOT NULL,
  exec TEXT NOT NULL,
  type TEXT NOT NULL,
  service INTEGER NOT NULL,
  UNIQUE(id, owner));
CREATE INDEX application_package ON application(package, position);
CREATE TABLE metadata(
  application INTEGER NOT NULL REFERENCES application ON DELETE CASCADE,
  position INTEGER NOT NULL,
  key TEXT NOT NULL,
  value TEXT NOT NULL,
  PRIMARY KEY(application, position)) WITHOUT ROWID;
-- Folder changes in progress; see folder_change.h.
CREATE TABLE folder_change(
  aside TEXT PRIMARY KEY,
  root TEXT NOT NULL,
  step TEXT NOT NULL,
  inode INTEGER NOT NULL);
PRAGMA user_version = 1;
)";

}  // namespace

Expected<Schema> schemaOf(Database& database) {
  Statement query(database, "PRAGMA user_version");
  const int64_t version = query.step() ? query.number(0) : 0;
  RETURN_IF_FAILED(query.finish());
  if (version == 0) {
    return Schema::kMissing;
  }
  if (version == kVersion) {
    return Schema::kCurrent;
  }
  return fail("the package registry has version " + std::to_string(version) +
                  ", this quillon reads version " + std::to_string(kVersion),
              "use the quillon that wrote it, or make a new device root");
}

Expected<void> ensureSchema(Database& database) {
  ASSIGN_OR_RETURN(const Schema schema, schemaOf(database));
  return schema == Schema::kCurrent ? Expected<void>() : database.run(kTables);
}

}  // namespace quillon::workstation
