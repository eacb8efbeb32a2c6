#include "packages/database.h"

#include <sqlite3.h>

#include <cstring>

#include "quillon/base/shell_word.h"
#include "workstation/inside_device.h"
#include "workstation/packages.h"

namespace quillon::workstation {
namespace {

// How long recoverFile() waits for a lock of a process that changes the file in place.
constexpr int kLockWaitMs = 1000;

// By default SQLite allocates and touches twenty pages when a page cache gets its first page, but a
// lookup reads fewer than ten. Has no effect if the process has already initialized SQLite.
void leavePagesToMalloc() {
  [[maybe_unused]] static const int result = sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
}

std::string remedyFor(int result) {
  switch (result) {
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
      return "remove it and install the packages again: rm " +
             shellWord(pathOfDevice() + kRegistryPath);
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
      return "an earlier version was interrupted while it changed the file: run "
             "'quillon package list' as the user who owns it";
    default:
      return "";
  }
}

}  // namespace

void Database::Close::operator()(sqlite3* connection) const { sqlite3_close(connection); }

void Statement::Finalize::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

Expected<Database> Database::open(const char* name) {
  leavePagesToMalloc();
  Database database;
  sqlite3* connection = nullptr;
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  const int result = sqlite3_open_v2(name, &connection, kFlags, nullptr);
  database.connection_.reset(connection);
  if (result != SQLITE_OK) {
    return tl::unexpected(database.failure());
  }
  return database;
}

Expected<Database> Database::fromBytes(std::string_view bytes) {
  ASSIGN_OR_RETURN(Database database, open(":memory:"));
  if (bytes.empty()) {
    return database;
  }
  // SQLite owns and frees the copy, also if the call fails.
  auto* const copy = static_cast<unsigned char*>(sqlite3_malloc64(bytes.size()));
  if (copy == nullptr) {
    return fail("out of memory");
  }
  std::memcpy(copy, bytes.data(), bytes.size());
  const auto size = static_cast<sqlite3_int64>(bytes.size());
  constexpr unsigned kFlags = SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE;
  if (sqlite3_deserialize(database.get(), "main", copy, size, size, kFlags) != SQLITE_OK) {
    return tl::unexpected(database.failure());
  }
  return database;
}

Expected<std::string> Database::recoverFile(const char* path) {
  ASSIGN_OR_RETURN(const Database database, open(path));
  sqlite3_busy_timeout(database.get(), kLockWaitMs);
  return database.bytes();
}

Expected<std::string> Database::bytes() const {
  sqlite3_int64 size = 0;
  const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> copy(
      sqlite3_serialize(get(), "main", &size, 0), sqlite3_free);
  if (!copy && size != 0) {
    return tl::unexpected(failure());
  }
  return std::string(reinterpret_cast<const char*>(copy.get()), static_cast<size_t>(size));
}

Expected<void> Database::run(const char* sql) {
  if (sqlite3_exec(get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK) {
    return {};
  }
  return tl::unexpected(failure());
}

Failure Database::failure() const {
  const int result = connection_ ? sqlite3_errcode(get()) : SQLITE_NOMEM;
  const std::string cause = connection_ ? sqlite3_errmsg(get()) : sqlite3_errstr(result);
  return {std::string("the package registry '") + kRegistryPath + "' failed: " + cause,
          remedyFor(result)};
}

Statement::Statement(const Database& database, const char* sql) : database_(database) {
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(database.get(), sql, -1, &statement, nullptr));
  statement_.reset(statement);
}

void Statement::check(int result) {
  if (failed_ || result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) {
    return;
  }
  failed_ = true;
  failure_ = database_.failure();
}

Statement& Statement::bind(const std::string& text) {
  if (failed_) {
    return *this;
  }
  check(sqlite3_bind_text(statement_.get(), ++parameter_, text.data(),
                          static_cast<int>(text.size()), SQLITE_TRANSIENT));
  return *this;
}

Statement& Statement::bind(int64_t number) {
  if (failed_) {
    return *this;
  }
  check(sqlite3_bind_int64(statement_.get(), ++parameter_, number));
  return *this;
}

bool Statement::step() {
  if (failed_) {
    return false;
  }
  const int result = sqlite3_step(statement_.get());
  check(result);
  return result == SQLITE_ROW;
}

std::string Statement::text(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
  const int length = sqlite3_column_bytes(statement_.get(), column);
  return bytes == nullptr ? std::string() : std::string(bytes, static_cast<size_t>(length));
}

int64_t Statement::number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

Expected<void> Statement::finish() {
  while (step()) {
  }
  sqlite3_reset(statement_.get());
  if (failed_) {
    return tl::unexpected(failure_);
  }
  return {};
}

}  // namespace quillon::workstation
